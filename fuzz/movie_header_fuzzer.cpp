// The mvhd reader on any bytes, which must agree with itself when read through a file-like
// reader that hands out the bytes in pieces.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "imaging/MovieHeader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ferncast;
  const auto header = movieHeaderOfBytes({data, size});
  const auto again =
      readMovieHeader(size, [&](std::uint64_t offset, void* buffer, std::size_t length) {
        if (offset > size || length > size - offset) return false;
        std::memcpy(buffer, data + offset, length);
        return true;
      });
  if (header.has_value() != again.has_value()) std::abort();
  if (header && (header->posterTime != again->posterTime || header->timeScale != again->timeScale ||
                 header->duration != again->duration)) {
    std::abort();
  }
  return 0;
}
