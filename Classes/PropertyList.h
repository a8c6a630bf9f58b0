// Property-list values: the stand-in for NSNull, NSNumber, NSString, NSData, NSDate, NSArray and
// NSDictionary, with binary and XML property-list bytes through libplist.
//
// A `Value` is a plain value type: copies are deep, nothing is shared, any thread may use its own
// values. "nil" is not a Value; an absent result is `std::optional<Value>` without a value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace ferncast {

// NSNull: a present value that stands for "nothing" inside collections.
struct Null {
  bool operator==(const Null&) const = default;
};

// NSDate: an instant, in seconds since 1970-01-01 00:00:00 UTC.
struct Date {
  double secondsSince1970 = 0;
  bool operator==(const Date&) const = default;
};

using Data = std::vector<std::uint8_t>;

class Value;
using Array = std::vector<Value>;
// Keys are strings; iteration order is by UTF-16 code unit, which keeps output deterministic.
using Dictionary = std::map<std::u16string, Value>;

class Value {
 public:
  enum class Kind { kNull, kBoolean, kInteger, kReal, kString, kData, kDate, kArray, kDictionary };

  // Real numbers keep their precision: `float` values (single precision, such as a movie's
  // "Duration") stay single, `double` values stay double.
  using Storage = std::variant<Null, bool, std::int64_t, float, double, std::u16string, Data, Date,
                               Array, Dictionary>;

  Value() = default;  // Null
  Value(Null) {}
  Value(bool b) : storage_(b) {}
  template <typename I, std::enable_if_t<std::is_integral_v<I> && !std::is_same_v<I, bool> &&
                                             !std::is_same_v<I, char16_t>,
                                         int> = 0>
  Value(I i) : storage_(static_cast<std::int64_t>(i)) {}
  Value(float f) : storage_(f) {}
  Value(double d) : storage_(d) {}
  Value(std::u16string s) : storage_(std::move(s)) {}
  Value(std::u16string_view s) : storage_(std::u16string(s)) {}
  Value(const char16_t* s) : storage_(std::u16string(s)) {}
  Value(Data d) : storage_(std::move(d)) {}
  Value(Date d) : storage_(d) {}
  Value(Array a) : storage_(std::move(a)) {}
  Value(Dictionary d) : storage_(std::move(d)) {}

  Kind kind() const { return static_cast<Kind>(kindIndex()); }
  const Storage& storage() const { return storage_; }

  // The held value when it is of type T, else null. T is one of the Storage alternatives.
  template <typename T>
  const T* as() const {
    return std::get_if<T>(&storage_);
  }
  template <typename T>
  T* as() {
    return std::get_if<T>(&storage_);
  }
  template <typename T>
  bool is() const {
    return std::holds_alternative<T>(storage_);
  }

  // A Real of either precision as double, or an Integer converted; nullopt for other kinds.
  std::optional<double> number() const;

  bool operator==(const Value& other) const;

 private:
  std::size_t kindIndex() const;
  Storage storage_;
};

// The entry for `key` of a dictionary value, or null when absent or when `value` is no dictionary.
const Value* valueForKey(const Value& value, std::u16string_view key);

// A dictionary from (key, value) pairs taken in order up to, not including, the first pair whose
// value is absent: later pairs are dropped even when present, as with a nil-terminated list.
Dictionary dictionaryWithObjectsAndKeys(
    std::initializer_list<std::pair<std::u16string_view, std::optional<Value>>> pairs);

// Binary property-list bytes ("bplist00") of a value. Null travels as the UID 0, since the
// property-list format has no null of its own; a float is written with four bytes.
std::vector<std::uint8_t> binaryPropertyList(const Value& value);

// XML property-list text of a value (UTF-8). Null is written as the UID 0 (a CF$UID dictionary);
// dates keep whole seconds only, as the XML format has no fractions.
std::string xmlPropertyList(const Value& value);

// The value of binary or XML property-list bytes; nullopt when they are not a property list or
// when containers nest deeper than `maxDepth` (the top level is depth 1). Reals read back as
// double (the bytes do not say which precision the writer had); UID 0 reads back as Null and
// other UIDs as integers.
std::optional<Value> propertyListFromBytes(const std::uint8_t* bytes, std::size_t length,
                                           std::size_t maxDepth = 256);

}  // namespace ferncast
