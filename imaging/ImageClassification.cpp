#include "imaging/ImageClassification.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <set>
#include <string_view>

#include "Classes/ContentTypes.h"
#include "Classes/NSString+Paths.h"
#include "Classes/Unicode.h"
#include "imaging/VipsSupport.h"
#include "markup/chartables/NSString+Quill.h"

namespace ferncast {
namespace {

struct ClassicType {
  std::u16string_view type;
  std::u16string_view extension;
};

// Classic file types and their extensions; looked up first match first. The second '.SGI' row
// can never match; it stays so that the table reads as it always has.
constexpr ClassicType kClassicTypes[] = {
    {u"'PDF '", u"pdf"},  {u"'TIFF'", u"tiff"}, {u"'BMPf'", u"bmp"},  {u"'BMP '", u"bmp"},
    {u"'GIFf'", u"gif"},  {u"'JPEG'", u"jpeg"}, {u"'PICT'", u"pict"}, {u"'PNGf'", u"png"},
    {u"'qtif'", u"qtif"}, {u"'TPIC'", u"tga"},  {u"'.SGI'", u"sgi"},  {u"'8BPS'", u"psd"},
    {u"'PNTG'", u"pntg"}, {u"'jp2 '", u"jp2"},  {u"'.SGI'", u"sgi"},  {u"'FPix'", u"fpix"},
};

struct MimeSubtype {
  std::u16string_view name;
  std::u16string_view extension;
};

constexpr MimeSubtype kMimeSubtypes[] = {
    {u"postscript", u"ps"},       {u"photoshop", u"psd"},        {u"portable-anymap", u"pnm"},
    {u"portable-bitmap", u"pbm"}, {u"portable-graymap", u"pgm"}, {u"portable-pixmap", u"ppm"},
    {u"xbitmap", u"xbm"},         {u"xpixmap", u"xpm"},          {u"xwindowdump", u"xwd"},
    {u"svg-xml", u"svg"},         {u"cis-cod", u"cod"},          {u"vasa", u"mcf"},
    {u"cmu-raster", u"ras"},      {u"freehand", u"fh"},
};

struct DataSignature {
  std::string_view bytes;
  std::u16string_view extension;
};

constexpr DataSignature kDataSignatures[] = {
    {"%PDF", u"pdf"},  {"ftypjp2", u"jp2"}, {"\x89PNG", u"png"},
    {"GIF87", u"gif"}, {"GIF89", u"gif"},   {"JFIF", u"jpeg"},
    {"JPEG", u"jpeg"}, {"TIFF", u"tiff"},   {"Photoshop", u"psd"},
};

// Decoders whose file suffixes are image extensions here (the loaders we trust).
constexpr std::string_view kTrustedLoaderNames[] = {
    "jpegload", "pngload", "gifload", "webpload", "tiffload", "jp2kload",
    "heifload", "jxlload", "svgload", "ppmload",  "radload",
};
// Formats that ImageMagick decodes for us (see imaging/VipsSupport.cpp).
constexpr std::u16string_view kMagickExtensions[] = {u"bmp", u"dib",  u"ico", u"cur", u"psd",
                                                     u"sgi", u"pict", u"pct", u"pic"};
constexpr std::u16string_view kPartTypes[] = {u"jpe", u"JPE", u"ps", u"PS",
                                              u"eps", u"EPS", u"ai", u"AI"};

bool equalsNoCase(std::u16string_view a, std::u16string_view b) {
  return isEqualToStringNoCase(a, b);
}

bool isOneOf(OptionalString extension, std::initializer_list<std::u16string_view> names) {
  if (!extension) return false;
  return std::any_of(names.begin(), names.end(),
                     [&](std::u16string_view name) { return equalsNoCase(*extension, name); });
}

OptionalString extensionOf(OptionalString path) {
  if (!path) return std::nullopt;
  return pathExtension(*path);
}

std::optional<std::u16string> classicTypeOf(OptionalString path) {
  if (!path) return std::nullopt;
  return classicFileTypeOfPath(*path);
}

OptionalString view(const std::optional<std::u16string>& string) {
  if (!string) return std::nullopt;
  return std::u16string_view(*string);
}

void* collectSuffixes(VipsForeignClass* loader, void* collected, void*) {
  const std::string_view nickname = VIPS_OBJECT_CLASS(loader)->nickname;
  const bool trusted = std::find(std::begin(kTrustedLoaderNames), std::end(kTrustedLoaderNames),
                                 nickname) != std::end(kTrustedLoaderNames);
  if (!trusted || !loader->suffs) return nullptr;
  auto& extensions = *static_cast<std::vector<std::u16string>*>(collected);
  for (const char* const* suffix = loader->suffs; *suffix; ++suffix) {
    std::string_view text = *suffix;
    if (!text.empty() && text.front() == '.') text.remove_prefix(1);
    // ".svg.gz" would make every gzip file an image.
    if (text.empty() || text.find('.') != std::string_view::npos) continue;
    std::u16string extension = utf8ToUtf16(text);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](char16_t c) { return c >= u'A' && c <= u'Z' ? c + (u'a' - u'A') : c; });
    if (std::find(extensions.begin(), extensions.end(), extension) == extensions.end())
      extensions.push_back(std::move(extension));
  }
  return nullptr;
}

