// ferncast image: thumbnails, facts, renderings, PDF data and classification of image files.
//   thumbnail FILE [--max N] [--always-from-image] [--no-transform] [-o OUT]: the thumbnail's
//     TIFF to OUT (default: standard output when it is no terminal); with -o, also
//     {"pixelSize": "{w, h}", "properties": {...}} on standard output. 1 when there is none.
//   info FILE: {"valid", "size", "pixelSize", "alpha", "representations", "isPDFImage",
//     "isBitmapImage", "bounds"} of the image of FILE (the PDF of a PDF bundle); 1 when invalid.
//   render FILE --box WxH [--interpolation default|none|low|high] [--no-antialias]
//     [--format tiff|jpeg|png|bmp] [--compression F] [-o OUT]: the image fitted into the box and
//     drawn at that size, encoded. 1 when it cannot be drawn or encoded.
//   pdf FILE [-o OUT]: the PDF data of a PDF or PostScript file; 1 when there is none.
//   classify FILE: every predicate of the classification for FILE, its extension, classic type,
//     content type, pathToPDF and the extension its first bytes suggest, as JSON.
//   extension-for-type TYPE, extension-for-data FILE: the extension on one line; 1 for none.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "Classes/ContentTypes.h"
#include "Classes/NSString+Paths.h"
#include "Classes/Unicode.h"
#include "imaging/Image.h"
#include "imaging/ImageClassification.h"
#include "tools/ferncast_cli.h"

