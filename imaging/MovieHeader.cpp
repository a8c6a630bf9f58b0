#include "imaging/MovieHeader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace ferncast {
namespace {

// Box walks visit at most this many boxes at each level: real files have a handful.
constexpr int kMaxBoxes = 4096;

std::uint32_t bigEndian32(const std::uint8_t* p) {
  return std::uint32_t{p[0]} << 24 | std::uint32_t{p[1]} << 16 | std::uint32_t{p[2]} << 8 | p[3];
}

std::uint64_t bigEndian64(const std::uint8_t* p) {
  return std::uint64_t{bigEndian32(p)} << 32 | bigEndian32(p + 4);
}

struct Box {
  std::uint64_t payload;  // offset of the box's content
  std::uint64_t end;      // offset after the box
};

// The first box of `type` among the boxes in [begin, end).
std::optional<Box> findBox(const ReadAt& read, std::uint64_t begin, std::uint64_t end,
                           const char (&type)[5]) {
  std::uint64_t at = begin;
  for (int visited = 0; visited < kMaxBoxes && end - at >= 8; ++visited) {
    std::uint8_t header[16];
    if (!read(at, header, 8)) return std::nullopt;
    std::uint64_t size = bigEndian32(header);
    std::uint64_t headerSize = 8;
    if (size == 1) {  // a 64-bit size follows the type
      if (end - at < 16 || !read(at + 8, header + 8, 8)) return std::nullopt;
      size = bigEndian64(header + 8);
      headerSize = 16;
    } else if (size == 0) {  // the box runs to the end
      size = end - at;
    }
    if (size < headerSize || size > end - at) return std::nullopt;
    if (std::memcmp(header + 4, type, 4) == 0) return Box{at + headerSize, at + size};
    at += size;
  }
  return std::nullopt;
}

}  // namespace

std::optional<MovieHeader> readMovieHeader(std::uint64_t size, const ReadAt& read) {
  const auto movie = findBox(read, 0, size, "moov");
  if (!movie) return std::nullopt;
  const auto header = findBox(read, movie->payload, movie->end, "mvhd");
  if (!header) return std::nullopt;
  // version 0: flags, 32-bit times; version 1: 64-bit creation, modification and duration. The
  // poster time follows rate, volume, reserved bytes, the matrix and the preview times.
  std::uint8_t fields[112];
  const std::uint64_t available = header->end - header->payload;
  if (available < 4 || !read(header->payload, fields, 4)) return std::nullopt;
  const std::uint8_t version = fields[0];
  if (version > 1) return std::nullopt;
  const std::size_t needed = version == 0 ? 84 : 96;
  if (available < needed || !read(header->payload, fields, needed)) return std::nullopt;
  MovieHeader result;
  if (version == 0) {
    result.timeScale = bigEndian32(fields + 12);
    result.duration = bigEndian32(fields + 16);
    result.posterTime = bigEndian32(fields + 80);
  } else {
    result.timeScale = bigEndian32(fields + 20);
    result.duration = bigEndian64(fields + 24);
    result.posterTime = bigEndian32(fields + 92);
  }
  return result;
}

std::optional<MovieHeader> movieHeaderOfBytes(std::span<const std::uint8_t> bytes) {
  return readMovieHeader(bytes.size(),
                         [bytes](std::uint64_t offset, void* buffer, std::size_t length) {
                           if (offset > bytes.size() || length > bytes.size() - offset)
                             return false;
                           std::memcpy(buffer, bytes.data() + offset, length);
                           return true;
                         });
}

std::optional<MovieHeader> movieHeaderOfFile(const std::string& path) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return std::nullopt;
  struct stat status {};
  std::optional<MovieHeader> result;
  if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
    result = readMovieHeader(static_cast<std::uint64_t>(status.st_size),
                             [descriptor](std::uint64_t offset, void* buffer, std::size_t length) {
                               auto* out = static_cast<char*>(buffer);
                               while (length > 0) {
                                 const ssize_t got =
                                     pread(descriptor, out, length, static_cast<off_t>(offset));
                                 if (got < 0 && errno == EINTR) continue;
                                 if (got <= 0) return false;
                                 out += got;
                                 offset += static_cast<std::uint64_t>(got);
                                 length -= static_cast<std::size_t>(got);
                               }
                               return true;
                             });
  }
  ::close(descriptor);
  return result;
}

}  // namespace ferncast
