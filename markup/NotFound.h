// The "not found" position and the (location, length) range used across the markup code.
//
// Positions and lengths count UTF-16 code units. A range whose location is kNotFound (the largest
// signed 32-bit value) marks something that is not there; its length is then 0.
#pragma once

#include <cstddef>

namespace ferncast {

inline constexpr std::size_t kNotFound = 0x7FFFFFFF;

struct Range {
  std::size_t location = kNotFound;
  std::size_t length = 0;

  bool found() const { return location != kNotFound; }
  std::size_t end() const { return location + length; }
  bool operator==(const Range&) const = default;
};

}  // namespace ferncast
