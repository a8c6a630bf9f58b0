// Image bytes through everything that decodes them: the Image made by content, its drawing and
// TIFF, the thumbnail (embedded or shrunk, turned upright) with its properties, and the
// properties reader. PostScript is left to eps_fuzzer (its conversion runs a child process).
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "imaging/Image.h"
#include "imaging/ImageProperties.h"

using namespace ferncast;

// One worker thread: a fuzz input is small, and thread start-up would dominate each run.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  setenv("VIPS_CONCURRENCY", "1", 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  if (size > 256 * 1024) return 0;
  const Data data(bytes, bytes + size);

  std::optional<Dictionary> properties;
  if (auto thumbnail = Image::thumbnailForData(data, 64, size % 2 == 0, true, &properties)) {
    const Size size = thumbnail->pixelSize();
    if (size.width < 1 || size.height < 1 || size.width > 64 || size.height > 64) __builtin_trap();
    if (!properties || !thumbnail->TIFFRepresentation()) __builtin_trap();
  }
  (void)imagePropertiesOfData(bytes, size);

  if (auto image = Image::imageWithData(data); image && !image->EPSImageRep()) {
    const Size fitted = image->thumbSize({48, 48});
    if (image->isReallyValid() && fitted.width >= 1 && fitted.height >= 1) {
      (void)image->TIFFRepresentationWithSize(fitted, true, ImageInterpolation::kHigh, false);
      (void)image->bestRepresentation();
    }
  }
  return 0;
}
