// Deflate and gzip compression and inflation of bytes, over the system zlib.
//
// Every function works on the caller's bytes only while it runs and returns new data (or fills
// the caller's Data); nothing is kept between calls, so any thread may call them. Failure is
// nullopt or false, never an exception: zlib errors and running out of memory are not reported
// further.
//
// Both directions stream through a 16384-byte buffer on the stack and append to the growing
// output; compressed output starts with a capacity of a quarter of the input, inflated output with
// a projection from the first buffer's ratio.
#pragma once

#include <cstddef>
#include <optional>

#include "Classes/PropertyList.h"

namespace ferncast {

// Compresses `length` bytes in one go. Level -1 is zlib's default; any other level is clamped to
// 1...9 (0 and other negatives become 1, anything above 9 becomes 9). With `useGzip` the output
// has gzip framing (window bits 31), else zlib framing (window bits 15). Null bytes, zero length
// or a zlib error give nullopt.
std::optional<Data> dataByCompressingBytes(const void* bytes, std::size_t length,
                                           int compressionLevel, bool useGzip);

// gzip framing; the level defaults to -1.
std::optional<Data> dataByGzippingBytes(const void* bytes, std::size_t length);
std::optional<Data> dataByGzippingBytes(const void* bytes, std::size_t length,
                                        int compressionLevel);
std::optional<Data> dataByGzippingData(const Data& data);
std::optional<Data> dataByGzippingData(const Data& data, int compressionLevel);

// zlib framing; the level defaults to -1.
std::optional<Data> dataByDeflatingBytes(const void* bytes, std::size_t length);
std::optional<Data> dataByDeflatingBytes(const void* bytes, std::size_t length,
                                         int compressionLevel);
std::optional<Data> dataByDeflatingData(const Data& data);
std::optional<Data> dataByDeflatingData(const Data& data, int compressionLevel);

// Replaces `receiver` with the inflation of one zlib or gzip stream (the framing is detected).
// True only when the stream ends and all input was consumed. Null bytes, zero length or a failed
// stream set-up give false with the receiver unchanged; otherwise the receiver is emptied first
// and keeps whatever was inflated before a failure: after a corrupt or truncated stream, and also
// after a complete stream followed by trailing bytes (which also gives false).
bool setDataByInflatingBytes(Data& receiver, const void* bytes, std::size_t length);
bool setDataByInflating(Data& receiver, const Data& data);

// The inflated bytes as new data, or nullopt wherever setDataByInflatingBytes answers false.
std::optional<Data> dataByInflatingBytes(const void* bytes, std::size_t length);
std::optional<Data> dataByInflatingData(const Data& data);

}  // namespace ferncast
