#include "Classes/BinaryPropertyList.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>

namespace ferncast {
namespace {

constexpr std::uint8_t kMagic[8] = {'b', 'p', 'l', 'i', 's', 't', '0', '0'};
constexpr std::size_t kTrailerLength = 32;

// Object markers: the type in the high nibble, a size or count in the low one.
enum : std::uint8_t {
  kSimple = 0x00,  // 0x00 null, 0x08 false, 0x09 true
  kInteger = 0x10,
  kReal = 0x20,
  kDate = 0x30,
  kData = 0x40,
  kAsciiString = 0x50,
  kUtf16String = 0x60,
  kUid = 0x80,
  kArray = 0xA0,
  kDictionary = 0xD0,
};

// Seconds from 1970-01-01 to 2001-01-01, the epoch of property-list dates.
constexpr double kPropertyListEpoch = 978307200.0;

std::size_t bytesFor(std::uint64_t v) {
  return v <= 0xFF ? 1 : v <= 0xFFFF ? 2 : v <= 0xFFFFFFFF ? 4 : 8;
}

std::uint8_t log2Of(std::size_t n) {
  return n == 1 ? 0 : n == 2 ? 1 : n == 4 ? 2 : 3;
}

bool isAscii(const std::u16string& s) {
  for (char16_t c : s) {
    if (c >= 0x80) return false;
  }
  return true;
}

// ---- Writer ----

// What a value will take, counted before anything is written.
struct Census {
  std::size_t objects = 0;
  std::size_t references = 0;
  std::size_t payload = 0;
};

bool count(const Value& value, std::size_t depth, std::size_t maxDepth, std::size_t spliceThreshold,
           Census& census) {
  ++census.objects;
  if (const auto* array = value.as<Array>()) {
    if (depth > maxDepth) return false;
    census.references += array->size();
    for (const Value& item : *array) {
      if (!count(item, depth + 1, maxDepth, spliceThreshold, census)) return false;
    }
  } else if (const auto* dict = value.as<Dictionary>()) {
    if (depth > maxDepth) return false;
    census.objects += dict->size();
    census.references += 2 * dict->size();
    for (const auto& [key, item] : *dict) {
      census.payload += 2 * key.size();
      if (!count(item, depth + 1, maxDepth, spliceThreshold, census)) return false;
    }
  } else if (const auto* string = value.as<std::u16string>()) {
    census.payload += 2 * string->size();
  } else if (const auto* data = value.as<Data>()) {
    if (data->size() < spliceThreshold) census.payload += data->size();
  }
  return true;
}

// Writes objects children first, so that a container knows the indexes it refers to; the top
// object is therefore the last one.
class Writer {
 public:
  Writer(std::vector<std::uint8_t>& out, std::size_t base, std::size_t referenceSize,
         std::size_t objects, std::vector<Splice>* splices, std::size_t spliceThreshold)
      : out_(out),
        base_(base),
        referenceSize_(referenceSize),
        splices_(splices),
        spliceThreshold_(spliceThreshold) {
    offsets_.reserve(objects);
  }

  std::uint64_t write(const Value& value) {
    struct Visitor {
      Writer& w;
      std::uint64_t operator()(const Null&) {
        std::uint64_t index = w.begin();
        w.put({kUid, 0});
        return index;
      }
      std::uint64_t operator()(bool b) {
        std::uint64_t index = w.begin();
        w.put({static_cast<std::uint8_t>(b ? 0x09 : 0x08)});
        return index;
      }
      std::uint64_t operator()(std::int64_t i) {
        std::uint64_t index = w.begin();
        w.integer(i);
        return index;
      }
      std::uint64_t operator()(float f) {
        std::uint64_t index = w.begin();
        std::uint32_t bits;
        std::memcpy(&bits, &f, 4);
        w.put({kReal | 2});
        w.bigEndian(bits, 4);
        return index;
      }
      std::uint64_t operator()(double d) { return w.real(kReal | 3, d); }
      std::uint64_t operator()(const Date& d) {
        return w.real(kDate | 3, d.secondsSince1970 - kPropertyListEpoch);
      }
      std::uint64_t operator()(const std::u16string& s) { return w.string(s); }
      std::uint64_t operator()(const Data& d) {
        std::uint64_t index = w.begin();
        w.marker(kData, d.size());
        if (w.splices_ && d.size() >= w.spliceThreshold_) {
          w.splices_->push_back(Splice{w.out_.size(), d.data(), d.size()});
          w.spliced_ += d.size();
        } else {
          w.out_.insert(w.out_.end(), d.begin(), d.end());
        }
        return index;
      }
      std::uint64_t operator()(const Array& a) {
        std::vector<std::uint64_t> refs;
        refs.reserve(a.size());
        for (const Value& item : a)
          refs.push_back(w.write(item));
        std::uint64_t index = w.begin();
        w.marker(kArray, a.size());
        w.references(refs);
        return index;
      }
      std::uint64_t operator()(const Dictionary& d) {
        std::vector<std::uint64_t> refs;
        refs.reserve(2 * d.size());
        for (const auto& entry : d)
          refs.push_back(w.string(entry.first));
        for (const auto& entry : d)
          refs.push_back(w.write(entry.second));
        std::uint64_t index = w.begin();
        w.marker(kDictionary, d.size());
        w.references(refs);
        return index;
      }
    };
    return std::visit(Visitor{*this}, value.storage());
  }

