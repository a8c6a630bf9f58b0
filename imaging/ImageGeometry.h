// Sizes, points and rectangles of images: pairs of single-precision numbers in points (1/72
// inch), with the origin at the lower left as in PDF. Plain values, safe on any thread.
#pragma once

#include <string>

namespace ferncast {

struct Size {
  float width = 0;
  float height = 0;
  bool operator==(const Size&) const = default;
};

struct Point {
  float x = 0;
  float y = 0;
  bool operator==(const Point&) const = default;
};

struct Rect {
  Point origin;
  Size size;
  bool operator==(const Rect&) const = default;
};

// "{256, 128}": each number as printf's "%.17g" of its double value (NSStringFromSize).
std::u16string stringFromSize(Size size);
// "{{0, 0}, {256, 128}}" (NSStringFromRect).
std::u16string stringFromRect(Rect rect);

}  // namespace ferncast
