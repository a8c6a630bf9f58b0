#include "Classes/ContentTypes.h"

#include <fcntl.h>
#include <magic.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "Classes/NSString+Encoding.h"
#include "Classes/NSString+Paths.h"
#include "Classes/Unicode.h"

namespace ferncast {
namespace {

// --- The type table ------------------------------------------------------------------------------

enum class Form : std::uint8_t {
  kFile,     // a regular file (or data of any origin)
  kPackage,  // a directory shown as one item; its extensions apply to directories only
  kAbstract  // a node of the tree that nothing is tagged with directly
};

// One declared type. Lists are separated by single spaces; the first extension is the preferred
// one. Extensions are lower case and each appears once in the whole table.
struct TypeDeclaration {
  std::string_view identifier;
  std::string_view conformsTo;
  Form form;
  std::string_view extensions;
  std::string_view mimeTypes;
};

constexpr TypeDeclaration kTypes[] = {
    // The roots and the abstract nodes.
    {"public.item", "", Form::kAbstract, "", ""},
    {"public.content", "", Form::kAbstract, "", ""},
    {"public.composite-content", "public.content", Form::kAbstract, "", ""},
    {"public.data", "public.item", Form::kAbstract, "", "application/octet-stream"},
    {"public.directory", "public.item", Form::kAbstract, "", ""},
    {"public.folder", "public.directory", Form::kAbstract, "", ""},
    {"public.symlink", "public.item", Form::kAbstract, "", ""},
    {"public.executable", "public.item", Form::kAbstract, "", ""},
    {"public.archive", "public.data", Form::kAbstract, "", ""},
    {"com.apple.package", "public.directory", Form::kAbstract, "", ""},
    {"com.apple.bundle", "public.directory", Form::kAbstract, "", ""},
    {"public.unix-executable", "public.data public.executable", Form::kAbstract, "",
     "application/x-executable application/x-pie-executable application/x-sharedlib"},

    // Packages.
    {"com.apple.plugin", "com.apple.bundle com.apple.package", Form::kPackage, "plugin", ""},
    {"com.apple.metadata-importer", "com.apple.plugin", Form::kPackage, "mdimporter", ""},
    {"com.apple.application", "public.data", Form::kAbstract, "", ""},
    {"com.apple.application-bundle", "com.apple.application com.apple.bundle com.apple.package",
     Form::kPackage, "app", ""},
    {"com.apple.framework", "com.apple.bundle", Form::kPackage, "framework", ""},
    {"com.apple.rtfd", "com.apple.package public.composite-content", Form::kPackage, "rtfd", ""},

    // Text.
    {"public.text", "public.data public.content", Form::kAbstract, "", ""},
    {"public.plain-text", "public.text", Form::kFile, "txt text", "text/plain"},
    {"public.utf8-plain-text", "public.plain-text", Form::kAbstract, "", ""},
    {"public.utf16-plain-text", "public.plain-text", Form::kAbstract, "", ""},
    {"com.apple.traditional-mac-plain-text", "public.plain-text", Form::kAbstract, "", ""},
    {"public.rtf", "public.text", Form::kFile, "rtf", "text/rtf application/rtf"},
    {"public.html", "public.text", Form::kFile, "html htm shtml", "text/html"},
    {"public.xml", "public.text", Form::kFile, "xml", "application/xml text/xml"},
    {"public.xhtml", "public.xml", Form::kFile, "xhtml xht", "application/xhtml+xml"},
    {"public.json", "public.text", Form::kFile, "json", "application/json"},
    {"public.css", "public.plain-text", Form::kFile, "css", "text/css"},
    {"net.daringfireball.markdown", "public.plain-text", Form::kFile, "md markdown",
     "text/markdown"},
    {"public.delimited-values-text", "public.text", Form::kAbstract, "", ""},
    {"public.comma-separated-values-text", "public.delimited-values-text", Form::kFile, "csv",
     "text/csv"},
    {"public.tab-separated-values-text", "public.delimited-values-text", Form::kFile, "tsv",
     "text/tab-separated-values"},
    {"public.vcard", "public.text", Form::kFile, "vcf vcard", "text/vcard text/x-vcard"},
    {"public.source-code", "public.plain-text", Form::kAbstract, "", ""},
    {"public.c-source", "public.source-code", Form::kFile, "c", "text/x-c"},
    {"public.c-header", "public.source-code", Form::kFile, "h", ""},
    {"public.c-plus-plus-source", "public.source-code", Form::kFile, "cpp cc cxx c++",
     "text/x-c++"},
    {"public.c-plus-plus-header", "public.source-code", Form::kFile, "hpp hh hxx", ""},
    {"public.objective-c-source", "public.source-code", Form::kFile, "m", "text/x-objective-c"},
    {"public.script", "public.source-code", Form::kAbstract, "", ""},
    {"public.shell-script", "public.script", Form::kFile, "sh command", "text/x-shellscript"},
    {"public.python-script", "public.script", Form::kFile, "py",
     "text/x-python text/x-script.python"},
    {"public.perl-script", "public.script", Form::kFile, "pl pm", "text/x-perl"},
    {"public.ruby-script", "public.script", Form::kFile, "rb", "text/x-ruby"},
    {"com.netscape.javascript-source", "public.source-code", Form::kFile, "js",
     "text/javascript application/javascript"},
    {"com.apple.property-list", "public.data", Form::kFile, "plist", ""},
    {"com.apple.log", "public.plain-text", Form::kFile, "log", ""},

    // Documents.
    {"com.adobe.pdf", "public.data public.composite-content", Form::kFile, "pdf",
     "application/pdf application/x-pdf"},
    {"com.adobe.postscript", "public.data public.composite-content", Form::kFile, "ps",
     "application/postscript"},
    {"com.adobe.encapsulated-postscript", "com.adobe.postscript", Form::kFile, "eps epsf epsi",
     "image/x-eps application/eps"},
    {"com.adobe.illustrator.ai-image", "public.data public.composite-content", Form::kFile, "ai",
     "application/illustrator"},
    {"com.apple.flat-rtfd", "public.data public.composite-content", Form::kAbstract, "", ""},
    {"com.apple.webarchive", "public.data public.composite-content", Form::kFile, "webarchive",
     "application/x-webarchive"},
    {"com.microsoft.word.doc", "public.data public.composite-content", Form::kFile, "doc dot",
     "application/msword"},
    {"com.microsoft.excel.xls", "public.data public.composite-content", Form::kFile, "xls",
     "application/vnd.ms-excel"},
    {"com.microsoft.powerpoint.ppt", "public.data public.composite-content", Form::kFile, "ppt",
     "application/vnd.ms-powerpoint"},
    {"org.openxmlformats.openxml", "public.zip-archive", Form::kAbstract, "", ""},
    {"org.openxmlformats.wordprocessingml.document",
     "org.openxmlformats.openxml public.composite-content", Form::kFile, "docx",
     "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
    {"org.openxmlformats.spreadsheetml.sheet",
     "org.openxmlformats.openxml public.composite-content", Form::kFile, "xlsx",
     "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
    {"org.openxmlformats.presentationml.presentation",
     "org.openxmlformats.openxml public.composite-content", Form::kFile, "pptx",
     "application/vnd.openxmlformats-officedocument.presentationml.presentation"},
    {"org.oasis-open.opendocument.text", "public.zip-archive public.composite-content", Form::kFile,
     "odt", "application/vnd.oasis.opendocument.text"},
    {"org.oasis-open.opendocument.spreadsheet", "public.zip-archive public.composite-content",
     Form::kFile, "ods", "application/vnd.oasis.opendocument.spreadsheet"},
    {"org.oasis-open.opendocument.presentation", "public.zip-archive public.composite-content",
     Form::kFile, "odp", "application/vnd.oasis.opendocument.presentation"},

    // Images.
    {"public.image", "public.data public.content", Form::kAbstract, "", ""},
    {"public.jpeg", "public.image", Form::kFile, "jpeg jpg jpe", "image/jpeg image/pjpeg"},
    {"public.jpeg-2000", "public.image", Form::kFile, "jp2 jpf jpx j2k j2c",
     "image/jp2 image/jpx image/jpm"},
    {"public.tiff", "public.image", Form::kFile, "tiff tif", "image/tiff"},
    {"public.png", "public.image", Form::kFile, "png", "image/png"},
    {"com.compuserve.gif", "public.image", Form::kFile, "gif", "image/gif"},
    {"com.microsoft.bmp", "public.image", Form::kFile, "bmp dib",
     "image/bmp image/x-bmp image/x-ms-bmp"},
    {"com.apple.pict", "public.image", Form::kFile, "pict pct pic", "image/pict image/x-pict"},
    {"public.svg-image", "public.image", Form::kFile, "svg svgz", "image/svg+xml"},
    {"com.apple.icns", "public.image", Form::kFile, "icns", "image/x-icns"},
    {"com.microsoft.ico", "public.image", Form::kFile, "ico",
     "image/vnd.microsoft.icon image/x-icon"},
    {"org.webmproject.webp", "public.image", Form::kFile, "webp", "image/webp"},
    {"public.heif-standard", "public.image", Form::kAbstract, "", ""},
    {"public.heif", "public.heif-standard", Form::kFile, "heif", "image/heif"},
    {"public.heic", "public.heif-standard", Form::kFile, "heic", "image/heic"},
    {"public.avif", "public.image", Form::kFile, "avif", "image/avif"},
    {"com.adobe.photoshop-image", "public.image", Form::kFile, "psd", "image/vnd.adobe.photoshop"},
    {"com.truevision.tga-image", "public.image", Form::kFile, "tga", "image/x-tga"},
    {"com.sgi.sgi-image", "public.image", Form::kFile, "sgi", "image/x-sgi image/sgi"},
    {"com.ilm.openexr-image", "public.image", Form::kFile, "exr", "image/x-exr"},
    {"public.radiance", "public.image", Form::kFile, "hdr", "image/vnd.radiance"},
    {"public.pbm", "public.image", Form::kFile, "pbm pgm ppm pnm pfm",
     "image/x-portable-bitmap image/x-portable-graymap image/x-portable-pixmap "
     "image/x-portable-anymap image/x-portable-floatmap"},
    {"public.xbitmap-image", "public.image", Form::kFile, "xbm", "image/x-xbitmap"},
    {"com.apple.quicktime-image", "public.image", Form::kFile, "qtif qti", "image/x-quicktime"},
    {"com.apple.macpaint-image", "public.image", Form::kFile, "pntg", "image/x-macpaint"},
    {"com.kodak.flashpix-image", "public.image", Form::kFile, "fpix fpx", "image/vnd.fpx"},
    {"public.camera-raw-image", "public.image", Form::kAbstract, "", ""},
    {"com.adobe.raw-image", "public.camera-raw-image", Form::kFile, "dng", "image/x-adobe-dng"},
    {"com.canon.cr2-raw-image", "public.camera-raw-image", Form::kFile, "cr2", "image/x-canon-cr2"},
    {"com.canon.crw-raw-image", "public.camera-raw-image", Form::kFile, "crw", "image/x-canon-crw"},
    {"com.nikon.raw-image", "public.camera-raw-image", Form::kFile, "nef", "image/x-nikon-nef"},
    {"com.sony.arw-raw-image", "public.camera-raw-image", Form::kFile, "arw", "image/x-sony-arw"},
    {"com.olympus.raw-image", "public.camera-raw-image", Form::kFile, "orf", "image/x-olympus-orf"},
    {"com.fuji.raw-image", "public.camera-raw-image", Form::kFile, "raf", "image/x-fuji-raf"},
    {"com.panasonic.rw2-raw-image", "public.camera-raw-image", Form::kFile, "rw2",
     "image/x-panasonic-rw2"},
    {"com.pentax.raw-image", "public.camera-raw-image", Form::kFile, "pef", "image/x-pentax-pef"},

    // Movies and sound.
    {"public.audiovisual-content", "public.data public.content", Form::kAbstract, "", ""},
    {"public.movie", "public.audiovisual-content", Form::kAbstract, "", ""},
    {"public.video", "public.movie", Form::kAbstract, "", ""},
    {"public.audio", "public.audiovisual-content", Form::kAbstract, "", ""},
    {"com.apple.quicktime-movie", "public.movie", Form::kFile, "mov qt", "video/quicktime"},
    {"public.mpeg", "public.movie", Form::kFile, "mpg mpeg mpe m1v m75 m15", "video/mpeg"},
    {"public.mpeg-2-video", "public.video", Form::kFile, "m2v", "video/mpeg2"},
    {"public.mpeg-2-transport-stream", "public.movie", Form::kFile, "ts mts m2ts", "video/mp2t"},
    {"public.mpeg-4", "public.movie", Form::kFile, "mp4 mpeg4 m4v",
     "video/mp4 video/x-m4v video/mp4v-es"},
    {"public.mpeg-4-audio", "public.mpeg-4 public.audio", Form::kFile, "m4a m4b",
     "audio/mp4 audio/x-m4a"},
    {"public.3gpp", "public.movie", Form::kFile, "3gp 3gpp", "video/3gpp audio/3gpp"},
    {"public.3gpp2", "public.movie", Form::kFile, "3g2 3gp2", "video/3gpp2 audio/3gpp2"},
    {"public.avi", "public.movie", Form::kFile, "avi vfw", "video/avi video/x-msvideo"},
    {"org.matroska.mkv", "public.movie", Form::kFile, "mkv", "video/x-matroska"},
    {"org.webmproject.webm", "public.movie", Form::kFile, "webm", "video/webm"},
    {"com.microsoft.windows-media-wmv", "public.movie", Form::kFile, "wmv",
     "video/x-ms-wmv video/x-ms-asf"},
    {"com.adobe.flash.video", "public.movie", Form::kFile, "flv", "video/x-flv"},
    {"public.mp3", "public.audio", Form::kFile, "mp3", "audio/mpeg audio/mp3 audio/x-mp3"},
    {"public.aifc-audio", "public.audio", Form::kFile, "aifc aiffc", "audio/x-aifc"},
    {"public.aiff-audio", "public.aifc-audio", Form::kFile, "aiff aif", "audio/aiff audio/x-aiff"},
    {"com.microsoft.waveform-audio", "public.audio", Form::kFile, "wav wave",
     "audio/vnd.wave audio/wav audio/x-wav"},
    {"public.midi-audio", "public.audio", Form::kFile, "mid midi", "audio/midi audio/x-midi"},
    {"org.xiph.flac", "public.audio", Form::kFile, "flac", "audio/flac audio/x-flac"},
    {"org.xiph.ogg-audio", "public.audio", Form::kFile, "ogg oga", "audio/ogg"},
    {"com.apple.coreaudio-format", "public.audio", Form::kFile, "caf", "audio/x-caf"},

    // Archives.
    {"com.pkware.zip-archive", "public.data public.archive", Form::kAbstract, "", ""},
    {"public.zip-archive", "com.pkware.zip-archive", Form::kFile, "zip", "application/zip"},
    {"org.gnu.gnu-zip-archive", "public.data public.archive", Form::kFile, "gz gzip",
     "application/gzip application/x-gzip"},
    {"public.bzip2-archive", "public.data public.archive", Form::kFile, "bz2 bzip2",
     "application/x-bzip2"},
    {"public.tar-archive", "public.data public.archive", Form::kFile, "tar", "application/x-tar"},
};

// --- Compile-time checks of the table -----------------------------------------------------------

// Calls `visit` with each space-separated word of `list`.
template <typename Visit>
constexpr void forEachWord(std::string_view list, Visit visit) {
  while (!list.empty()) {
    const std::size_t space = list.find(' ');
    visit(list.substr(0, space));
    if (space == std::string_view::npos) break;
    list.remove_prefix(space + 1);
  }
}

constexpr bool isDeclared(std::string_view identifier) {
  for (const TypeDeclaration& type : kTypes)
    if (type.identifier == identifier) return true;
  return false;
}

constexpr bool everyParentIsDeclaredBeforeUse() {
  bool ok = true;
  for (const TypeDeclaration& type : kTypes)
    forEachWord(type.conformsTo, [&](std::string_view parent) { ok = ok && isDeclared(parent); });
  return ok;
}
static_assert(everyParentIsDeclaredBeforeUse(), "a type conforms to an undeclared type");

constexpr bool everyWordIsLowerCase() {
  for (const TypeDeclaration& type : kTypes)
    for (char c : type.extensions)
      if (c >= 'A' && c <= 'Z') return false;
  return true;
}
static_assert(everyWordIsLowerCase(), "extensions in the table must be lower case");

// --- Indexes built on first use -----------------------------------------------------------------

std::string upperAscii(std::u16string_view text) {
  std::string upper;
  upper.reserve(text.size());
  for (char16_t c : text) {
    if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - u'a' + u'A');
    // Non-ASCII extensions never match the table; keep them distinct from every ASCII word.
    upper += c < 0x80 ? static_cast<char>(c) : '\x80';
  }
  return upper;
}

std::string upperAscii(std::string_view text) {
  std::string upper(text);
  for (char& c : upper)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return upper;
}

struct Index {
  std::unordered_map<std::string_view, const TypeDeclaration*> byIdentifier;
  std::unordered_map<std::string, const TypeDeclaration*> byExtension;  // upper-case keys
  std::unordered_map<std::string, const TypeDeclaration*> byMimeType;   // upper-case keys

  Index() {
    for (const TypeDeclaration& type : kTypes) {
      byIdentifier.emplace(type.identifier, &type);
      forEachWord(type.extensions, [&](std::string_view extension) {
        byExtension.emplace(upperAscii(extension), &type);
      });
      forEachWord(type.mimeTypes,
                  [&](std::string_view mime) { byMimeType.emplace(upperAscii(mime), &type); });
    }
  }
};

const Index& index() {
  static const Index instance;
  return instance;
}

const TypeDeclaration* declarationOf(std::u16string_view identifier) {
  std::string ascii;
  ascii.reserve(identifier.size());
  for (char16_t c : identifier) {
    if (c >= 0x80) return nullptr;
    ascii += static_cast<char>(c);
  }
  const auto& byIdentifier = index().byIdentifier;
  const auto found = byIdentifier.find(ascii);
  return found == byIdentifier.end() ? nullptr : found->second;
}

std::u16string lowercaseExtension(std::u16string_view extension) {
  std::u16string lower(extension);
  for (char16_t& c : lower)
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c - u'A' + u'a');
  return lower;
}

std::u16string toUtf16(std::string_view ascii) {
  return std::u16string(ascii.begin(), ascii.end());
}

// --- "dyn." identifiers -------------------------------------------------------------------------
//
// A type we do not know is named by its tags, in the form the platform uses for such types:
// "dyn.a" followed by the tag specification "?0=6:1=ext" in a base-32 alphabet without the
// letters that are easily misread (i, j, l, o). In the specification, key 0 lists the types it
// conforms to and keys 1 and 3 give a file-name extension and a MIME type; the values 6 to F are
// short codes of common types.

constexpr std::string_view kDynamicPrefix = "dyn.a";
constexpr std::string_view kBase32 = "abcdefghkmnpqrstuvwxyz0123456789";

constexpr std::array<std::string_view, 16> kShortCodes = {
    "",  // 0 to 5 are tag keys
    "",
    "",
    "",
    "",
    "",
    "public.data",
    "public.text",
    "public.plain-text",
    "public.utf16-plain-text",
    "com.apple.traditional-mac-plain-text",
    "public.image",
    "public.video",
    "public.audio",
    "public.directory",
    "public.folder",
};

enum TagKey : char { kConformsTo = '0', kExtension = '1', kMimeType = '3' };

// A tag value with ":", "=" and "\" escaped by a backslash, so that it cannot end its field.
void appendEscaped(std::string& specification, std::string_view value) {
  for (char c : value) {
    if (c == ':' || c == '=' || c == '\\') specification += '\\';
    specification += c;
  }
}

std::u16string dynamicIdentifier(TagKey key, std::string_view value) {
  std::string specification = "?0=6:";
  specification += key;
  specification += '=';
  appendEscaped(specification, value);

  std::u16string identifier = toUtf16(kDynamicPrefix);
  std::uint32_t bits = 0;
  int count = 0;
  for (unsigned char byte : specification) {
    bits = (bits << 8) | byte;
    count += 8;
    while (count >= 5) {
      count -= 5;
      identifier += static_cast<char16_t>(kBase32[(bits >> count) & 31]);
    }
  }
  if (count > 0) identifier += static_cast<char16_t>(kBase32[(bits << (5 - count)) & 31]);
  return identifier;
}

// The types a "dyn." identifier says it conforms to; empty when it is not one of ours or not
// well formed.
std::vector<std::string> dynamicParents(std::u16string_view identifier) {
  if (identifier.size() <= kDynamicPrefix.size() ||
      identifier.substr(0, kDynamicPrefix.size()) != toUtf16(kDynamicPrefix))
    return {};
  std::string specification;
  std::uint32_t bits = 0;
  int count = 0;
  for (char16_t c : identifier.substr(kDynamicPrefix.size())) {
    const std::size_t value = c < 0x80 ? kBase32.find(static_cast<char>(c)) : kBase32.npos;
    if (value == kBase32.npos) return {};
    bits = (bits << 5) | static_cast<std::uint32_t>(value);
    count += 5;
    if (count >= 8) {
      count -= 8;
      specification += static_cast<char>((bits >> count) & 0xFF);
    }
  }
  if (specification.empty() || specification[0] != '?') return {};

  // Fields "key=value" separated by ":", with backslash escapes inside values.
  std::vector<std::string> parents;
  std::size_t i = 1;
  while (i < specification.size()) {
    const std::size_t equals = specification.find('=', i);
    if (equals == std::string::npos) return {};
    const std::string key = specification.substr(i, equals - i);
    std::string value;
    std::size_t j = equals + 1;
    for (; j < specification.size() && specification[j] != ':'; ++j) {
      if (specification[j] == '\\' && j + 1 < specification.size()) ++j;
      value += specification[j];
    }
    i = j + 1;
    if (key != std::string(1, kConformsTo)) continue;
    if (value.size() == 1) {
      const char code = value[0];
      const int digit = code >= '0' && code <= '9'   ? code - '0'
                        : code >= 'A' && code <= 'F' ? code - 'A' + 10
                                                     : -1;
      if (digit >= 0 && !kShortCodes[static_cast<std::size_t>(digit)].empty()) {
        parents.emplace_back(kShortCodes[static_cast<std::size_t>(digit)]);
        continue;
      }
    }
    parents.push_back(value);
  }
  return parents;
}

// The parents of any identifier: declared ones from the table, "dyn." ones from their encoding.
std::vector<std::u16string> parentsOf(std::u16string_view identifier) {
  std::vector<std::u16string> parents;
  if (const TypeDeclaration* type = declarationOf(identifier)) {
    forEachWord(type->conformsTo,
                [&](std::string_view parent) { parents.push_back(toUtf16(parent)); });
  } else {
    for (const std::string& parent : dynamicParents(identifier))
      parents.push_back(utf8ToUtf16(parent));
  }
  return parents;
}

// --- libmagic -----------------------------------------------------------------------------------

// libmagic reads at most this much of a file. Enough for the formats it recognises by markers
// near the start (office documents name their parts in the first entries of the archive).
constexpr std::size_t kMagicBytesMax = 1 << 20;

// The MIME type libmagic reports for an open regular file, or empty when it cannot judge.
std::string magicMimeType(int descriptor) {
  static std::mutex mutex;
  static magic_t cookie = [] {
    magic_t opened = magic_open(MAGIC_MIME_TYPE | MAGIC_ERROR | MAGIC_NO_CHECK_COMPRESS);
    if (opened && magic_load(opened, nullptr) != 0) {
      magic_close(opened);
      opened = nullptr;
    }
    if (opened) {
      const std::size_t bytesMax = kMagicBytesMax;
      magic_setparam(opened, MAGIC_PARAM_BYTES_MAX, &bytesMax);
    }
    return opened;
  }();
  if (!cookie) return {};
  std::lock_guard<std::mutex> lock(mutex);
  const char* mime = magic_descriptor(cookie, descriptor);
  return mime ? std::string(mime) : std::string();
}

// MIME types that say only "some bytes": the extension, when there is one, names the file better.
bool isGenericMimeType(std::string_view mime) {
  return mime.empty() || mime == "application/octet-stream" || mime == "application/x-empty" ||
         mime == "inode/x-empty";
}

std::u16string contentTypeOfRegularFile(const std::string& path, std::u16string_view extension) {
  const auto& byExtension = index().byExtension;
  if (!extension.empty()) {
    const auto found = byExtension.find(upperAscii(extension));
    if (found != byExtension.end() && found->second->form == Form::kFile)
      return toUtf16(found->second->identifier);
  }

  std::string mime;
  const int descriptor = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  if (descriptor >= 0) {
    struct stat status;
    if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode))
      mime = magicMimeType(descriptor);
    close(descriptor);
  }
  if (!isGenericMimeType(mime)) {
    const auto& byMimeType = index().byMimeType;
    const auto found = byMimeType.find(upperAscii(std::string_view(mime)));
    if (found != byMimeType.end()) return toUtf16(found->second->identifier);
  }
  if (!extension.empty())
    return dynamicIdentifier(kExtension, utf16ToUtf8(lowercaseExtension(extension)));
  if (!isGenericMimeType(mime)) return dynamicIdentifier(kMimeType, mime);
  return u"public.data";
}

}  // namespace