std::vector<std::u16string> readableExtensions() {
  vips::ensureVips();
  std::vector<std::u16string> extensions;
  vips_foreign_map("VipsForeignLoad", reinterpret_cast<VipsSListMap2Fn>(collectSuffixes),
                   &extensions, nullptr);
  vips::takeError();
  for (std::u16string_view extension : kMagickExtensions)
    if (std::find(extensions.begin(), extensions.end(), extension) == extensions.end())
      extensions.emplace_back(extension);
  extensions.emplace_back(u"pdf");  // read through MuPDF
  return extensions;
}

// The content types of the readable extensions that are images.
const std::vector<std::u16string>& readableImageContentTypes() {
  static const std::vector<std::u16string> types = [] {
    std::vector<std::u16string> found;
    for (const std::u16string& extension : readableExtensions()) {
      std::u16string type = contentTypeForExtension(extension);
      if (contentTypeConformsTo(type, u"public.image") &&
          std::find(found.begin(), found.end(), type) == found.end())
        found.push_back(std::move(type));
    }
    return found;
  }();
  return types;
}

}  // namespace

const std::vector<std::u16string>& ImageFileTypes() {
  static const std::vector<std::u16string> types = [] {
    std::vector<std::u16string> list = readableExtensions();
    const std::size_t extensions = list.size();
    for (const ClassicType& classic : kClassicTypes) {
      const bool readable = std::any_of(list.begin(), list.begin() + extensions,
                                        [&](const auto& e) { return e == classic.extension; });
      if (readable && std::find(list.begin(), list.end(), classic.type) == list.end())
        list.emplace_back(classic.type);
    }
    for (std::u16string_view own : kPartTypes)
      list.emplace_back(own);
    return list;
  }();
  return types;
}

std::vector<std::u16string> PDFFileTypes() {
  return {u"'PDF '", u"pdf", u"PDF", u"ps", u"PS", u"eps", u"EPS", u"ai", u"AI"};
}

std::vector<std::u16string> PDFBundleTypes() {
  return {u"pdfd", u"PDFD"};
}

bool isWebImageExtension(OptionalString extension) {
  return isOneOf(extension, {u"jpeg", u"jpg", u"jpe", u"jp2", u"gif", u"png"});
}

bool isImageExtension(OptionalString extension, OptionalString type) {
  const bool withType = type && !type->empty();
  for (const std::u16string& entry : ImageFileTypes()) {
    if (extension && equalsNoCase(*extension, entry)) return true;
    if (withType && *type == entry) return true;
  }
  return false;
}

bool isImageFile(OptionalString path) {
  if (!path) return false;
  return isImageExtension(extensionOf(path), view(classicTypeOf(path)));
}

bool isUTIImageFile(OptionalString path) {
  if (!path || path->empty()) return false;
  const std::optional<std::u16string> type = contentTypeOfPath(*path);
  if (!type) return false;
  const std::vector<std::u16string> chain = contentTypeConformanceChain(*type);
  for (const std::u16string& readable : readableImageContentTypes())
    if (std::find(chain.begin(), chain.end(), readable) != chain.end()) return true;
  return false;
}

