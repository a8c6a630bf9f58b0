// The properties of an image file as the platform's image decoder reports them (its property
// dictionary of image 0), so that a client written for the platform reads them unchanged.
//
// Top level: "PixelWidth", "PixelHeight" (integers, as stored, before any orientation),
// "Orientation" (1 to 8, when the file has one), "DPIWidth", "DPIHeight" (72 when the file does
// not say), "ColorModel" ("RGB", "Gray", "CMYK" or "Lab"), "Depth" (bits per sample),
// "HasAlpha", "ProfileName" (when an embedded ICC profile names itself). Groups of metadata from
// Exiv2, each present only when it has entries: "{Exif}", "{TIFF}", "{GPS}", "{IPTC}", under the
// platform's key names (imaging/ImageProperties.cpp holds the one table). Numeric tags are
// numbers (rationals as reals; GPS coordinates in decimal degrees with their "Ref" letters),
// lists are arrays, text is strings.
//
// Pure functions of the bytes; safe on any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "Classes/PropertyList.h"

namespace ferncast {

inline constexpr char16_t kImagePropertyPixelWidth[] = u"PixelWidth";
inline constexpr char16_t kImagePropertyPixelHeight[] = u"PixelHeight";
inline constexpr char16_t kImagePropertyOrientation[] = u"Orientation";
inline constexpr char16_t kImagePropertyDPIWidth[] = u"DPIWidth";
inline constexpr char16_t kImagePropertyDPIHeight[] = u"DPIHeight";
inline constexpr char16_t kImagePropertyColorModel[] = u"ColorModel";
inline constexpr char16_t kImagePropertyDepth[] = u"Depth";
inline constexpr char16_t kImagePropertyHasAlpha[] = u"HasAlpha";
inline constexpr char16_t kImagePropertyProfileName[] = u"ProfileName";
inline constexpr char16_t kImagePropertyExifDictionary[] = u"{Exif}";
inline constexpr char16_t kImagePropertyTIFFDictionary[] = u"{TIFF}";
inline constexpr char16_t kImagePropertyGPSDictionary[] = u"{GPS}";
inline constexpr char16_t kImagePropertyIPTCDictionary[] = u"{IPTC}";

// The properties of the first image in encoded bytes; nullopt when the bytes are no image that
// the trusted decoders read (imaging/Image.h). Reads headers and metadata only.
[[nodiscard]] std::optional<Dictionary> imagePropertiesOfData(const std::uint8_t* bytes,
                                                              std::size_t length);
// The same for a file; nullopt also when it cannot be read.
[[nodiscard]] std::optional<Dictionary> imagePropertiesOfFile(std::u16string_view path);

}  // namespace ferncast