std::optional<std::u16string> contentTypeOfPath(std::u16string_view path) {
  if (path.empty()) return std::nullopt;
  const std::string fileSystemPath = utf16ToUtf8(path);
  struct stat status;
  if (stat(fileSystemPath.c_str(), &status) != 0) return std::nullopt;
  const std::u16string_view extension = pathExtension(path);

  if (S_ISDIR(status.st_mode)) {
    const auto& byExtension = index().byExtension;
    const auto found = byExtension.find(upperAscii(extension));
    if (!extension.empty() && found != byExtension.end() && found->second->form == Form::kPackage)
      return toUtf16(found->second->identifier);
    return u"public.folder";
  }
  if (S_ISREG(status.st_mode)) return contentTypeOfRegularFile(fileSystemPath, extension);
  // Devices, pipes and sockets: items with nothing to read.
  return u"public.item";
}

std::u16string contentTypeForExtension(std::u16string_view extension) {
  if (extension.empty()) return u"public.data";
  const auto& byExtension = index().byExtension;
  const auto found = byExtension.find(upperAscii(extension));
  if (found != byExtension.end()) return toUtf16(found->second->identifier);
  return dynamicIdentifier(kExtension, utf16ToUtf8(lowercaseExtension(extension)));
}

std::vector<std::u16string> contentTypeConformanceChain(std::u16string_view type) {
  std::vector<std::u16string> chain{std::u16string(type)};
  std::unordered_set<std::u16string> seen{chain.front()};
  // Breadth-first: `chain` doubles as the queue.
  for (std::size_t next = 0; next < chain.size(); ++next) {
    for (std::u16string& parent : parentsOf(chain[next])) {
      if (seen.insert(parent).second) chain.push_back(std::move(parent));
    }
  }
  return chain;
}

bool contentTypeConformsTo(std::u16string_view type, std::u16string_view parent) {
  if (type == parent) return true;
  for (const std::u16string& ancestor : contentTypeConformanceChain(type))
    if (ancestor == parent) return true;
  return false;
}

std::optional<std::u16string> classicFileTypeOfPath(std::u16string_view path) {
  if (path.empty()) return std::nullopt;
  const std::string fileSystemPath = utf16ToUtf8(path);
  struct stat status;
  if (stat(fileSystemPath.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  // The Finder information is 32 bytes (file type, creator, flags, location, folder); a longer
  // value is read as far as the buffer goes.
  std::uint8_t finderInfo[256];
  const ssize_t length =
      getxattr(fileSystemPath.c_str(), "user.com.apple.FinderInfo", finderInfo, sizeof finderInfo);
  if (length < 4) return std::nullopt;
  if (finderInfo[0] == 0 && finderInfo[1] == 0 && finderInfo[2] == 0 && finderInfo[3] == 0)
    return std::nullopt;
  std::optional<std::u16string> type = stringWithData(finderInfo, 4, NSMacOSRomanStringEncoding);
  if (!type) return std::nullopt;
  return u"'" + *type + u"'";
}

}  // namespace ferncast
