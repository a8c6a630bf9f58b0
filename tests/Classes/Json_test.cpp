#include "Classes/Json.h"

#include <gtest/gtest.h>

namespace ferncast {
namespace {

TEST(Json, RendersEveryKind) {
  struct Row {
    Value value;
    const char* json;
  } rows[] = {
      {Value(Null{}), "null"},
      {Value(true), "true"},
      {Value(false), "false"},
      {Value(-42), "-42"},
      {Value(std::int64_t{9007199254740993}), "9007199254740993"},
      {Value(0.1), "0.1"},
      {Value(0.1f), "0.1"},  // shortest form of the float, not of its double widening
      {Value(1e20), "1e+20"},
      {Value(std::numeric_limits<double>::quiet_NaN()), "null"},
      {Value(u"a\"b\\c\n\t\u0001é"), "\"a\\\"b\\\\c\\n\\t\\u0001é\""},
      {Value(std::u16string(1, u'\xD800')), "\"\xEF\xBF\xBD\""},
      {Value(Data{}), "{\"data\":\"\"}"},
      {Value(Data{'M', 'a', 'n'}), "{\"data\":\"TWFu\"}"},
      {Value(Data{'M', 'a'}), "{\"data\":\"TWE=\"}"},
      {Value(Data{'M'}), "{\"data\":\"TQ==\"}"},
      {Value(Date{0}), "{\"date\":\"1970-01-01T00:00:00Z\"}"},
      {Value(Date{1700000000.5}), "{\"date\":\"2023-11-14T22:13:20.500Z\"}"},
      {Value(Date{-1}), "{\"date\":\"1969-12-31T23:59:59Z\"}"},
      {Value(Array{Value(1), Value(Array{}), Value(u"x")}), "[1,[],\"x\"]"},
      {Value(Dictionary{{u"b", Value(2)}, {u"a", Value(Dictionary{})}}), "{\"a\":{},\"b\":2}"},
  };
  for (const Row& row : rows)
    EXPECT_EQ(toJson(row.value), row.json);
}

}  // namespace
}  // namespace ferncast