namespace ferncast::cli {
namespace {

struct Options {
  std::string path;
  std::string output;
  int maxSize = 256;
  bool alwaysFromImage = false;
  bool noTransform = false;
  std::string box;
  std::string interpolation = "default";
  bool noAntialias = false;
  std::string format = "tiff";
  float compression = 1.0f;
};

// Writes bytes to `output`, or to standard output when it is empty and no terminal.
void writeBytes(const Data& bytes, const std::string& output) {
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  if (output.empty() || output == "-") {
    if (output.empty() && isatty(STDOUT_FILENO))
      finish(kUsage, "binary output needs -o OUT or a pipe");
    writeOutput(text);
    return;
  }
  std::FILE* file = std::fopen(output.c_str(), "wb");
  const bool written = file && std::fwrite(text.data(), 1, text.size(), file) == text.size();
  if (file && std::fclose(file) != 0) finish(kUsage, "cannot write " + output);
  if (!written) finish(kUsage, "cannot write " + output);
}

Value optionalString(const std::optional<std::u16string>& text) {
  return text ? Value(*text) : Value();
}

std::optional<Size> parseBox(const std::string& text) {
  float width = 0, height = 0;
  char separator = 0, extra = 0;
  if (std::sscanf(text.c_str(), "%f%c%f%c", &width, &separator, &height, &extra) != 3 ||
      (separator != 'x' && separator != 'X') || !(width > 0) || !(height > 0))
    return std::nullopt;
  return Size{width, height};
}

std::optional<Data> renderedData(const Image& image, const Options& o) {
  const std::optional<Size> box = parseBox(o.box);
  if (!box) finish(kUsage, "render: --box must be WxH with positive numbers");
  static const std::map<std::string, ImageInterpolation> interpolations{
      {"default", ImageInterpolation::kDefault},
      {"none", ImageInterpolation::kNone},
      {"low", ImageInterpolation::kLow},
      {"high", ImageInterpolation::kHigh}};
  static const std::map<std::string, BitmapImageFileType> formats{
      {"jpeg", BitmapImageFileType::kJPEG},
      {"png", BitmapImageFileType::kPNG},
      {"bmp", BitmapImageFileType::kBMP}};
  const auto interpolation = interpolations.find(o.interpolation);
  if (interpolation == interpolations.end())
    finish(kUsage, "render: --interpolation is default, none, low or high");
  const Size size = image.thumbSize(*box);
  if (o.format == "tiff")
    return image.TIFFRepresentationWithSize(size, !o.noAntialias, interpolation->second, false);
  const auto format = formats.find(o.format);
  if (format == formats.end()) finish(kUsage, "render: --format is tiff, jpeg, png or bmp");
  std::unique_ptr<Image> drawn =
      image.bitmapImageWithSize(size, !o.noAntialias, interpolation->second, false);
  if (!drawn) return std::nullopt;
  return drawn->representationUsingType(format->second, o.compression);
}

const char16_t* representationName(ImageRepClass kind) {
  switch (kind) {
    case ImageRepClass::kBitmap:
    case ImageRepClass::kIconRefBitmap:
      return u"bitmap";
    case ImageRepClass::kPDF:
      return u"pdf";
    case ImageRepClass::kEPS:
      return u"eps";
    case ImageRepClass::kPICT:
      return u"pict";
    case ImageRepClass::kCached:
      return u"cached";
    case ImageRepClass::kImageRep:
      break;
  }
  return u"other";
}

// The image of a file as the helper opens it: the PDF of a bundle, read by reference.
std::unique_ptr<Image> openImage(const std::string& path) {
  const std::optional<std::u16string> file = pathToPDF(argumentText(path));
  std::unique_ptr<Image> image = Image::imageByReferencingFile(file.value_or(u""));
  if (!image) finish(kUsage, "no file given");
  return image;
}

void addCommands(CLI::App& area) {
  auto o = std::make_shared<Options>();

  CLI::App* thumbnail = area.add_subcommand("thumbnail", "a thumbnail of an image file as TIFF");
  thumbnail->add_option("FILE", o->path, "the image file")->required();
  thumbnail->add_option("--max", o->maxSize, "the longest side in pixels (default 256)");
  thumbnail->add_flag("--always-from-image", o->alwaysFromImage, "ignore an embedded thumbnail");
  thumbnail->add_flag("--no-transform", o->noTransform, "keep the stored orientation");
  thumbnail->add_option("-o", o->output, "where to write the TIFF (default standard output)");
  thumbnail->callback([o] {
    std::optional<Dictionary> properties;
    std::unique_ptr<Image> image = Image::thumbnailForFile(
        argumentText(o->path), o->maxSize, o->alwaysFromImage, !o->noTransform, &properties);
    if (!image) finish(kNegative, "thumbnail: no thumbnail of " + o->path);
    const std::optional<Data> tiff = image->TIFFRepresentation();
    if (!tiff) finish(kNegative, "thumbnail: the thumbnail could not be encoded");
    writeBytes(*tiff, o->output);
    if (!o->output.empty() && o->output != "-") {
      printJson(Dictionary{{u"pixelSize", stringFromSize(image->pixelSize())},
                           {u"properties", properties ? Value(std::move(*properties)) : Value()}});
    }
    finish(kSuccess);
  });

  CLI::App* info = area.add_subcommand("info", "the facts of the image of a file as JSON");
  info->add_option("FILE", o->path, "the image file")->required();
  info->callback([o] {
    std::unique_ptr<Image> image = openImage(o->path);
    const Rect bounds = image->bounds();
    Array representations;
    for (const auto& rep : image->representations())
      representations.emplace_back(representationName(rep->repClass()));
    const bool valid = image->isReallyValid();
    printJson(Dictionary{
        {u"valid", valid},
        {u"size", stringFromSize(image->size())},
        {u"pixelSize", stringFromSize(image->pixelSize())},
        {u"alpha", image->hasAlpha()},
        {u"representations", std::move(representations)},
        {u"isPDFImage", image->isPDFImage()},
        {u"isBitmapImage", image->isBitmapImage()},
        {u"bounds", stringFromRect(bounds)},
    });
    finish(valid ? kSuccess : kNegative);
  });

  CLI::App* render = area.add_subcommand("render", "an image fitted into a box and drawn");
  render->add_option("FILE", o->path, "the image file")->required();
  render->add_option("--box", o->box, "the box, WxH")->required();
  render->add_option("--interpolation", o->interpolation, "default, none, low or high");
  render->add_flag("--no-antialias", o->noAntialias, "draw without antialiasing");
  render->add_option("--format", o->format, "tiff (default), jpeg, png or bmp");
  render->add_option("--compression", o->compression, "the compression factor, 0 to 1");
  render->add_option("-o", o->output, "where to write the image (default standard output)");
  render->callback([o] {
    std::unique_ptr<Image> image = openImage(o->path);
    if (!image->isReallyValid()) finish(kNegative, "render: no image in " + o->path);
    const std::optional<Data> data = renderedData(*image, *o);
    if (!data) finish(kNegative, "render: the image could not be drawn or encoded");
    writeBytes(*data, o->output);
    finish(kSuccess);
  });

  CLI::App* pdf = area.add_subcommand("pdf", "the PDF data of a PDF or PostScript file");
  pdf->add_option("FILE", o->path, "the PDF, PDF bundle or PostScript file")->required();
  pdf->add_option("-o", o->output, "where to write the PDF (default standard output)");
  pdf->callback([o] {
    std::unique_ptr<Image> image = openImage(o->path);
    std::optional<Data> data;
    if (image->isReallyValid()) {
      if (auto rep = image->PDFImageRep()) {
        data = rep->PDFRepresentation();
      } else if (auto eps = image->EPSImageRep()) {
        eps->initializePDFImageRep();
        data = eps->PDFRepresentation();
      }
    }
    if (!data) finish(kNegative, "pdf: no PDF data for " + o->path);
    writeBytes(*data, o->output);
    finish(kSuccess);
  });

  CLI::App* classify = area.add_subcommand("classify", "how a file is classified, as JSON");
  classify->add_option("FILE", o->path, "a file or folder")->required();
  classify->callback([o] {
    const std::u16string path = argumentText(o->path);
    const std::u16string_view extension = pathExtension(path);
    const std::optional<std::u16string> classic = classicFileTypeOfPath(path);
    const OptionalString type = classic ? OptionalString(*classic) : std::nullopt;
    std::optional<Data> head;
    if (std::FILE* file = std::fopen(o->path.c_str(), "rb")) {
      head.emplace(1024);
      head->resize(std::fread(head->data(), 1, head->size(), file));
      std::fclose(file);
    }
    printJson(Dictionary{
        {u"extension", std::u16string(extension)},
        {u"classicType", optionalString(classic)},
        {u"contentType", optionalString(contentTypeOfPath(path))},
        {u"pathToPDF", optionalString(pathToPDF(path))},
        {u"isWebImageExtension", isWebImageExtension(extension)},
        {u"isImageExtension", isImageExtension(extension, type)},
        {u"isImageFile", isImageFile(path)},
        {u"isUTIImageFile", isUTIImageFile(path)},
        {u"isPostScriptExtension", isPostScriptExtension(extension)},
        {u"isPostScriptFile", isPostScriptFile(path)},
        {u"isPDFExtension", isPDFExtension(extension, type)},
        {u"isPDFFile", isPDFFile(path)},
        {u"isRealPDFExtension", isRealPDFExtension(extension, type)},
        {u"isRealPDFFile", isRealPDFFile(path)},
        {u"isPDFBundleExtension", isPDFBundleExtension(extension)},
        {u"isPDFBundle", isPDFBundle(path)},
        {u"pathExtensionForType", optionalString(pathExtensionForType(type))},
        {u"pathExtensionForData", optionalString(pathExtensionForData(head))},
    });
    finish(kSuccess);
  });

  CLI::App* forType =
      area.add_subcommand("extension-for-type", "the extension for a classic or MIME type");
  forType->add_option("TYPE", o->path, "a classic type ('JPEG'), MIME type or extension")
      ->required();
  forType->callback([o] {
    const std::optional<std::u16string> extension = pathExtensionForType(argumentText(o->path));
    if (!extension) finish(kNegative);
    writeText(*extension + u"\n");
    finish(kSuccess);
  });

  CLI::App* forData =
      area.add_subcommand("extension-for-data", "the extension the first bytes suggest");
  forData->add_option("FILE", o->path, "a file, or - for standard input")->required();
  forData->callback([o] {
    const std::string bytes = readInput(o->path);
    const std::optional<std::u16string> extension =
        pathExtensionForData(Data(bytes.begin(), bytes.end()));
    if (!extension) finish(kNegative);
    writeText(*extension + u"\n");
    finish(kSuccess);
  });
}

const RegisterArea kImage{
    {"image", "image thumbnails, facts, renderings and PDF data", addCommands}};

}  // namespace
}  // namespace ferncast::cli