  // The offset table and the trailer, for `top` as the top object.
  void finish(std::uint64_t top) {
    std::uint64_t tableOffset = position();
    std::size_t offsetSize = bytesFor(tableOffset);
    for (std::uint64_t offset : offsets_)
      bigEndian(offset, offsetSize);
    out_.insert(out_.end(), 6, 0);
    put({static_cast<std::uint8_t>(offsetSize), static_cast<std::uint8_t>(referenceSize_)});
    bigEndian(offsets_.size(), 8);
    bigEndian(top, 8);
    bigEndian(tableOffset, 8);
  }

 private:
  // Where the next byte lies in the whole list, spliced payloads included.
  std::uint64_t position() const { return out_.size() - base_ + spliced_; }
  std::uint64_t begin() {
    offsets_.push_back(position());
    return offsets_.size() - 1;
  }
  void put(std::initializer_list<std::uint8_t> bytes) { out_.insert(out_.end(), bytes); }
  void bigEndian(std::uint64_t v, std::size_t n) {
    std::uint8_t bytes[8];
    for (std::size_t i = n; i-- > 0; v >>= 8)
      bytes[i] = static_cast<std::uint8_t>(v);
    out_.insert(out_.end(), bytes, bytes + n);
  }
  // Unsigned in one, two or four bytes; negative or large values in eight (signed).
  void integer(std::int64_t i) {
    std::size_t n = i < 0 ? 8 : bytesFor(static_cast<std::uint64_t>(i));
    put({static_cast<std::uint8_t>(kInteger | log2Of(n))});
    bigEndian(static_cast<std::uint64_t>(i), n);
  }
  void marker(std::uint8_t type, std::size_t count) {
    if (count < 15) {
      put({static_cast<std::uint8_t>(type | count)});
    } else {
      put({static_cast<std::uint8_t>(type | 0x0F)});
      integer(static_cast<std::int64_t>(count));
    }
  }
  std::uint64_t real(std::uint8_t marker, double d) {
    std::uint64_t index = begin();
    std::uint64_t bits;
    std::memcpy(&bits, &d, 8);
    put({marker});
    bigEndian(bits, 8);
    return index;
  }
  std::uint64_t string(const std::u16string& s) {
    std::uint64_t index = begin();
    if (isAscii(s)) {
      marker(kAsciiString, s.size());
      for (char16_t c : s)
        out_.push_back(static_cast<std::uint8_t>(c));
    } else {
      marker(kUtf16String, s.size());
      for (char16_t c : s)
        put({static_cast<std::uint8_t>(c >> 8), static_cast<std::uint8_t>(c)});
    }
    return index;
  }
  void references(const std::vector<std::uint64_t>& refs) {
    for (std::uint64_t ref : refs)
      bigEndian(ref, referenceSize_);
  }

  std::vector<std::uint8_t>& out_;
  std::size_t base_;
  std::size_t referenceSize_;
  std::vector<Splice>* splices_;
  std::size_t spliceThreshold_;
  std::size_t spliced_ = 0;
  std::vector<std::uint64_t> offsets_;
};

// ---- Reader ----

class Reader {
 public:
  Reader(const std::uint8_t* bytes, std::size_t length, const PropertyListLimits& limits)
      : bytes_(bytes),
        length_(length),
        maxDepth_(limits.maxDepth),
        valuesLeft_(std::min(limits.maxValues, length)),
        payloadLeft_(length > std::numeric_limits<std::size_t>::max() / 2 ? length : 2 * length) {}

