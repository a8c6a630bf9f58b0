// Exiv2 behind thumbnails and properties. Private to imaging/.
#pragma once

#include <vips/vips.h>

#include <cstdint>
#include <optional>

#include "Classes/PropertyList.h"

namespace ferncast {

struct ExifReading {
  // "{Exif}", "{TIFF}", "{GPS}", "{IPTC}" (only the groups with entries), when asked for.
  Dictionary groups;
  // The embedded EXIF thumbnail (encoded, stored unrotated), when asked for; empty when none.
  Data thumbnail;
};

// The metadata of encoded image bytes. Bytes Exiv2 does not read, or damaged metadata, give an
// empty reading; nothing throws.
ExifReading readExif(const std::uint8_t* bytes, std::size_t length, bool wantGroups,
                     bool wantThumbnail);

// The property dictionary of an image from its libvips header and its metadata groups.
Dictionary imageProperties(VipsImage* header, Dictionary groups);

}  // namespace ferncast
