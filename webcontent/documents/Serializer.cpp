#include "webcontent/documents/Serializer.h"

#include <cstring>

namespace ferncast {
namespace {

constexpr std::uint32_t kAlignedMarker = 0x80000000;

class Reader {
 public:
  explicit Reader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  std::size_t position() const { return position_; }
  std::size_t left() const { return bytes_.size() - position_; }

  bool word(std::uint32_t& value) {
    if (left() < 4) return false;
    const std::uint8_t* p = bytes_.data() + position_;
    value = static_cast<std::uint32_t>(p[0]) | static_cast<std::uint32_t>(p[1]) << 8 |
            static_cast<std::uint32_t>(p[2]) << 16 | static_cast<std::uint32_t>(p[3]) << 24;
    position_ += 4;
    return true;
  }

  // An aligned size and the bytes it announces.
  bool alignedBytes(const std::uint8_t*& data, std::uint32_t& size) {
    if (!word(size)) return false;
    if (size == kAlignedMarker) {
      std::uint32_t pad;
      if (!word(size) || !word(pad) || left() < pad) return false;
      position_ += pad;
    }
    if (left() < size) return false;
    data = bytes_.data() + position_;
    position_ += size;
    return true;
  }

  bool object(SerializedObject& out, std::size_t depth) {
    std::uint32_t type;
    if (!word(type)) return false;
    switch (type) {
      case 0:
        out.type = SerializedObject::Type::kUnsupported;
        return true;
      case 1:
      case 4: {
        out.type = static_cast<SerializedObject::Type>(type);
        const std::uint8_t* data;
        std::uint32_t size;
        if (!alignedBytes(data, size)) return false;
        out.bytes.assign(data, data + size);
        return true;
      }
      case 2:
      case 3:
        if (depth >= kMaxSerializedDepth) return false;
        out.type = static_cast<SerializedObject::Type>(type);
        return type == 2 ? list(out, depth) : dictionary(out, depth);
      default:
        return false;
    }
  }

 private:
  // n lengths, then n objects each exactly as long as its length says.
  bool values(SerializedObject& out, std::uint32_t n, std::size_t depth) {
    std::vector<std::uint32_t> lengths(n);
    for (std::uint32_t& length : lengths) {
      if (!word(length)) return false;
    }
    out.values.resize(n);
    for (std::uint32_t i = 0; i < n; ++i) {
      const std::size_t start = position_;
      if (!object(out.values[i], depth + 1) || position_ - start != lengths[i]) return false;
    }
    return true;
  }

  bool list(SerializedObject& out, std::size_t depth) {
    std::uint32_t n;
    // Each item takes at least its length word and its type word.
    if (!word(n) || n > left() / 8) return false;
    return values(out, n, depth);
  }

  bool dictionary(SerializedObject& out, std::size_t depth) {
    std::uint32_t n;
    // Each entry takes at least a key size, a value length and a value type.
    if (!word(n) || n > left() / 12) return false;
    out.keys.reserve(n);
    for (std::uint32_t i = 0; i < n; ++i) {
      const std::uint8_t* data;
      std::uint32_t size;
      if (!alignedBytes(data, size)) return false;
      out.keys.emplace_back(reinterpret_cast<const char*>(data), size);
    }
    return values(out, n, depth);
  }

  std::span<const std::uint8_t> bytes_;
  std::size_t position_ = 0;
};

void putWord(Data& out, std::uint32_t value) {
  const std::uint8_t bytes[4] = {
      static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8),
      static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 24)};
  out.insert(out.end(), bytes, bytes + 4);
}

void patchWord(Data& out, std::size_t at, std::uint32_t value) {
  for (int i = 0; i < 4; ++i)
    out[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

void putAlignedBytes(Data& out, const std::uint8_t* data, std::size_t size) {
  const std::size_t offset = out.size();
  if (size >= kSerializerPageSize && (offset + 4) % kSerializerPageSize != 0) {
    const std::size_t pad = kSerializerPageSize - (offset + 12) % kSerializerPageSize;
    putWord(out, kAlignedMarker);
    putWord(out, static_cast<std::uint32_t>(size));
    putWord(out, static_cast<std::uint32_t>(pad));
    out.insert(out.end(), pad, 0);
  } else {
    putWord(out, static_cast<std::uint32_t>(size));
  }
  out.insert(out.end(), data, data + size);
}

// The values of a list or dictionary: their lengths are known only once written, so they are
// patched in afterwards.
void putValues(Data& out, const std::vector<SerializedObject>& values) {
  const std::size_t lengths = out.size();
  for (std::size_t i = 0; i < values.size(); ++i)
    putWord(out, 0);
  for (std::size_t i = 0; i < values.size(); ++i) {
    const std::size_t start = out.size();
    serializeObject(values[i], out);
    patchWord(out, lengths + 4 * i, static_cast<std::uint32_t>(out.size() - start));
  }
}

}  // namespace

std::optional<SerializedObject> deserializeObject(std::span<const std::uint8_t> stream,
                                                  std::size_t* consumed) {
  Reader reader(stream);
  SerializedObject object;
  if (!reader.object(object, 0)) return std::nullopt;
  if (consumed) *consumed = reader.position();
  return object;
}

void serializeObject(const SerializedObject& object, Data& out) {
  putWord(out, static_cast<std::uint32_t>(object.type));
  switch (object.type) {
    case SerializedObject::Type::kUnsupported:
      return;
    case SerializedObject::Type::kData:
    case SerializedObject::Type::kString:
      putAlignedBytes(out, object.bytes.data(), object.bytes.size());
      return;
    case SerializedObject::Type::kList:
      putWord(out, static_cast<std::uint32_t>(object.values.size()));
      putValues(out, object.values);
      return;
    case SerializedObject::Type::kDictionary:
      putWord(out, static_cast<std::uint32_t>(object.keys.size()));
      for (const std::string& key : object.keys) {
        putAlignedBytes(out, reinterpret_cast<const std::uint8_t*>(key.data()), key.size());
      }
      putValues(out, object.values);
      return;
  }
}

}  // namespace ferncast
