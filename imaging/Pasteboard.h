// A pasteboard in memory (NSPasteboard without the desktop clipboard) and the image rules over
// it: whether an image can probably be made from it, and making one.
//
// A Pasteboard holds one value per type: data for image types, an array of paths for the file
// names type, a string (or an array whose first item is the string) for the URL type. A
// Pasteboard is used by one thread at a time.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Classes/PropertyList.h"

namespace ferncast {

class Image;

// The platform's pasteboard type names.
inline constexpr char16_t kPasteboardTypeJPEG2000[] = u"public.jpeg-2000";
inline constexpr char16_t kPasteboardTypeJPEG[] = u"public.jpeg";
inline constexpr char16_t kPasteboardTypePNG[] = u"public.png";
inline constexpr char16_t kPasteboardTypeLegacyPNG[] = u"Apple PNG pasteboard type";
inline constexpr char16_t kPasteboardTypeTIFF[] = u"NeXT TIFF v4.0 pasteboard type";
inline constexpr char16_t kPasteboardTypePICT[] = u"Apple PICT pasteboard type";
inline constexpr char16_t kPasteboardTypePDF[] = u"Apple PDF pasteboard type";
inline constexpr char16_t kPasteboardTypePostScript[] =
    u"NeXT Encapsulated PostScript v1.2 pasteboard type";
inline constexpr char16_t kPasteboardTypeIconFamily[] = u"CorePasteboardFlavorType 0x69636E73";
inline constexpr char16_t kPasteboardTypeFilenames[] = u"NSFilenamesPboardType";
inline constexpr char16_t kPasteboardTypeURL[] = u"Apple URL pasteboard type";

class Pasteboard {
 public:
  // Puts a value under a type (replacing what was there); types keep the order of first use.
  void setValue(std::u16string_view type, Value value);
  void setData(std::u16string_view type, Data data) { setValue(type, Value(std::move(data))); }
  void clearContents();

  const std::vector<std::u16string>& types() const { return types_; }
  // The first of `preferred` that the pasteboard holds.
  std::optional<std::u16string> availableTypeFromArray(
      const std::vector<std::u16string_view>& preferred) const;
  // The value under a type; null when there is none.
  const Value* valueForType(std::u16string_view type) const;
  // The data under a type; nullopt when there is none or it is no data.
  std::optional<Data> dataForType(std::u16string_view type) const;

 private:
  std::vector<std::u16string> types_;
  std::map<std::u16string, Value, std::less<>> values_;
};

// Whether an image can probably be made from the pasteboard: the first available of the image
// types, file names and URL decides; one image file named, or a URL of an existing image file,
// says yes; image data says yes without being decoded. False for null.
bool canProbablyInitWithPasteboard(const Pasteboard* pasteboard);

// initWithPasteboardIcon: the single image file named on the pasteboard, else icon-family data
// decoded as a bitmap, else imageWithPasteboard. Null when none of them gives an image.
std::unique_ptr<Image> imageWithPasteboardIcon(const Pasteboard& pasteboard);

// The ordinary initialisation: the data of the first available image type, else the image of
// the single file named or the file URL. Null when there is none.
std::unique_ptr<Image> imageWithPasteboard(const Pasteboard& pasteboard);

}  // namespace ferncast
