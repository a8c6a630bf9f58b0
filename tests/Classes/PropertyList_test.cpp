#include "Classes/PropertyList.h"

#include <gtest/gtest.h>

#include <string>

namespace ferncast {
namespace {

Value sampleReply() {
  Dictionary properties{{u"Orientation", Value(1)}, {u"Flash", Value(Null{})}};
  return Value(Dictionary{
      {u"Thumbnail", Value(Data{0x4d, 0x4d, 0x00, 0x2a})},
      {u"Size", Value(u"{256, 128}")},
      {u"Alpha", Value(true)},
      {u"PageCount", Value(-12)},
      {u"Duration", Value(12.5f)},
      {u"Ratio", Value(0.1)},
      {u"Created", Value(Date{1700000000.25})},
      {u"Properties", Value(properties)},
      {u"Pages", Value(Array{Value(u"ä€😀"), Value(Array{}), Value(Dictionary{})})},
  });
}

TEST(PropertyList, BinaryRoundTripKeepsEveryKindButFloatPrecision) {
  Value original = sampleReply();
  std::vector<std::uint8_t> bytes = binaryPropertyList(original);
  ASSERT_GE(bytes.size(), 8u);
  EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 8), "bplist00");

  auto decoded = propertyListFromBytes(bytes.data(), bytes.size());
  ASSERT_TRUE(decoded);
  // A float comes back as a double of the same value; everything else is unchanged.
  const Value* duration = valueForKey(*decoded, u"Duration");
  ASSERT_NE(duration, nullptr);
  EXPECT_EQ(duration->kind(), Value::Kind::kReal);
  EXPECT_EQ(duration->number(), 12.5);
  Dictionary expected = *original.as<Dictionary>();
  expected[u"Duration"] = Value(12.5);
  EXPECT_EQ(*decoded, Value(expected));
}

TEST(PropertyList, XmlRoundTripKeepsNullAndWholeSecondsOfDates) {
  Value original = sampleReply();
  std::string xml = xmlPropertyList(original);
  EXPECT_NE(xml.find("<plist"), std::string::npos);
  auto decoded =
      propertyListFromBytes(reinterpret_cast<const std::uint8_t*>(xml.data()), xml.size());
  ASSERT_TRUE(decoded);
  const Value* properties = valueForKey(*decoded, u"Properties");
  ASSERT_NE(properties, nullptr);
  const Value* flash = valueForKey(*properties, u"Flash");
  ASSERT_NE(flash, nullptr);
  EXPECT_TRUE(flash->is<Null>());
  EXPECT_EQ(*valueForKey(*decoded, u"Created"), Value(Date{1700000000}));
}

TEST(PropertyList, RejectsBytesThatAreNoPropertyList) {
  const std::string inputs[] = {"",
                                "bplist00",
                                "bplist00\xff\xff\xff\xff",
                                "<plist><dict>",
                                "hello world",
                                std::string(40, '\0')};
  for (const std::string& input : inputs) {
    EXPECT_FALSE(
        propertyListFromBytes(reinterpret_cast<const std::uint8_t*>(input.data()), input.size()))
        << input;
  }
  EXPECT_FALSE(propertyListFromBytes(nullptr, 10));
}

TEST(PropertyList, NestingBeyondTheLimitIsRefused) {
  Value nested(Array{});
  for (int depth = 1; depth < 5; ++depth)
    nested = Value(Array{nested});  // depth 5
  std::vector<std::uint8_t> bytes = binaryPropertyList(nested);
  EXPECT_TRUE(propertyListFromBytes(bytes.data(), bytes.size(), 5));
  EXPECT_FALSE(propertyListFromBytes(bytes.data(), bytes.size(), 4));
}

TEST(PropertyList, DictionaryOfPairsStopsAtTheFirstNil) {
  Dictionary dict = dictionaryWithObjectsAndKeys({
      {u"Thumbnail", Value(Data{1})},
      {u"Size", Value(u"{1, 1}")},
      {u"PixelSize", std::nullopt},
      {u"Alpha", Value(true)},
  });
  EXPECT_EQ(dict.size(), 2u);
  EXPECT_TRUE(dict.count(u"Size"));
  EXPECT_FALSE(dict.count(u"Alpha"));
  EXPECT_TRUE(dictionaryWithObjectsAndKeys({{u"String", std::nullopt}}).empty());
}

TEST(PropertyList, IntegerConstructorsDoNotTurnIntoBooleansOrReals) {
  EXPECT_EQ(Value(0).kind(), Value::Kind::kInteger);
  EXPECT_EQ(Value(std::uint32_t{7}).kind(), Value::Kind::kInteger);
  EXPECT_EQ(Value(false).kind(), Value::Kind::kBoolean);
  EXPECT_EQ(Value(1.0f).kind(), Value::Kind::kReal);
  EXPECT_TRUE(Value(1.0f).is<float>());
  EXPECT_NE(Value(1), Value(1.0));
  EXPECT_EQ(Value().kind(), Value::Kind::kNull);
}

}  // namespace
}  // namespace ferncast
