#include "imaging/ImageProperties.h"

#include <lcms2.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <exception>
#include <mutex>
#include <string>
#include <unordered_map>

#include "Classes/NSData+Quill.h"
#include "Classes/Unicode.h"
#include "imaging/ExifSupport.h"
#include "imaging/RasterSource.h"
#include "imaging/VipsSupport.h"

// Exiv2 0.27 declares its owning pointers as std::auto_ptr.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <exiv2/exiv2.hpp>

namespace ferncast {
namespace {

// How an Exiv2 value becomes a property value.
enum class Conversion : std::uint8_t {
  kAuto,      // numbers as numbers (rationals as reals), text as strings; arrays when several
  kArray,     // the same, always an array
  kVersion,   // "0231" -> [2, 3, 1]
  kDegrees,   // degrees, minutes, seconds -> decimal degrees
  kGPSTime,   // hours, minutes, seconds -> "HH:MM:SS.ss"
  kComment,   // an EXIF comment without its character-set prefix
  kIptcDate,  // "2020-01-02" -> "20200102"
  kIptcTime,  // "10:20:30+01:00" -> "102030+0100"
};

struct PropertyTag {
  std::string_view exiv2Key;
  const char16_t* group;
  const char16_t* key;
  Conversion conversion;
};

// The one table of metadata tags we hand out, with the platform decoder's key for each.
constexpr PropertyTag kPropertyTags[] = {
    // {TIFF}
    {"Exif.Image.Make", kImagePropertyTIFFDictionary, u"Make", Conversion::kAuto},
    {"Exif.Image.Model", kImagePropertyTIFFDictionary, u"Model", Conversion::kAuto},
    {"Exif.Image.Software", kImagePropertyTIFFDictionary, u"Software", Conversion::kAuto},
    {"Exif.Image.DateTime", kImagePropertyTIFFDictionary, u"DateTime", Conversion::kAuto},
    {"Exif.Image.Artist", kImagePropertyTIFFDictionary, u"Artist", Conversion::kAuto},
    {"Exif.Image.Copyright", kImagePropertyTIFFDictionary, u"Copyright", Conversion::kAuto},
    {"Exif.Image.ImageDescription", kImagePropertyTIFFDictionary, u"ImageDescription",
     Conversion::kAuto},
    {"Exif.Image.HostComputer", kImagePropertyTIFFDictionary, u"HostComputer", Conversion::kAuto},
    {"Exif.Image.Orientation", kImagePropertyTIFFDictionary, u"Orientation", Conversion::kAuto},
    {"Exif.Image.XResolution", kImagePropertyTIFFDictionary, u"XResolution", Conversion::kAuto},
    {"Exif.Image.YResolution", kImagePropertyTIFFDictionary, u"YResolution", Conversion::kAuto},
    {"Exif.Image.ResolutionUnit", kImagePropertyTIFFDictionary, u"ResolutionUnit",
     Conversion::kAuto},
    {"Exif.Image.Compression", kImagePropertyTIFFDictionary, u"Compression", Conversion::kAuto},
    {"Exif.Image.PhotometricInterpretation", kImagePropertyTIFFDictionary,
     u"PhotometricInterpretation", Conversion::kAuto},
    // {Exif}
    {"Exif.Photo.ExposureTime", kImagePropertyExifDictionary, u"ExposureTime", Conversion::kAuto},
    {"Exif.Photo.FNumber", kImagePropertyExifDictionary, u"FNumber", Conversion::kAuto},
    {"Exif.Photo.ExposureProgram", kImagePropertyExifDictionary, u"ExposureProgram",
     Conversion::kAuto},
    {"Exif.Photo.ISOSpeedRatings", kImagePropertyExifDictionary, u"ISOSpeedRatings",
     Conversion::kArray},
    {"Exif.Photo.SensitivityType", kImagePropertyExifDictionary, u"SensitivityType",
     Conversion::kAuto},
    {"Exif.Photo.RecommendedExposureIndex", kImagePropertyExifDictionary,
     u"RecommendedExposureIndex", Conversion::kAuto},
    {"Exif.Photo.ExifVersion", kImagePropertyExifDictionary, u"ExifVersion", Conversion::kVersion},
    {"Exif.Photo.FlashpixVersion", kImagePropertyExifDictionary, u"FlashPixVersion",
     Conversion::kVersion},
    {"Exif.Photo.DateTimeOriginal", kImagePropertyExifDictionary, u"DateTimeOriginal",
     Conversion::kAuto},
    {"Exif.Photo.DateTimeDigitized", kImagePropertyExifDictionary, u"DateTimeDigitized",
     Conversion::kAuto},
    {"Exif.Photo.OffsetTime", kImagePropertyExifDictionary, u"OffsetTime", Conversion::kAuto},
    {"Exif.Photo.OffsetTimeOriginal", kImagePropertyExifDictionary, u"OffsetTimeOriginal",
     Conversion::kAuto},
    {"Exif.Photo.OffsetTimeDigitized", kImagePropertyExifDictionary, u"OffsetTimeDigitized",
     Conversion::kAuto},
    {"Exif.Photo.SubSecTime", kImagePropertyExifDictionary, u"SubsecTime", Conversion::kAuto},
    {"Exif.Photo.SubSecTimeOriginal", kImagePropertyExifDictionary, u"SubsecTimeOriginal",
     Conversion::kAuto},
    {"Exif.Photo.SubSecTimeDigitized", kImagePropertyExifDictionary, u"SubsecTimeDigitized",
     Conversion::kAuto},
    {"Exif.Photo.ShutterSpeedValue", kImagePropertyExifDictionary, u"ShutterSpeedValue",
     Conversion::kAuto},
    {"Exif.Photo.ApertureValue", kImagePropertyExifDictionary, u"ApertureValue", Conversion::kAuto},
    {"Exif.Photo.BrightnessValue", kImagePropertyExifDictionary, u"BrightnessValue",
     Conversion::kAuto},
    {"Exif.Photo.ExposureBiasValue", kImagePropertyExifDictionary, u"ExposureBiasValue",
     Conversion::kAuto},
    {"Exif.Photo.MaxApertureValue", kImagePropertyExifDictionary, u"MaxApertureValue",
     Conversion::kAuto},
    {"Exif.Photo.SubjectDistance", kImagePropertyExifDictionary, u"SubjectDistance",
     Conversion::kAuto},
    {"Exif.Photo.MeteringMode", kImagePropertyExifDictionary, u"MeteringMode", Conversion::kAuto},
    {"Exif.Photo.LightSource", kImagePropertyExifDictionary, u"LightSource", Conversion::kAuto},
    {"Exif.Photo.Flash", kImagePropertyExifDictionary, u"Flash", Conversion::kAuto},
    {"Exif.Photo.FocalLength", kImagePropertyExifDictionary, u"FocalLength", Conversion::kAuto},
    {"Exif.Photo.SubjectArea", kImagePropertyExifDictionary, u"SubjectArea", Conversion::kArray},
    {"Exif.Photo.UserComment", kImagePropertyExifDictionary, u"UserComment", Conversion::kComment},
    {"Exif.Photo.ColorSpace", kImagePropertyExifDictionary, u"ColorSpace", Conversion::kAuto},
    {"Exif.Photo.PixelXDimension", kImagePropertyExifDictionary, u"PixelXDimension",
     Conversion::kAuto},
    {"Exif.Photo.PixelYDimension", kImagePropertyExifDictionary, u"PixelYDimension",
     Conversion::kAuto},
    {"Exif.Photo.FocalPlaneXResolution", kImagePropertyExifDictionary, u"FocalPlaneXResolution",
     Conversion::kAuto},
    {"Exif.Photo.FocalPlaneYResolution", kImagePropertyExifDictionary, u"FocalPlaneYResolution",
     Conversion::kAuto},
    {"Exif.Photo.FocalPlaneResolutionUnit", kImagePropertyExifDictionary,
     u"FocalPlaneResolutionUnit", Conversion::kAuto},
    {"Exif.Photo.SensingMethod", kImagePropertyExifDictionary, u"SensingMethod", Conversion::kAuto},
    {"Exif.Photo.CustomRendered", kImagePropertyExifDictionary, u"CustomRendered",
     Conversion::kAuto},
    {"Exif.Photo.ExposureMode", kImagePropertyExifDictionary, u"ExposureMode", Conversion::kAuto},
    {"Exif.Photo.WhiteBalance", kImagePropertyExifDictionary, u"WhiteBalance", Conversion::kAuto},
    {"Exif.Photo.DigitalZoomRatio", kImagePropertyExifDictionary, u"DigitalZoomRatio",
     Conversion::kAuto},
    {"Exif.Photo.FocalLengthIn35mmFilm", kImagePropertyExifDictionary, u"FocalLenIn35mmFilm",
     Conversion::kAuto},
    {"Exif.Photo.SceneCaptureType", kImagePropertyExifDictionary, u"SceneCaptureType",
     Conversion::kAuto},
    {"Exif.Photo.GainControl", kImagePropertyExifDictionary, u"GainControl", Conversion::kAuto},
    {"Exif.Photo.Contrast", kImagePropertyExifDictionary, u"Contrast", Conversion::kAuto},
    {"Exif.Photo.Saturation", kImagePropertyExifDictionary, u"Saturation", Conversion::kAuto},
    {"Exif.Photo.Sharpness", kImagePropertyExifDictionary, u"Sharpness", Conversion::kAuto},
    {"Exif.Photo.SubjectDistanceRange", kImagePropertyExifDictionary, u"SubjectDistRange",
     Conversion::kAuto},
    {"Exif.Photo.ImageUniqueID", kImagePropertyExifDictionary, u"ImageUniqueID", Conversion::kAuto},
    {"Exif.Photo.CameraOwnerName", kImagePropertyExifDictionary, u"CameraOwnerName",
     Conversion::kAuto},
    {"Exif.Photo.BodySerialNumber", kImagePropertyExifDictionary, u"BodySerialNumber",
     Conversion::kAuto},
    {"Exif.Photo.LensSpecification", kImagePropertyExifDictionary, u"LensSpecification",
     Conversion::kArray},
    {"Exif.Photo.LensMake", kImagePropertyExifDictionary, u"LensMake", Conversion::kAuto},
    {"Exif.Photo.LensModel", kImagePropertyExifDictionary, u"LensModel", Conversion::kAuto},
    {"Exif.Photo.LensSerialNumber", kImagePropertyExifDictionary, u"LensSerialNumber",
     Conversion::kAuto},
    // {GPS}
    {"Exif.GPSInfo.GPSVersionID", kImagePropertyGPSDictionary, u"GPSVersion", Conversion::kArray},
    {"Exif.GPSInfo.GPSLatitudeRef", kImagePropertyGPSDictionary, u"LatitudeRef", Conversion::kAuto},
    {"Exif.GPSInfo.GPSLatitude", kImagePropertyGPSDictionary, u"Latitude", Conversion::kDegrees},
    {"Exif.GPSInfo.GPSLongitudeRef", kImagePropertyGPSDictionary, u"LongitudeRef",
     Conversion::kAuto},
    {"Exif.GPSInfo.GPSLongitude", kImagePropertyGPSDictionary, u"Longitude", Conversion::kDegrees},
    {"Exif.GPSInfo.GPSAltitudeRef", kImagePropertyGPSDictionary, u"AltitudeRef", Conversion::kAuto},
    {"Exif.GPSInfo.GPSAltitude", kImagePropertyGPSDictionary, u"Altitude", Conversion::kAuto},
    {"Exif.GPSInfo.GPSTimeStamp", kImagePropertyGPSDictionary, u"TimeStamp", Conversion::kGPSTime},
    {"Exif.GPSInfo.GPSDateStamp", kImagePropertyGPSDictionary, u"DateStamp", Conversion::kAuto},
    {"Exif.GPSInfo.GPSSatellites", kImagePropertyGPSDictionary, u"Satellites", Conversion::kAuto},
    {"Exif.GPSInfo.GPSStatus", kImagePropertyGPSDictionary, u"Status", Conversion::kAuto},
    {"Exif.GPSInfo.GPSMeasureMode", kImagePropertyGPSDictionary, u"MeasureMode", Conversion::kAuto},
    {"Exif.GPSInfo.GPSDOP", kImagePropertyGPSDictionary, u"DOP", Conversion::kAuto},
    {"Exif.GPSInfo.GPSSpeedRef", kImagePropertyGPSDictionary, u"SpeedRef", Conversion::kAuto},
    {"Exif.GPSInfo.GPSSpeed", kImagePropertyGPSDictionary, u"Speed", Conversion::kAuto},
    {"Exif.GPSInfo.GPSTrackRef", kImagePropertyGPSDictionary, u"TrackRef", Conversion::kAuto},
    {"Exif.GPSInfo.GPSTrack", kImagePropertyGPSDictionary, u"Track", Conversion::kAuto},
    {"Exif.GPSInfo.GPSImgDirectionRef", kImagePropertyGPSDictionary, u"ImgDirectionRef",
     Conversion::kAuto},
    {"Exif.GPSInfo.GPSImgDirection", kImagePropertyGPSDictionary, u"ImgDirection",
     Conversion::kAuto},
    {"Exif.GPSInfo.GPSMapDatum", kImagePropertyGPSDictionary, u"MapDatum", Conversion::kAuto},
    {"Exif.GPSInfo.GPSDestBearingRef", kImagePropertyGPSDictionary, u"DestBearingRef",
     Conversion::kAuto},
    {"Exif.GPSInfo.GPSDestBearing", kImagePropertyGPSDictionary, u"DestBearing", Conversion::kAuto},
    {"Exif.GPSInfo.GPSProcessingMethod", kImagePropertyGPSDictionary, u"ProcessingMethod",
     Conversion::kComment},
    {"Exif.GPSInfo.GPSDifferential", kImagePropertyGPSDictionary, u"Differential",
     Conversion::kAuto},
    {"Exif.GPSInfo.GPSHPositioningError", kImagePropertyGPSDictionary, u"HPositioningError",
     Conversion::kAuto},
    // {IPTC}
    {"Iptc.Application2.ObjectName", kImagePropertyIPTCDictionary, u"ObjectName",
     Conversion::kAuto},
    {"Iptc.Application2.Urgency", kImagePropertyIPTCDictionary, u"Urgency", Conversion::kAuto},
    {"Iptc.Application2.Category", kImagePropertyIPTCDictionary, u"Category", Conversion::kAuto},
    {"Iptc.Application2.SuppCategory", kImagePropertyIPTCDictionary, u"SupplementalCategory",
     Conversion::kArray},
    {"Iptc.Application2.Keywords", kImagePropertyIPTCDictionary, u"Keywords", Conversion::kArray},
    {"Iptc.Application2.SpecialInstructions", kImagePropertyIPTCDictionary, u"SpecialInstructions",
     Conversion::kAuto},
    {"Iptc.Application2.DateCreated", kImagePropertyIPTCDictionary, u"DateCreated",
     Conversion::kIptcDate},
    {"Iptc.Application2.TimeCreated", kImagePropertyIPTCDictionary, u"TimeCreated",
     Conversion::kIptcTime},
    {"Iptc.Application2.Byline", kImagePropertyIPTCDictionary, u"By-line", Conversion::kArray},
    {"Iptc.Application2.BylineTitle", kImagePropertyIPTCDictionary, u"By-lineTitle",
     Conversion::kArray},
    {"Iptc.Application2.City", kImagePropertyIPTCDictionary, u"City", Conversion::kAuto},
    {"Iptc.Application2.SubLocation", kImagePropertyIPTCDictionary, u"Sub-location",
     Conversion::kAuto},
    {"Iptc.Application2.ProvinceState", kImagePropertyIPTCDictionary, u"Province/State",
     Conversion::kAuto},
    {"Iptc.Application2.CountryCode", kImagePropertyIPTCDictionary, u"Country/PrimaryLocationCode",
     Conversion::kAuto},
    {"Iptc.Application2.CountryName", kImagePropertyIPTCDictionary, u"Country/PrimaryLocationName",
     Conversion::kAuto},
    {"Iptc.Application2.TransmissionReference", kImagePropertyIPTCDictionary,
     u"OriginalTransmissionReference", Conversion::kAuto},
    {"Iptc.Application2.Headline", kImagePropertyIPTCDictionary, u"Headline", Conversion::kAuto},
    {"Iptc.Application2.Credit", kImagePropertyIPTCDictionary, u"Credit", Conversion::kAuto},
    {"Iptc.Application2.Source", kImagePropertyIPTCDictionary, u"Source", Conversion::kAuto},
    {"Iptc.Application2.Copyright", kImagePropertyIPTCDictionary, u"CopyrightNotice",
     Conversion::kAuto},
    {"Iptc.Application2.Contact", kImagePropertyIPTCDictionary, u"Contact", Conversion::kArray},
    {"Iptc.Application2.Caption", kImagePropertyIPTCDictionary, u"Caption/Abstract",
     Conversion::kAuto},
    {"Iptc.Application2.Writer", kImagePropertyIPTCDictionary, u"Writer/Editor", Conversion::kAuto},
};

const PropertyTag* tagFor(const std::string& exiv2Key) {
  static const std::unordered_map<std::string_view, const PropertyTag*> index = [] {
    std::unordered_map<std::string_view, const PropertyTag*> map;
    for (const PropertyTag& tag : kPropertyTags)
      map.emplace(tag.exiv2Key, &tag);
    return map;
  }();
  const auto found = index.find(exiv2Key);
  return found == index.end() ? nullptr : found->second;
}

void ensureExiv2() {
  static std::once_flag once;
  std::call_once(once, [] {
    Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
    Exiv2::XmpParser::initialize();
  });
}

bool isRational(Exiv2::TypeId type) {
  return type == Exiv2::unsignedRational || type == Exiv2::signedRational;
}

bool isInteger(Exiv2::TypeId type) {
  return type == Exiv2::unsignedByte || type == Exiv2::unsignedShort ||
         type == Exiv2::unsignedLong || type == Exiv2::signedByte || type == Exiv2::signedShort ||
         type == Exiv2::signedLong;
}

bool isReal(Exiv2::TypeId type) {
  return type == Exiv2::tiffFloat || type == Exiv2::tiffDouble;
}

std::optional<double> rationalAt(const Exiv2::Value& value, long n) {
  const Exiv2::Rational r = value.toRational(n);
  if (r.second == 0) return std::nullopt;
  return static_cast<double>(r.first) / r.second;
}

std::u16string textOf(std::string text) {
  while (!text.empty() && (text.back() == '\0' || text.back() == ' '))
    text.pop_back();
  return utf8ToUtf16(text);
}

// The property value of one Exiv2 value, nullopt when it does not convert.
std::optional<Value> convert(const Exiv2::Value& value, Conversion conversion) {
  const Exiv2::TypeId type = value.typeId();
  const long count = value.count();
  switch (conversion) {
    case Conversion::kVersion: {
      std::string digits;
      for (long i = 0; i < count && i < 8; ++i) {
        const long byte = value.toLong(i);
        if (byte < '0' || byte > '9') return std::nullopt;
        digits += static_cast<char>(byte);
      }
      if (digits.size() < 3) return std::nullopt;
      Array version{Value(std::stoi(digits.substr(0, 2))), Value(digits[2] - '0')};
      if (digits.size() > 3 && digits[3] != '0') version.emplace_back(digits[3] - '0');
      return Value(std::move(version));
    }
    case Conversion::kDegrees: {
      if (!isRational(type) || count < 1) return std::nullopt;
      double degrees = 0, unit = 1;
      for (long i = 0; i < count && i < 3; ++i, unit *= 60) {
        const std::optional<double> part = rationalAt(value, i);
        if (!part) return std::nullopt;
        degrees += *part / unit;
      }
      return Value(degrees);
    }
    case Conversion::kGPSTime: {
      if (!isRational(type) || count != 3) return std::nullopt;
      const auto hours = rationalAt(value, 0), minutes = rationalAt(value, 1),
                 seconds = rationalAt(value, 2);
      if (!hours || !minutes || !seconds) return std::nullopt;
      char text[48];
      std::snprintf(text, sizeof text, "%02d:%02d:%05.2f", static_cast<int>(*hours),
                    static_cast<int>(*minutes), *seconds);
      return Value(utf8ToUtf16(text));
    }
    case Conversion::kComment: {
      if (const auto* comment = dynamic_cast<const Exiv2::CommentValue*>(&value))
        return Value(textOf(comment->comment()));
      return Value(textOf(value.toString()));
    }
    case Conversion::kIptcDate:
    case Conversion::kIptcTime: {
      std::string text;
      for (char c : value.toString())
        if (c != '-' && c != ':') text += c;
      return Value(utf8ToUtf16(text));
    }
    case Conversion::kAuto:
    case Conversion::kArray:
      break;
  }
  if (!isRational(type) && !isInteger(type) && !isReal(type)) {
    Value text(textOf(value.toString()));
    if (conversion == Conversion::kArray) return Value(Array{std::move(text)});
    return text;
  }
  Array items;
  for (long i = 0; i < count; ++i) {
    if (isRational(type)) {
      const std::optional<double> number = rationalAt(value, i);
      if (!number) return std::nullopt;
      items.emplace_back(*number);
    } else if (isInteger(type)) {
      items.emplace_back(static_cast<std::int64_t>(value.toLong(i)));
    } else {
      items.emplace_back(static_cast<double>(value.toFloat(i)));
    }
  }
  if (items.empty()) return std::nullopt;
  if (conversion == Conversion::kAuto && items.size() == 1) return std::move(items.front());
  return Value(std::move(items));
}

// Adds a datum to its group; repeated IPTC datasets (keywords) gather in one array.
template <typename Datum>
void addDatum(Dictionary& groups, const Datum& datum) {
  const PropertyTag* tag = tagFor(datum.key());
  if (!tag) return;
  std::optional<Value> value = convert(datum.value(), tag->conversion);
  if (!value) return;
  Value& group = groups[tag->group];
  if (!group.is<Dictionary>()) group = Value(Dictionary{});
  Dictionary& entries = *group.as<Dictionary>();
  const auto existing = entries.find(tag->key);
  if (existing != entries.end() && tag->conversion == Conversion::kArray &&
      existing->second.is<Array>() && value->is<Array>()) {
    for (Value& item : *value->as<Array>())
      existing->second.as<Array>()->push_back(std::move(item));
  } else {
    entries.insert_or_assign(tag->key, std::move(*value));
  }
}

std::optional<std::u16string> profileName(VipsImage* header) {
  if (!vips_image_get_typeof(header, VIPS_META_ICC_NAME)) return std::nullopt;
  const void* blob = nullptr;
  std::size_t length = 0;
  if (vips_image_get_blob(header, VIPS_META_ICC_NAME, &blob, &length) != 0 || !blob) {
    vips::takeError();
    return std::nullopt;
  }
  cmsHPROFILE profile =
      cmsOpenProfileFromMemTHR(nullptr, blob, static_cast<cmsUInt32Number>(length));
  if (!profile) return std::nullopt;
  wchar_t text[256] = {};
  const cmsUInt32Number written =
      cmsGetProfileInfo(profile, cmsInfoDescription, "en", "US", text, sizeof text);
  cmsCloseProfile(profile);
  if (written == 0) return std::nullopt;
  std::u16string name;
  for (std::size_t i = 0; i < std::size(text) && text[i] != 0; ++i) {
    const auto c = static_cast<char32_t>(text[i]);
    if (c >= 0x10000 && c <= 0x10FFFF) {
      name += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
      name += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
    } else {
      name += c > 0xFFFF || (c >= 0xD800 && c <= 0xDFFF) ? u'\uFFFD' : static_cast<char16_t>(c);
    }
  }
  if (name.empty()) return std::nullopt;
  return name;
}

const char16_t* colorModel(VipsImage* header) {
  switch (vips_image_guess_interpretation(header)) {
    case VIPS_INTERPRETATION_B_W:
    case VIPS_INTERPRETATION_GREY16:
      return u"Gray";
    case VIPS_INTERPRETATION_CMYK:
      return u"CMYK";
    case VIPS_INTERPRETATION_LAB:
    case VIPS_INTERPRETATION_LABQ:
    case VIPS_INTERPRETATION_LABS:
      return u"Lab";
    default:
      return u"RGB";
  }
}

int bitsPerSample(VipsImage* header) {
  switch (vips_image_get_format(header)) {
    case VIPS_FORMAT_UCHAR:
    case VIPS_FORMAT_CHAR:
      return 8;
    case VIPS_FORMAT_USHORT:
    case VIPS_FORMAT_SHORT:
      return 16;
    case VIPS_FORMAT_DOUBLE:
    case VIPS_FORMAT_DPCOMPLEX:
      return 64;
    default:
      return 32;
  }
}

Value resolutionValue(double dpi) {
  if (dpi == std::floor(dpi) && dpi < 1e9) return Value(static_cast<std::int64_t>(dpi));
  return Value(dpi);
}

}  // namespace

ExifReading readExif(const std::uint8_t* bytes, std::size_t length, bool wantGroups,
                     bool wantThumbnail) {
  ExifReading reading;
  if (!bytes || length == 0 || length > static_cast<std::size_t>(LONG_MAX)) return reading;
  ensureExiv2();
  try {
    Exiv2::Image::AutoPtr image = Exiv2::ImageFactory::open(bytes, static_cast<long>(length));
    if (!image.get()) return reading;
    image->readMetadata();
    if (wantGroups) {
      for (const Exiv2::Exifdatum& datum : image->exifData())
        addDatum(reading.groups, datum);
      for (const Exiv2::Iptcdatum& datum : image->iptcData())
        addDatum(reading.groups, datum);
    }
    if (wantThumbnail) {
      const Exiv2::ExifThumbC thumbnail(image->exifData());
      const Exiv2::DataBuf buffer = thumbnail.copy();
      if (buffer.pData_ && buffer.size_ > 0)
        reading.thumbnail.assign(buffer.pData_, buffer.pData_ + buffer.size_);
    }
  } catch (const std::exception&) {
    // Exiv2::AnyError and allocation failures: damaged or unknown metadata.
    return ExifReading{};
  } catch (...) {
    return ExifReading{};
  }
  return reading;
}

Dictionary imageProperties(VipsImage* header, Dictionary groups) {
  Dictionary properties = std::move(groups);
  properties.emplace(kImagePropertyPixelWidth, vips_image_get_width(header));
  properties.emplace(kImagePropertyPixelHeight, vips_image_get_height(header));
  int orientation = 0;
  if (vips_image_get_typeof(header, VIPS_META_ORIENTATION) &&
      vips_image_get_int(header, VIPS_META_ORIENTATION, &orientation) == 0 && orientation >= 1 &&
      orientation <= 8)
    properties.emplace(kImagePropertyOrientation, orientation);
  vips::takeError();
  properties.emplace(kImagePropertyDPIWidth,
                     resolutionValue(dotsPerInch(vips_image_get_xres(header))));
  properties.emplace(kImagePropertyDPIHeight,
                     resolutionValue(dotsPerInch(vips_image_get_yres(header))));
  properties.emplace(kImagePropertyColorModel, colorModel(header));
  properties.emplace(kImagePropertyDepth, bitsPerSample(header));
  properties.emplace(kImagePropertyHasAlpha, static_cast<bool>(vips_image_hasalpha(header)));
  if (std::optional<std::u16string> name = profileName(header))
    properties.emplace(kImagePropertyProfileName, std::move(*name));
  return properties;
}

std::optional<Dictionary> imagePropertiesOfData(const std::uint8_t* bytes, std::size_t length) {
  const std::optional<vips::Loader> loader = vips::findLoader(bytes, length);
  if (!loader) return std::nullopt;
  vips::ImageRef header = vips::openImage(bytes, length, *loader, 0);
  if (!header) return std::nullopt;
  return imageProperties(header.get(), readExif(bytes, length, true, false).groups);
}

std::optional<Dictionary> imagePropertiesOfFile(std::u16string_view path) {
  std::optional<Data> data = dataWithContentsOfRegularFile(path);
  if (!data) return std::nullopt;
  return imagePropertiesOfData(data->data(), data->size());
}

}  // namespace ferncast

#pragma GCC diagnostic pop
