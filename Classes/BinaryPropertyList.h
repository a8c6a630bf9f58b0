// Our own binary property-list ("bplist00") codec, for the transport's messages and for files.
//
// The writer lays a value out in one pass into the caller's buffer (data is copied once). The
// reader takes bytes from another process and treats them as hostile: it never reads outside the
// bytes it is given, recurses at most `maxDepth` levels, and allocates only after checking each
// count against the bytes present and against its budgets, so shared or cyclic object references
// cannot multiply work or memory. Both are plain functions on caller-owned buffers; any thread may
// call them.
//
// Null is written as the UID 0, since the format has no null of its own, and reads back as Null,
// as with binaryPropertyList (Classes/PropertyList.h), whose bytes this reader also reads. Reals
// keep their precision: a four-byte real reads back as float, an eight-byte one as double.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "Classes/PropertyList.h"

namespace ferncast {

struct PropertyListLimits {
  // Containers may nest this deep; the top-level container is at depth 1.
  std::size_t maxDepth = 32;
  // Values produced in all, counting an object once for each reference that reaches it. The
  // reader also never produces more values than the input has bytes, nor more string and data
  // bytes (strings counted as UTF-16) than twice the input's length.
  std::size_t maxValues = std::size_t{1} << 20;
};

// A stretch of bytes that belongs at `position` of a written property list but was left out of
// it: the payload of a large data value, to be sent from where it lies.
struct Splice {
  std::size_t position;
  const std::uint8_t* bytes;
  std::size_t length;
};

// Appends the binary property list of `value` to `out`. False, with `out` as it was, when
// containers nest deeper than `maxDepth`. With `splices`, the payloads of data values of at least
// `spliceThreshold` bytes are not copied: each is appended to `splices` (positions ascending,
// pointing into `value`, which must outlive them) and the list is complete only with them.
bool appendBinaryPropertyList(std::vector<std::uint8_t>& out, const Value& value,
                              std::size_t maxDepth, std::vector<Splice>* splices = nullptr,
                              std::size_t spliceThreshold = 64 * 1024);

// The value of binary property-list bytes; nullopt when they are malformed (bad header or
// trailer, offsets or references out of range, unknown object types, non-string dictionary keys,
// non-ASCII bytes in an ASCII string) or exceed `limits`.
std::optional<Value> readBinaryPropertyList(const std::uint8_t* bytes, std::size_t length,
                                            const PropertyListLimits& limits = {});

}  // namespace ferncast