bool isPostScriptExtension(OptionalString extension) {
  return isOneOf(extension, {u"ps", u"eps", u"ai"});
}

bool isPostScriptFile(OptionalString path) {
  return isPostScriptExtension(extensionOf(path));
}

bool isPDFExtension(OptionalString extension, OptionalString type) {
  return (type && *type == u"'PDF '") || isOneOf(extension, {u"pdf"}) ||
         isPostScriptExtension(extension);
}

bool isPDFFile(OptionalString path) {
  if (!path) return false;
  return isPDFExtension(extensionOf(path), view(classicTypeOf(path)));
}

bool isRealPDFExtension(OptionalString extension, OptionalString type) {
  return isOneOf(extension, {u"pdf"}) || (type && *type == u"'PDF '");
}

bool isRealPDFFile(OptionalString path) {
  if (!path) return false;
  return isRealPDFExtension(extensionOf(path), view(classicTypeOf(path)));
}

bool isPDFBundleExtension(OptionalString extension) {
  return isOneOf(extension, {u"pdfd"});
}

bool isPDFBundle(OptionalString path) {
  return path && isPDFBundleExtension(extensionOf(path));
}

std::optional<std::u16string> pathToPDF(OptionalString path) {
  if (!path) return std::nullopt;
  if (!isPDFBundle(path)) return std::u16string(*path);
  const std::u16string named = stringByAppendingPathComponent(
      *path, stringByAppendingPathExtension(stringByDeletingPathExtension(lastPathComponent(*path)),
                                            u"pdf"));
  struct stat status;
  if (stat(utf16ToUtf8(named).c_str(), &status) == 0) return named;
  if (DIR* folder = opendir(utf16ToUtf8(*path).c_str())) {
    std::optional<std::u16string> found;
    while (const dirent* entry = readdir(folder)) {
      const std::u16string name = utf8ToUtf16(entry->d_name);
      if (equalsNoCase(pathExtension(name), u"pdf")) {
        found = stringByAppendingPathComponent(*path, name);
        break;
      }
    }
    closedir(folder);
    if (found) return found;
  }
  return std::u16string(*path);
}

std::optional<std::u16string> pathExtensionForType(OptionalString type) {
  if (!type || type->empty()) return std::nullopt;
  const std::u16string_view text = *type;
  if (text.size() == 6 && text.front() == u'\'' && text.back() == u'\'') {
    for (const ClassicType& classic : kClassicTypes)
      if (classic.type == text) return std::u16string(classic.extension);
    return std::nullopt;
  }
  if (std::count(text.begin(), text.end(), u'/') != 1) return std::u16string(text);

  std::u16string_view subtype = text.substr(text.find(u'/') + 1);
  if (subtype.size() < 2) return std::nullopt;
  if (subtype.substr(0, 2) == u"x-") {
    subtype.remove_prefix(2);
    if (subtype.size() < 2) return std::nullopt;
  }
  const std::size_t dot = subtype.rfind(u'.');
  if (dot != std::u16string_view::npos) subtype = subtype.substr(dot + 1);

  for (const MimeSubtype& row : kMimeSubtypes) {
    const bool matches = row.name.size() >= subtype.size()
                             ? equalsNoCase(row.name, subtype)
                             : fastCaseInsensitiveUnicharsContainChars(
                                   subtype.data(), subtype.size(),
                                   std::string(row.name.begin(), row.name.end()).c_str(),
                                   row.name.size()) != nullptr;
    if (matches) return std::u16string(row.extension);
  }
  return std::u16string(subtype);
}

std::optional<std::u16string> pathExtensionForData(const std::optional<Data>& data) {
  if (!data || data->size() < 4) return std::nullopt;
  const std::string_view head(reinterpret_cast<const char*>(data->data()),
                              std::min<std::size_t>(data->size(), 1024));
  for (const DataSignature& signature : kDataSignatures)
    if (head.find(signature.bytes) != std::string_view::npos)
      return std::u16string(signature.extension);
  return std::nullopt;
}

}  // namespace ferncast
