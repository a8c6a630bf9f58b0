// The movie header box ("mvhd") of QuickTime and MPEG-4 files, read by ourselves: FFmpeg reads
// it too but drops the poster time.
//
// The reader walks the top-level boxes to "moov" and the boxes inside it to "mvhd"; it reads only
// box headers and the header itself, so a large "mdat" before "moov" costs one seek. Any bytes
// are safe: sizes are checked against what is there and the walk is bounded.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

namespace ferncast {

struct MovieHeader {
  std::uint32_t timeScale = 0;   // units a second
  std::uint64_t duration = 0;    // in time-scale units
  std::uint32_t posterTime = 0;  // in time-scale units

  // The poster time in seconds; nullopt when the time scale is 0.
  std::optional<double> posterSeconds() const {
    if (timeScale == 0) return std::nullopt;
    return static_cast<double>(posterTime) / timeScale;
  }
};

// Reads `length` bytes at `offset` into `buffer`; false when they are not all there.
using ReadAt = std::function<bool(std::uint64_t offset, void* buffer, std::size_t length)>;

// The movie header of a file of `size` bytes read through `read`; nullopt when there is no
// "moov" box holding an "mvhd" box of version 0 or 1 with all its fields.
[[nodiscard]] std::optional<MovieHeader> readMovieHeader(std::uint64_t size, const ReadAt& read);
[[nodiscard]] std::optional<MovieHeader> movieHeaderOfBytes(std::span<const std::uint8_t> bytes);
[[nodiscard]] std::optional<MovieHeader> movieHeaderOfFile(const std::string& path);

}  // namespace ferncast
