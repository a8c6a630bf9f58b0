// Inflation of arbitrary bytes, and compression round trips of the same bytes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "Classes/NSData+zlib.h"

namespace {
// 64 KiB of input inflates to at most about 64 MiB.
constexpr std::size_t kMaxInput = 1 << 16;
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ferncast;
  if (size > kMaxInput) return 0;

  Data receiver;
  const bool complete = setDataByInflatingBytes(receiver, data, size);
  const auto inflated = dataByInflatingBytes(data, size);
  if (complete != inflated.has_value()) abort();
  if (inflated && *inflated != receiver) abort();

  if (size == 0) return 0;
  const int level = static_cast<int>(data[0] % 13) - 1;  // -1 ... 11
  const bool gzip = data[size - 1] & 1;
  const auto compressed = dataByCompressingBytes(data, size, level, gzip);
  if (!compressed) abort();
  const auto restored = dataByInflatingData(*compressed);
  if (!restored || restored->size() != size ||
      !std::equal(restored->begin(), restored->end(), data))
    abort();
  return 0;
}
