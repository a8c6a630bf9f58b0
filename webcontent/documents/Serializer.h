// The platform's serializer stream, the body of serialized file wrappers (RTFD data): typed
// objects whose integers are 32-bit little-endian.
//
//   object     = uint32 type, body
//   type 1     data:       aligned size, bytes
//   type 2     list:       uint32 n, n x uint32 item length, n objects
//   type 3     dictionary: uint32 n, n keys (aligned size, UTF-8 bytes: no type), n x uint32 value
//                          length, n values (objects)
//   type 4     string:     aligned size, UTF-8 bytes
//   type 0     an object the writer could not serialize: no body
//
// Item and value lengths count the whole object, type included. An aligned size is a plain
// uint32, or the marker 0x80000000 followed by the size, a pad count and that many zero bytes, so
// that large data starts on a page boundary of the whole blob.
//
// Reading treats every byte as hostile: sizes and counts are checked against the bytes left before
// anything is allocated, every object must fill exactly the length its container gave it, and
// containers nest at most kMaxSerializedDepth deep, so work and memory stay linear in the input.
// Pure functions; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Classes/PropertyList.h"

namespace ferncast {

inline constexpr std::size_t kMaxSerializedDepth = 64;
// The page size the writer aligns large data to.
inline constexpr std::size_t kSerializerPageSize = 4096;

struct SerializedObject {
  enum class Type : std::uint32_t {
    kUnsupported = 0,
    kData = 1,
    kList = 2,
    kDictionary = 3,
    kString = 4
  };
  Type type = Type::kData;
  Data bytes;                            // kData, kString (UTF-8)
  std::vector<std::string> keys;         // kDictionary: UTF-8 bytes, in stream order
  std::vector<SerializedObject> values;  // kList items; kDictionary values, in the keys' order

  bool operator==(const SerializedObject&) const = default;
};

// The object at the start of `stream`; nullopt when the bytes hold none (see above). `consumed`
// (may be null) receives the number of bytes it took; bytes after it are not looked at.
std::optional<SerializedObject> deserializeObject(std::span<const std::uint8_t> stream,
                                                  std::size_t* consumed = nullptr);

// Appends the object to `out`. Alignment of large data counts from the start of `out`, which is
// where the whole blob starts.
void serializeObject(const SerializedObject& object, Data& out);

}  // namespace ferncast
