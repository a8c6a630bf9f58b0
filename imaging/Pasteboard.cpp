#include "imaging/Pasteboard.h"

#include <sys/stat.h>

#include <algorithm>

#include "Classes/Unicode.h"
#include "imaging/Image.h"
#include "imaging/ImageClassification.h"
#include "url/URL.h"

namespace ferncast {
namespace {

// Image data types, most preferred first.
const std::vector<std::u16string_view>& imageDataTypes() {
  static const std::vector<std::u16string_view> types{
      kPasteboardTypeJPEG2000, kPasteboardTypeJPEG, kPasteboardTypePNG, kPasteboardTypeLegacyPNG,
      kPasteboardTypeTIFF,     kPasteboardTypePICT, kPasteboardTypePDF, kPasteboardTypePostScript};
  return types;
}

// The one path of the file names type; nullopt for no paths or several.
std::optional<std::u16string> singleFileName(const Pasteboard& pasteboard) {
  const Value* value = pasteboard.valueForType(kPasteboardTypeFilenames);
  const Array* paths = value ? value->as<Array>() : nullptr;
  if (!paths || paths->size() != 1 || !paths->front().is<std::u16string>()) return std::nullopt;
  return *paths->front().as<std::u16string>();
}

// The local path of the file URL on the pasteboard, when the file exists.
std::optional<std::u16string> fileURLPath(const Pasteboard& pasteboard) {
  const Value* value = pasteboard.valueForType(kPasteboardTypeURL);
  if (!value) return std::nullopt;
  const std::u16string* text = value->as<std::u16string>();
  if (const Array* list = value->as<Array>(); list && !list->empty())
    text = list->front().as<std::u16string>();
  if (!text) return std::nullopt;
  const std::optional<URL> url = URL::URLWithString(*text);
  if (!url || !url->isFileURL()) return std::nullopt;
  const std::optional<std::string> path = url->filePath();
  struct stat status;
  if (!path || stat(path->c_str(), &status) != 0) return std::nullopt;
  return utf8ToUtf16(*path);
}

}  // namespace

void Pasteboard::setValue(std::u16string_view type, Value value) {
  const auto [entry, added] = values_.insert_or_assign(std::u16string(type), std::move(value));
  if (added) types_.push_back(entry->first);
}

void Pasteboard::clearContents() {
  types_.clear();
  values_.clear();
}

std::optional<std::u16string> Pasteboard::availableTypeFromArray(
    const std::vector<std::u16string_view>& preferred) const {
  for (std::u16string_view type : preferred)
    if (values_.find(type) != values_.end()) return std::u16string(type);
  return std::nullopt;
}

const Value* Pasteboard::valueForType(std::u16string_view type) const {
  const auto found = values_.find(type);
  return found == values_.end() ? nullptr : &found->second;
}

std::optional<Data> Pasteboard::dataForType(std::u16string_view type) const {
  const Value* value = valueForType(type);
  if (!value || !value->is<Data>()) return std::nullopt;
  return *value->as<Data>();
}

bool canProbablyInitWithPasteboard(const Pasteboard* pasteboard) {
  if (!pasteboard) return false;
  std::vector<std::u16string_view> preferred = imageDataTypes();
  preferred.insert(preferred.end(),
                   {kPasteboardTypeIconFamily, kPasteboardTypeFilenames, kPasteboardTypeURL});
  const std::optional<std::u16string> type = pasteboard->availableTypeFromArray(preferred);
  if (!type) return false;
  if (*type == kPasteboardTypeFilenames) {
    const std::optional<std::u16string> path = singleFileName(*pasteboard);
    return path && isImageFile(*path);
  }
  if (*type == kPasteboardTypeURL) {
    const std::optional<std::u16string> path = fileURLPath(*pasteboard);
    return path && isImageFile(*path);
  }
  return true;
}

std::unique_ptr<Image> imageWithPasteboardIcon(const Pasteboard& pasteboard) {
  if (const std::optional<std::u16string> path = singleFileName(pasteboard);
      path && isImageFile(*path)) {
    if (auto image = Image::imageWithContentsOfFile(*path)) return image;
  }
  if (std::optional<Data> icon = pasteboard.dataForType(kPasteboardTypeIconFamily);
      icon && !icon->empty()) {
    auto reps = BitmapImageRep::imageRepsWithData(std::make_shared<Data>(std::move(*icon)));
    if (!reps.empty()) {
      auto image = std::make_unique<Image>(reps.front()->size());
      image->addRepresentation(reps.front());
      return image;
    }
  }
  return imageWithPasteboard(pasteboard);
}

std::unique_ptr<Image> imageWithPasteboard(const Pasteboard& pasteboard) {
  if (const std::optional<std::u16string> type =
          pasteboard.availableTypeFromArray(imageDataTypes())) {
    if (std::optional<Data> data = pasteboard.dataForType(*type))
      return Image::imageWithData(std::move(*data));
    return nullptr;
  }
  if (const std::optional<std::u16string> path = singleFileName(pasteboard))
    return Image::imageWithContentsOfFile(*path);
  if (const std::optional<std::u16string> path = fileURLPath(pasteboard))
    return Image::imageWithContentsOfFile(*path);
  return nullptr;
}

}  // namespace ferncast