  std::optional<Value> read() {
    if (!bytes_ || length_ < sizeof kMagic + 2 + kTrailerLength) return std::nullopt;
    if (std::memcmp(bytes_, kMagic, sizeof kMagic) != 0) return std::nullopt;
    const std::uint8_t* trailer = bytes_ + length_ - kTrailerLength;
    offsetSize_ = trailer[6];
    referenceSize_ = trailer[7];
    objectCount_ = bigEndian(trailer + 8, 8);
    std::uint64_t top = bigEndian(trailer + 16, 8);
    tableOffset_ = bigEndian(trailer + 24, 8);
    if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8) {
      return std::nullopt;
    }
    std::size_t tableEnd = length_ - kTrailerLength;
    if (tableOffset_ <= sizeof kMagic || tableOffset_ > tableEnd) return std::nullopt;
    if (objectCount_ == 0 || objectCount_ > (tableEnd - tableOffset_) / offsetSize_) {
      return std::nullopt;
    }
    if (top >= objectCount_) return std::nullopt;
    return object(top, 1);
  }

 private:
  static std::uint64_t bigEndian(const std::uint8_t* p, std::size_t n) {
    std::uint64_t v = 0;
    for (std::size_t i = 0; i < n; ++i)
      v = v << 8 | p[i];
    return v;
  }

  // Objects lie in [8, tableOffset_); every read of an object stays inside that range.
  bool has(std::size_t position, std::uint64_t n) const {
    return position <= tableOffset_ && n <= tableOffset_ - position;
  }

  std::optional<std::size_t> offsetOf(std::uint64_t ref) const {
    if (ref >= objectCount_) return std::nullopt;
    std::uint64_t offset = bigEndian(bytes_ + tableOffset_ + ref * offsetSize_, offsetSize_);
    if (offset < sizeof kMagic || offset >= tableOffset_) return std::nullopt;
    return static_cast<std::size_t>(offset);
  }

  // The count of the object whose marker's low nibble is `nibble`: the nibble itself, or for
  // 0x0F the integer object that follows the marker.
  bool readCount(std::size_t& position, std::uint8_t nibble, std::uint64_t& count) const {
    if (nibble != 0x0F) {
      count = nibble;
      return true;
    }
    if (!has(position, 1)) return false;
    std::uint8_t marker = bytes_[position++];
    if ((marker & 0xF0) != kInteger || (marker & 0x0F) > 3) return false;
    std::size_t n = std::size_t{1} << (marker & 0x0F);
    if (!has(position, n)) return false;
    count = bigEndian(bytes_ + position, n);
    position += n;
    return true;
  }

  bool spend(std::uint64_t payload) {
    if (payload > payloadLeft_) return false;
    payloadLeft_ -= payload;
    return true;
  }

  std::optional<Value> object(std::uint64_t ref, std::size_t depth) {
    if (valuesLeft_ == 0) return std::nullopt;
    --valuesLeft_;
    auto start = offsetOf(ref);
    if (!start) return std::nullopt;
    std::size_t position = *start;
    std::uint8_t marker = bytes_[position++];
    std::uint8_t nibble = marker & 0x0F;
    switch (marker & 0xF0) {
      case kSimple:
        if (nibble == 0x00) return Value(Null{});
        if (nibble == 0x08 || nibble == 0x09) return Value(nibble == 0x09);
        return std::nullopt;
      case kInteger: {
        if (nibble > 4) return std::nullopt;
        std::size_t n = std::size_t{1} << nibble;
        if (!has(position, n)) return std::nullopt;
        if (n == 16) {
          // Sixteen bytes: accepted when the value fits the signed 64 bits of a Value.
          if (bigEndian(bytes_ + position, 8) != 0) return std::nullopt;
          position += 8;
          n = 8;
          if (bytes_[position] & 0x80) return std::nullopt;
        }
        // One, two and four bytes are unsigned; eight bytes are signed.
        return Value(static_cast<std::int64_t>(bigEndian(bytes_ + position, n)));
      }
      case kReal:
        if (nibble == 2 && has(position, 4)) {
          auto bits = static_cast<std::uint32_t>(bigEndian(bytes_ + position, 4));
          float f;
          std::memcpy(&f, &bits, 4);
          return Value(f);
        }
        if (nibble == 3 && has(position, 8)) return Value(realAt(position));
        return std::nullopt;
      case kDate:
        if (nibble != 3 || !has(position, 8)) return std::nullopt;
        return Value(Date{realAt(position) + kPropertyListEpoch});
      case kData: {
        std::uint64_t n;
        if (!readCount(position, nibble, n) || !has(position, n) || !spend(n)) return std::nullopt;
        return Value(Data(bytes_ + position, bytes_ + position + n));
      }
      case kAsciiString:
      case kUtf16String: {
        auto text = string(marker, position);
        if (!text) return std::nullopt;
        return Value(std::move(*text));
      }
      case kUid: {
        std::size_t n = std::size_t{nibble} + 1;
        if (n > 8 || !has(position, n)) return std::nullopt;
        std::uint64_t uid = bigEndian(bytes_ + position, n);
        if (uid == 0) return Value(Null{});
        if (uid > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
          return std::nullopt;
        }
        return Value(static_cast<std::int64_t>(uid));
      }
      case kArray:
      case kDictionary: {
        if (depth > maxDepth_) return std::nullopt;
        std::uint64_t n;
        if (!readCount(position, nibble, n)) return std::nullopt;
        bool isArray = (marker & 0xF0) == kArray;
        std::uint64_t refs = isArray ? n : 2 * n;
        // Each entry is at least one value, and its references must be present.
        if (n > valuesLeft_ || refs > tableOffset_ / referenceSize_ ||
            !has(position, refs * referenceSize_)) {
          return std::nullopt;
        }
        const std::uint8_t* table = bytes_ + position;
        auto refAt = [&](std::uint64_t i) {
          return bigEndian(table + i * referenceSize_, referenceSize_);
        };
        if (isArray) {
          Array array;
          array.reserve(n);
          for (std::uint64_t i = 0; i < n; ++i) {
            auto item = object(refAt(i), depth + 1);
            if (!item) return std::nullopt;
            array.push_back(std::move(*item));
          }
          return Value(std::move(array));
        }
        Dictionary dict;
        for (std::uint64_t i = 0; i < n; ++i) {
          auto key = keyAt(refAt(i));
          if (!key) return std::nullopt;
          auto item = object(refAt(n + i), depth + 1);
          if (!item) return std::nullopt;
          dict.insert_or_assign(std::move(*key), std::move(*item));
        }
        return Value(std::move(dict));
      }
      default:
        return std::nullopt;
    }
  }

