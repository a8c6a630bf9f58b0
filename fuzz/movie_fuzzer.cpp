// Movie bytes through QTMovie (FFmpeg over an in-memory reader): duration, natural size,
// attributes and the representative frame.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "imaging/QTMovie+Quill.h"
#include "imaging/QTMovie.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ferncast;
  if (size > 65536) return 0;
  auto movie = QTMovie::movieWithData({data, size});
  if (!movie) return 0;
  const double duration = movie->duration();
  if (!std::isfinite(duration) || duration < 0) std::abort();
  const MovieSize natural = movie->naturalSize();
  if (natural.width < 0 || natural.height < 0) std::abort();
  (void)movie->movieAttributes();
  if (auto frame = thumbnailImage(*movie)) {
    if (frame->rgb.size() != static_cast<std::size_t>(frame->width) * frame->height * 3) {
      std::abort();
    }
  }
  return 0;
}
