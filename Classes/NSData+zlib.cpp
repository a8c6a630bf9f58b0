#include "Classes/NSData+zlib.h"

#include <zlib.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <new>

namespace ferncast {
namespace {

constexpr std::size_t kBufferSize = 16384;
constexpr int kGzipWindowBits = 31;  // 15 + 16: gzip header and trailer
constexpr int kZlibWindowBits = 15;
constexpr int kDetectWindowBits = 47;  // 15 + 32: zlib or gzip, whichever the header says
constexpr int kMemoryLevel = 8;

// zlib counts input in uInt; longer input is handed over in slices of at most this size.
constexpr std::size_t kMaxSlice = UINT_MAX;

// Moves the next slice of [*next, end) into the stream once it has used up the previous one.
// Answers whether this slice is the last.
bool refill(z_stream& stream, const Bytef*& next, const Bytef* end) {
  if (stream.avail_in == 0 && next < end) {
    const std::size_t slice =
        std::min<std::size_t>(static_cast<std::size_t>(end - next), kMaxSlice);
    stream.next_in = const_cast<Bytef*>(next);
    stream.avail_in = static_cast<uInt>(slice);
    next += slice;
  }
  return next == end;
}

// Reserves room for the whole inflated size, projected from the ratio of the first buffer with an
// eighth to spare, which spares the copies of repeated growth. The ratio counted is at most 8 (text
// and markup stay below it), so that a highly compressible start cannot make a small input reserve
// a great deal; beyond the projection the output grows as usual. Only a hint: when the room cannot
// be had, nothing changes.
void reserveProjectedSize(Data& out, const z_stream& stream, std::size_t length) {
  constexpr double kLargestProjectedRatio = 8;
  if (stream.total_in == 0) return;
  const double ratio =
      std::min(static_cast<double>(stream.total_out) / static_cast<double>(stream.total_in),
               kLargestProjectedRatio);
  const double projected = ratio * static_cast<double>(length) * 1.125 + kBufferSize;
  if (projected >= static_cast<double>(out.max_size())) return;
  try {
    out.reserve(static_cast<std::size_t>(projected));
  } catch (const std::bad_alloc&) {
  }
}

int clampedLevel(int level) {
  if (level == Z_DEFAULT_COMPRESSION) return level;
  return std::clamp(level, 1, 9);
}

}  // namespace

std::optional<Data> dataByCompressingBytes(const void* bytes, std::size_t length,
                                           int compressionLevel, bool useGzip) {
  if (!bytes || length == 0) return std::nullopt;
  z_stream stream{};
  if (deflateInit2(&stream, clampedLevel(compressionLevel), Z_DEFLATED,
                   useGzip ? kGzipWindowBits : kZlibWindowBits, kMemoryLevel,
                   Z_DEFAULT_STRATEGY) != Z_OK) {
    return std::nullopt;
  }
  const auto* next = static_cast<const Bytef*>(bytes);
  const Bytef* const end = next + length;
  std::optional<Data> result;
  try {
    Data out;
    out.reserve(length / 4);
    Bytef buffer[kBufferSize];
    for (;;) {
      const bool last = refill(stream, next, end);
      stream.next_out = buffer;
      stream.avail_out = kBufferSize;
      const int status = deflate(&stream, last ? Z_FINISH : Z_NO_FLUSH);
      if (status != Z_OK && status != Z_STREAM_END) break;
      out.insert(out.end(), buffer, buffer + (kBufferSize - stream.avail_out));
      if (status == Z_STREAM_END) {
        result = std::move(out);
        break;
      }
    }
  } catch (const std::bad_alloc&) {
  }
  deflateEnd(&stream);
  return result;
}

std::optional<Data> dataByGzippingBytes(const void* bytes, std::size_t length) {
  return dataByCompressingBytes(bytes, length, Z_DEFAULT_COMPRESSION, true);
}

std::optional<Data> dataByGzippingBytes(const void* bytes, std::size_t length,
                                        int compressionLevel) {
  return dataByCompressingBytes(bytes, length, compressionLevel, true);
}

std::optional<Data> dataByGzippingData(const Data& data) {
  return dataByGzippingBytes(data.data(), data.size());
}

std::optional<Data> dataByGzippingData(const Data& data, int compressionLevel) {
  return dataByGzippingBytes(data.data(), data.size(), compressionLevel);
}

std::optional<Data> dataByDeflatingBytes(const void* bytes, std::size_t length) {
  return dataByCompressingBytes(bytes, length, Z_DEFAULT_COMPRESSION, false);
}

std::optional<Data> dataByDeflatingBytes(const void* bytes, std::size_t length,
                                         int compressionLevel) {
  return dataByCompressingBytes(bytes, length, compressionLevel, false);
}

std::optional<Data> dataByDeflatingData(const Data& data) {
  return dataByDeflatingBytes(data.data(), data.size());
}

std::optional<Data> dataByDeflatingData(const Data& data, int compressionLevel) {
  return dataByDeflatingBytes(data.data(), data.size(), compressionLevel);
}

bool setDataByInflatingBytes(Data& receiver, const void* bytes, std::size_t length) {
  if (!bytes || length == 0) return false;
  z_stream stream{};
  if (inflateInit2(&stream, kDetectWindowBits) != Z_OK) return false;
  receiver.clear();
  const auto* next = static_cast<const Bytef*>(bytes);
  const Bytef* const end = next + length;
  bool complete = false;
  try {
    Bytef buffer[kBufferSize];
    for (;;) {
      const bool last = refill(stream, next, end);
      stream.next_out = buffer;
      stream.avail_out = kBufferSize;
      // Z_BUF_ERROR here means no progress was possible: the input ended inside the stream.
      const int status = inflate(&stream, Z_NO_FLUSH);
      if (status != Z_OK && status != Z_STREAM_END) break;
      if (receiver.empty()) reserveProjectedSize(receiver, stream, length);
      receiver.insert(receiver.end(), buffer, buffer + (kBufferSize - stream.avail_out));
      if (status == Z_STREAM_END) {
        complete = last && stream.avail_in == 0;
        break;
      }
    }
  } catch (const std::bad_alloc&) {
  }
  inflateEnd(&stream);
  return complete;
}

bool setDataByInflating(Data& receiver, const Data& data) {
  return setDataByInflatingBytes(receiver, data.data(), data.size());
}

std::optional<Data> dataByInflatingBytes(const void* bytes, std::size_t length) {
  Data data;
  if (!setDataByInflatingBytes(data, bytes, length)) return std::nullopt;
  return data;
}

std::optional<Data> dataByInflatingData(const Data& data) {
  return dataByInflatingBytes(data.data(), data.size());
}

}  // namespace ferncast