  double realAt(std::size_t position) const {
    std::uint64_t bits = bigEndian(bytes_ + position, 8);
    double d;
    std::memcpy(&d, &bits, 8);
    return d;
  }

  std::optional<std::u16string> keyAt(std::uint64_t ref) {
    if (valuesLeft_ == 0) return std::nullopt;
    --valuesLeft_;
    auto start = offsetOf(ref);
    if (!start) return std::nullopt;
    std::size_t position = *start;
    std::uint8_t marker = bytes_[position++];
    std::uint8_t type = marker & 0xF0;
    if (type != kAsciiString && type != kUtf16String) return std::nullopt;
    return string(marker, position);
  }

  // The string whose marker has been read; `position` is just past the marker.
  std::optional<std::u16string> string(std::uint8_t marker, std::size_t position) {
    std::uint64_t n;
    if (!readCount(position, marker & 0x0F, n)) return std::nullopt;
    bool ascii = (marker & 0xF0) == kAsciiString;
    if (n > tableOffset_ || !has(position, ascii ? n : 2 * n) || !spend(2 * n)) {
      return std::nullopt;
    }
    std::u16string text(n, u'\0');
    const std::uint8_t* p = bytes_ + position;
    for (std::size_t i = 0; i < n; ++i) {
      if (ascii) {
        if (p[i] >= 0x80) return std::nullopt;
        text[i] = p[i];
      } else {
        text[i] = static_cast<char16_t>(p[2 * i] << 8 | p[2 * i + 1]);
      }
    }
    return text;
  }

  const std::uint8_t* bytes_;
  std::size_t length_;
  std::size_t maxDepth_;
  std::size_t valuesLeft_;
  std::size_t payloadLeft_;
  std::size_t offsetSize_ = 0;
  std::size_t referenceSize_ = 0;
  std::uint64_t objectCount_ = 0;
  std::uint64_t tableOffset_ = 0;
};

}  // namespace

bool appendBinaryPropertyList(std::vector<std::uint8_t>& out, const Value& value,
                              std::size_t maxDepth, std::vector<Splice>* splices,
                              std::size_t spliceThreshold) {
  if (!splices) spliceThreshold = std::numeric_limits<std::size_t>::max();
  Census census;
  if (!count(value, 1, maxDepth, spliceThreshold, census)) return false;
  std::size_t referenceSize = bytesFor(census.objects - 1);
  // Per object at most a marker, a nine-byte count or value and an eight-byte offset.
  out.reserve(out.size() + sizeof kMagic + census.payload + census.objects * 18 +
              census.references * referenceSize + kTrailerLength);
  std::size_t base = out.size();
  out.insert(out.end(), kMagic, kMagic + sizeof kMagic);
  Writer writer(out, base, referenceSize, census.objects, splices, spliceThreshold);
  writer.finish(writer.write(value));
  return true;
}

std::optional<Value> readBinaryPropertyList(const std::uint8_t* bytes, std::size_t length,
                                            const PropertyListLimits& limits) {
  return Reader(bytes, length, limits).read();
}

}  // namespace ferncast
