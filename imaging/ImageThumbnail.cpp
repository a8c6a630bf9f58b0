// Thumbnails of image files: from the embedded EXIF thumbnail when there is one and the caller
// allows it, else from the main image shrunk while loading.
#include "Classes/NSData+Quill.h"
#include "imaging/ExifSupport.h"
#include "imaging/Image.h"
#include "imaging/RasterSource.h"
#include "imaging/VipsSupport.h"

namespace ferncast {
namespace {

int orientationOf(VipsImage* header) {
  int orientation = 1;
  if (!vips_image_get_typeof(header, VIPS_META_ORIENTATION) ||
      vips_image_get_int(header, VIPS_META_ORIENTATION, &orientation) != 0)
    orientation = 1;
  vips::takeError();
  return orientation;
}

// The embedded thumbnail fitted into the box, never enlarged; upright when `rotate`.
vips::ImageRef fromEmbedded(const Data& thumbnail, int maxSize, bool rotate, int orientation) {
  const std::optional<vips::Loader> loader = vips::findLoader(thumbnail.data(), thumbnail.size());
  if (!loader) return {};
  vips::ImageRef fitted = vips::thumbnail(thumbnail.data(), thumbnail.size(), *loader, 0, maxSize,
                                          maxSize, VIPS_SIZE_DOWN, false);
  if (!fitted || !rotate) return fitted;
  return vips::orient(fitted.get(), orientation);
}

}  // namespace

std::unique_ptr<Image> Image::thumbnailForFile(std::u16string_view path, int maxSize,
                                               bool alwaysFromImage, bool withTransform,
                                               std::optional<Dictionary>* properties) {
  if (properties) properties->reset();
  if (path.empty() || maxSize < 1) return nullptr;
  const std::optional<Data> data = dataWithContentsOfRegularFile(path);
  if (!data) return nullptr;
  return thumbnailForData(*data, maxSize, alwaysFromImage, withTransform, properties);
}

std::unique_ptr<Image> Image::thumbnailForData(const Data& bytes, int maxSize, bool alwaysFromImage,
                                               bool withTransform,
                                               std::optional<Dictionary>* properties) {
  if (properties) properties->reset();
  if (maxSize < 1) return nullptr;
  const Data* data = &bytes;
  const std::optional<vips::Loader> loader = vips::findLoader(data->data(), data->size());
  if (!loader) return nullptr;
  vips::ImageRef header = vips::openImage(data->data(), data->size(), *loader, 0);
  if (!header) return nullptr;

  const bool wantGroups = properties != nullptr;
  ExifReading exif = wantGroups || !alwaysFromImage
                         ? readExif(data->data(), data->size(), wantGroups, !alwaysFromImage)
                         : ExifReading{};
  vips::ImageRef thumbnail;
  if (!exif.thumbnail.empty())
    thumbnail = fromEmbedded(exif.thumbnail, maxSize, withTransform, orientationOf(header.get()));
  if (!thumbnail)
    thumbnail = vips::thumbnail(data->data(), data->size(), *loader, 0, maxSize, maxSize,
                                VIPS_SIZE_DOWN, withTransform, header.get());
  if (!thumbnail) return nullptr;
  std::shared_ptr<RasterSource> source = RasterSource::fromImage(thumbnail.get());
  if (!source) return nullptr;
  if (properties) *properties = imageProperties(header.get(), std::move(exif.groups));
  return imageWithBitmap(std::make_shared<BitmapImageRep>(std::move(source)));
}

}  // namespace ferncast
