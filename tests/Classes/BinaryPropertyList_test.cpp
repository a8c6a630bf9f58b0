// The transport's binary property-list codec: values survive the trip, libplist agrees with it
// both ways, and hostile bytes are refused without reading out of bounds or multiplying work.
#include "Classes/BinaryPropertyList.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>

#include "Classes/PropertyList.h"

namespace ferncast {
namespace {

std::vector<std::uint8_t> bytesOf(const Value& value, std::size_t maxDepth = 32) {
  std::vector<std::uint8_t> out;
  EXPECT_TRUE(appendBinaryPropertyList(out, value, maxDepth));
  return out;
}

std::optional<Value> read(const std::vector<std::uint8_t>& bytes, PropertyListLimits limits = {}) {
  return readBinaryPropertyList(bytes.data(), bytes.size(), limits);
}

// libplist reads every real as double.
Value widened(const Value& value) {
  if (auto f = value.as<float>()) return Value(static_cast<double>(*f));
  if (auto a = value.as<Array>()) {
    Array out;
    for (const Value& item : *a)
      out.push_back(widened(item));
    return Value(std::move(out));
  }
  if (auto d = value.as<Dictionary>()) {
    Dictionary out;
    for (const auto& [key, item] : *d)
      out.emplace(key, widened(item));
    return Value(std::move(out));
  }
  return value;
}

Value nested(std::size_t depth) {
  Value value = Array{};
  for (std::size_t i = 1; i < depth; ++i)
    value = Array{value};
  return value;
}

std::vector<Value> sampleValues() {
  Data large(70000);
  for (std::size_t i = 0; i < large.size(); ++i)
    large[i] = static_cast<std::uint8_t>(i);
  Array many;
  for (int i = 0; i < 300; ++i)
    many.push_back(Value(i * 1000));
  return {
      Value(Null{}),
      Value(true),
      Value(false),
      Value(0),
      Value(255),
      Value(256),
      Value(65536),
      Value(std::int64_t{1} << 40),
      Value(-1),
      Value(std::numeric_limits<std::int64_t>::min()),
      Value(std::numeric_limits<std::int64_t>::max()),
      Value(1.5f),
      Value(0.1),
      Value(Date{1700000000.25}),
      Value(u""),
      Value(u"fourteen chars"),
      Value(u"fifteen chars!!"),
      Value(u"Gr\u00fc\u00dfe \u4e16\u754c \U0001F600"),
      Value(Data{}),
      Value(large),
      Value(many),
      Value(Dictionary{{u"Thumbnail", Value(Data{1, 2, 3})},
                       {u"Size", Value(u"{256, 128}")},
                       {u"Duration", Value(12.5f)},
                       {u"Nested", Value(Dictionary{{u"\u00e9", Value(Array{Value(Null{})})}})}}),
      nested(32),
  };
}

TEST(BinaryPropertyList, ValuesSurviveTheTripUnchanged) {
  for (const Value& value : sampleValues()) {
    auto back = read(bytesOf(value));
    ASSERT_TRUE(back) << static_cast<int>(value.kind());
    EXPECT_EQ(*back, value) << static_cast<int>(value.kind());
  }
}

TEST(BinaryPropertyList, LibplistReadsWhatWeWriteAndWeReadWhatItWrites) {
  for (const Value& value : sampleValues()) {
    auto ours = bytesOf(value);
    auto parsedByLibplist = propertyListFromBytes(ours.data(), ours.size());
    ASSERT_TRUE(parsedByLibplist) << static_cast<int>(value.kind());
    EXPECT_EQ(*parsedByLibplist, widened(value));

    auto theirs = binaryPropertyList(value);
    auto parsedByUs = read(theirs);
    ASSERT_TRUE(parsedByUs) << static_cast<int>(value.kind());
    EXPECT_EQ(widened(*parsedByUs), widened(value));
  }
}

TEST(BinaryPropertyList, WriterRefusesValuesNestedTooDeep) {
  std::vector<std::uint8_t> out{9, 9};
  EXPECT_FALSE(appendBinaryPropertyList(out, nested(33), 32));
  EXPECT_EQ(out, (std::vector<std::uint8_t>{9, 9}));
  EXPECT_TRUE(appendBinaryPropertyList(out, nested(32), 32));
}

TEST(BinaryPropertyList, ReaderRefusesNestingBeyondItsLimit) {
  auto deep = bytesOf(nested(33), 64);
  EXPECT_FALSE(read(deep));
  PropertyListLimits roomy;
  roomy.maxDepth = 33;
  EXPECT_TRUE(read(deep, roomy));
}

TEST(BinaryPropertyList, EveryTruncationIsRefused) {
  auto whole = bytesOf(sampleValues()[21]);
  for (std::size_t length = 0; length < whole.size(); ++length) {
    std::vector<std::uint8_t> cut(whole.begin(), whole.begin() + length);
    EXPECT_FALSE(read(cut)) << length;
  }
}

// Hand-made property lists: objects in `objects` (offsets computed), one-byte offsets and refs.
std::vector<std::uint8_t> assemble(const std::vector<std::vector<std::uint8_t>>& objects,
                                   std::uint64_t top = 0) {
  std::vector<std::uint8_t> out{'b', 'p', 'l', 'i', 's', 't', '0', '0'};
  std::vector<std::uint8_t> offsets;
  for (const auto& object : objects) {
    offsets.push_back(static_cast<std::uint8_t>(out.size()));
    out.insert(out.end(), object.begin(), object.end());
  }
  std::uint64_t table = out.size();
  out.insert(out.end(), offsets.begin(), offsets.end());
  std::uint8_t trailer[32] = {};
  trailer[6] = 1;
  trailer[7] = 1;
  trailer[15] = static_cast<std::uint8_t>(objects.size());
  trailer[23] = static_cast<std::uint8_t>(top);
  trailer[31] = static_cast<std::uint8_t>(table);
  out.insert(out.end(), trailer, trailer + 32);
  return out;
}

TEST(BinaryPropertyList, HostileStructuresAreRefused) {
  struct Row {
    const char* fault;
    std::vector<std::vector<std::uint8_t>> objects;
  };
  const Row rows[] = {
      {"array that contains itself", {{0xA1, 0}}},
      {"reference past the object count", {{0xA1, 7}}},
      {"count larger than the bytes present",
       {{0xAF, 0x13, 0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}}},
      {"data longer than the object area", {{0x4F, 0x12, 0x00, 0x10, 0x00, 0x00}}},
      {"dictionary key that is no string", {{0xD1, 1, 2}, {0x10, 1}, {0x09}}},
      {"non-ASCII byte in an ASCII string", {{0x52, 'a', 0xE9}}},
      {"unknown object type", {{0x70}}},
      {"real of one byte", {{0x20, 1}}},
      {"count marker that is no integer", {{0x5F, 0x22, 0, 0, 0, 0}}},
      {"integer of sixteen bytes beyond 64 bits",
       {{0x14, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0}}},
  };
  for (const Row& row : rows) {
    EXPECT_FALSE(read(assemble(row.objects))) << row.fault;
  }
}

TEST(BinaryPropertyList, TrailerOutOfRangeIsRefused) {
  auto good = assemble({{0x09}});
  ASSERT_TRUE(read(good));
  struct Row {
    const char* fault;
    std::size_t fromEnd;  // trailer byte, counted from the end
    std::uint8_t value;
  };
  const Row rows[] = {
      {"offset size 0", 26, 0},
      {"offset size 9", 26, 9},
      {"reference size 0", 25, 0},
      {"no objects", 17, 0},
      {"more objects than offsets", 17, 200},
      {"top object out of range", 9, 1},
      {"offset table inside the header", 1, 3},
      {"offset table past the end", 1, 250},
  };
  for (const Row& row : rows) {
    auto bad = good;
    bad[bad.size() - row.fromEnd] = row.value;
    EXPECT_FALSE(read(bad)) << row.fault;
  }
  auto badMagic = good;
  badMagic[7] = '1';
  EXPECT_FALSE(read(badMagic));
}

TEST(BinaryPropertyList, SharedReferencesCannotMultiplyWork) {
  // Each array refers twice to the next: 2^40 values if followed naively.
  std::vector<std::vector<std::uint8_t>> objects;
  for (std::uint8_t i = 0; i < 40; ++i) {
    objects.push_back({0xA2, static_cast<std::uint8_t>(i + 1), static_cast<std::uint8_t>(i + 1)});
  }
  objects.push_back({0x09});
  PropertyListLimits roomy;
  roomy.maxDepth = 64;
  EXPECT_FALSE(read(assemble(objects), roomy));

  // The same for one big data object referenced many times.
  std::vector<std::uint8_t> big{0x4F, 0x11, 0x10, 0x00};  // 4096 bytes of data
  big.resize(big.size() + 4096, 7);
  std::vector<std::uint8_t> array{0xAF, 0x10, 200};
  array.insert(array.end(), 200, 1);
  EXPECT_FALSE(read(assemble({array, big})));
}

TEST(BinaryPropertyList, NullReadsBackFromUidZeroAndPlainNull) {
  EXPECT_EQ(read(assemble({{0x80, 0}})), Value(Null{}));
  EXPECT_EQ(read(assemble({{0x00}})), Value(Null{}));
  EXPECT_EQ(read(assemble({{0x80, 5}})), Value(5));
}

}  // namespace
}  // namespace ferncast
