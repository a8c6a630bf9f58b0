#include "Classes/PropertyList.h"

#include <plist/plist.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <memory>

#include "Classes/Unicode.h"

namespace ferncast {
namespace {

// Seconds from 1970-01-01 to 2001-01-01, the epoch of property-list dates.
constexpr double kPropertyListEpoch = 978307200.0;

struct PlistDeleter {
  void operator()(plist_t node) const { plist_free(node); }
};
using PlistPtr = std::unique_ptr<std::remove_pointer_t<plist_t>, PlistDeleter>;

plist_t toPlist(const Value& value) {
  struct Visitor {
    plist_t operator()(const Null&) const { return plist_new_uid(0); }
    plist_t operator()(bool b) const { return plist_new_bool(b ? 1 : 0); }
    plist_t operator()(std::int64_t i) const {
      return plist_new_uint(static_cast<std::uint64_t>(i));
    }
    plist_t operator()(float f) const { return plist_new_real(f); }
    plist_t operator()(double d) const { return plist_new_real(d); }
    plist_t operator()(const std::u16string& s) const {
      return plist_new_string(utf16ToUtf8(s).c_str());
    }
    plist_t operator()(const Data& d) const {
      return plist_new_data(reinterpret_cast<const char*>(d.data()), d.size());
    }
    plist_t operator()(const Date& d) const {
      double relative = d.secondsSince1970 - kPropertyListEpoch;
      double whole = std::floor(relative);
      if (whole < INT32_MIN) whole = INT32_MIN;
      if (whole > INT32_MAX) whole = INT32_MAX;
      auto micro = static_cast<std::int32_t>(std::lround((relative - whole) * 1e6));
      return plist_new_date(static_cast<std::int32_t>(whole), micro);
    }
    plist_t operator()(const Array& a) const {
      plist_t array = plist_new_array();
      for (const Value& item : a)
        plist_array_append_item(array, toPlist(item));
      return array;
    }
    plist_t operator()(const Dictionary& d) const {
      plist_t dict = plist_new_dict();
      for (const auto& [key, item] : d) {
        plist_dict_set_item(dict, utf16ToUtf8(key).c_str(), toPlist(item));
      }
      return dict;
    }
  };
  return std::visit(Visitor{}, value.storage());
}

std::optional<Value> fromPlist(plist_t node, std::size_t depthLeft) {
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      std::uint8_t b = 0;
      plist_get_bool_val(node, &b);
      return Value(b != 0);
    }
    case PLIST_UINT: {
      std::uint64_t u = 0;
      plist_get_uint_val(node, &u);
      return Value(static_cast<std::int64_t>(u));
    }
    case PLIST_REAL: {
      double d = 0;
      plist_get_real_val(node, &d);
      return Value(d);
    }
    case PLIST_STRING:
    case PLIST_KEY: {
      std::uint64_t length = 0;
      const char* text = plist_get_string_ptr(node, &length);
      return Value(utf8ToUtf16(std::string_view(text ? text : "", text ? length : 0)));
    }
    case PLIST_DATA: {
      std::uint64_t length = 0;
      const char* bytes = plist_get_data_ptr(node, &length);
      const auto* begin = reinterpret_cast<const std::uint8_t*>(bytes);
      return Value(bytes ? Data(begin, begin + length) : Data());
    }
    case PLIST_DATE: {
      std::int32_t sec = 0, usec = 0;
      plist_get_date_val(node, &sec, &usec);
      return Value(Date{kPropertyListEpoch + sec + usec / 1e6});
    }
    case PLIST_UID: {
      std::uint64_t uid = 0;
      plist_get_uid_val(node, &uid);
      if (uid == 0) return Value(Null{});
      return Value(static_cast<std::int64_t>(uid));
    }
    case PLIST_ARRAY: {
      if (depthLeft == 0) return std::nullopt;
      Array array;
      std::uint32_t count = plist_array_get_size(node);
      array.reserve(count);
      for (std::uint32_t i = 0; i < count; ++i) {
        auto item = fromPlist(plist_array_get_item(node, i), depthLeft - 1);
        if (!item) return std::nullopt;
        array.push_back(std::move(*item));
      }
      return Value(std::move(array));
    }
    case PLIST_DICT: {
      if (depthLeft == 0) return std::nullopt;
      // XML has no UID element: a UID is written as {CF$UID: n}, and Null as UID 0.
      if (plist_dict_get_size(node) == 1) {
        plist_t uid = plist_dict_get_item(node, "CF$UID");
        if (uid && plist_get_node_type(uid) == PLIST_UINT) {
          std::uint64_t n = 0;
          plist_get_uint_val(uid, &n);
          return n == 0 ? Value(Null{}) : Value(static_cast<std::int64_t>(n));
        }
      }
      Dictionary dict;
      plist_dict_iter iter = nullptr;
      plist_dict_new_iter(node, &iter);
      for (;;) {
        char* key = nullptr;
        plist_t item = nullptr;
        plist_dict_next_item(node, iter, &key, &item);
        if (!item) {
          free(key);
          break;
        }
        auto converted = fromPlist(item, depthLeft - 1);
        std::u16string name = utf8ToUtf16(key ? key : "");
        free(key);
        if (!converted) {
          free(iter);
          return std::nullopt;
        }
        dict.insert_or_assign(std::move(name), std::move(*converted));
      }
      free(iter);
      return Value(std::move(dict));
    }
    default:
      return std::nullopt;
  }
}

// libplist 2.2 aborts (an assertion left on in release builds) when it reads a dictionary key
// holding a NUL, which only a binary property list can carry. Such lists are refused before they
// reach it: this walks the object table of "bplist00" bytes and looks at every key of every
// dictionary. Anything malformed is left for libplist to refuse.
bool binaryPropertyListHasKeyWithNul(const std::uint8_t* bytes, std::size_t length) {
  constexpr std::size_t kTrailer = 32;
  if (length < 8 + kTrailer || std::memcmp(bytes, "bplist00", 8) != 0) return false;
  const std::size_t end = length - kTrailer;  // objects and offsets lie before the trailer
  auto bigEndian = [](const std::uint8_t* p, unsigned size) {
    std::uint64_t value = 0;
    for (unsigned i = 0; i < size; ++i)
      value = value << 8 | p[i];
    return value;
  };
  const std::uint8_t* trailer = bytes + end;
  const unsigned offsetSize = trailer[6], referenceSize = trailer[7];
  const std::uint64_t count = bigEndian(trailer + 8, 8), offsetTable = bigEndian(trailer + 24, 8);
  if (offsetSize == 0 || offsetSize > 8 || referenceSize == 0 || referenceSize > 8 ||
      offsetTable >= end || count > (end - offsetTable) / offsetSize) {
    return false;
  }
  auto objectOffset = [&](std::uint64_t index, std::uint64_t& offset) {
    if (index >= count) return false;
    offset = bigEndian(bytes + offsetTable + index * offsetSize, offsetSize);
    return offset < end;
  };
  // The element count of the object at `position`, which is moved past the object's header.
  auto elementCount = [&](std::uint64_t& position, std::uint64_t& elements) {
    elements = bytes[position++] & 0x0F;
    if (elements != 0x0F) return true;
    if (position >= end || (bytes[position] & 0xF0) != 0x10) return false;
    const unsigned size = 1u << (bytes[position] & 0x0F);
    if (size > 8 || position + 1 + size > end) return false;
    elements = bigEndian(bytes + position + 1, size);
    position += 1 + size;
    return true;
  };
  for (std::uint64_t i = 0; i < count; ++i) {
    std::uint64_t position = 0, entries = 0;
    if (!objectOffset(i, position) || (bytes[position] & 0xF0) != 0xD0 ||
        !elementCount(position, entries) || entries > (end - position) / referenceSize) {
      continue;
    }
    for (std::uint64_t k = 0; k < entries; ++k) {
      std::uint64_t key = 0, characters = 0;
      if (!objectOffset(bigEndian(bytes + position + k * referenceSize, referenceSize), key)) {
        continue;
      }
      const unsigned type = bytes[key] & 0xF0;
      const unsigned unit = type == 0x50 ? 1 : type == 0x60 ? 2 : 0;  // ASCII or UTF-16 string
      if (unit == 0 || !elementCount(key, characters) || characters > (end - key) / unit) {
        continue;
      }
      for (std::uint64_t c = 0; c < characters; ++c) {
        const std::uint8_t* p = bytes + key + c * unit;
        if (p[0] == 0 && (unit == 1 || p[1] == 0)) return true;
      }
    }
  }
  return false;
}

}  // namespace

std::size_t Value::kindIndex() const {
  // float and double share the Real kind; later alternatives shift down by one.
  std::size_t index = storage_.index();
  return index >= 4 ? index - 1 : index;
}

std::optional<double> Value::number() const {
  if (auto f = as<float>()) return *f;
  if (auto d = as<double>()) return *d;
  if (auto i = as<std::int64_t>()) return static_cast<double>(*i);
  return std::nullopt;
}

bool Value::operator==(const Value& other) const {
  return storage_ == other.storage_;
}

const Value* valueForKey(const Value& value, std::u16string_view key) {
  const Dictionary* dict = value.as<Dictionary>();
  if (!dict) return nullptr;
  auto found = dict->find(std::u16string(key));
  return found == dict->end() ? nullptr : &found->second;
}

Dictionary dictionaryWithObjectsAndKeys(
    std::initializer_list<std::pair<std::u16string_view, std::optional<Value>>> pairs) {
  Dictionary dict;
  for (const auto& [key, value] : pairs) {
    if (!value) break;
    dict.insert_or_assign(std::u16string(key), *value);
  }
  return dict;
}

std::vector<std::uint8_t> binaryPropertyList(const Value& value) {
  PlistPtr root(toPlist(value));
  char* bytes = nullptr;
  std::uint32_t length = 0;
  plist_to_bin(root.get(), &bytes, &length);
  std::vector<std::uint8_t> result(bytes, bytes + (bytes ? length : 0));
  plist_to_bin_free(bytes);
  return result;
}

std::string xmlPropertyList(const Value& value) {
  PlistPtr root(toPlist(value));
  char* text = nullptr;
  std::uint32_t length = 0;
  plist_to_xml(root.get(), &text, &length);
  std::string result(text ? text : "", text ? length : 0);
  plist_to_xml_free(text);
  return result;
}

std::optional<Value> propertyListFromBytes(const std::uint8_t* bytes, std::size_t length,
                                           std::size_t maxDepth) {
  if (!bytes || length == 0 || length > UINT32_MAX) return std::nullopt;
  if (binaryPropertyListHasKeyWithNul(bytes, length)) return std::nullopt;
  plist_t parsed = nullptr;
  plist_from_memory(reinterpret_cast<const char*>(bytes), static_cast<std::uint32_t>(length),
                    &parsed);
  if (!parsed) return std::nullopt;
  PlistPtr root(parsed);
  return fromPlist(root.get(), maxDepth);
}

}  // namespace ferncast
