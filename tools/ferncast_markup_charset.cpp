// ferncast markup: character sets and decoding of markup bytes.
//   charset NAME: {"cf": <extended number>, "ns": <string-encoding number>, "converter": <ICU
//     converter or null>}; "ns" is -1 for none, -16 for Kamenický, -15 for KOI8-CS2, "cf"
//     4294967295 for none. 1 when the name gives no usable encoding.
//   decode [--charset NAME | --content-type VALUE] [--default-encoding NAME] [--report]
//     [FILE|-]: the bytes through the markup decoder, printed as UTF-8. A file argument without
//     --charset or --content-type is read by the file decoder. The default encoding is ISO
//     Latin-1 unless named. --report prints {"markupCharset", "encoding", "converter",
//     "replacementCharacters"} instead of the text. 1 when nothing decodes.
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "Classes/NSString+HeaderFields.h"
#include "markup/MarkupDecoding.h"
#include "tools/ferncast_cli.h"

namespace ferncast::cli {
namespace {

// String-encoding numbers as the documentation writes them: the markers -16 to -1 negative,
// everything else (0x80000000 | extended number included) unsigned.
Value stringEncodingNumber(NSStringEncoding encoding) {
  if (encoding >= NSKamenickyStringEncoding) {
    return static_cast<std::int64_t>(static_cast<std::int32_t>(encoding));
  }
  return static_cast<std::int64_t>(encoding);
}

Value converterOf(NSStringEncoding encoding) {
  const char* name = icuConverterName(CFStringConvertNSStringEncodingToEncoding(encoding));
  return name ? Value(argumentText(name)) : Value();
}

struct DecodeOptions {
  std::string path = "-";
  std::string charset;
  std::string contentType;
  std::string defaultEncoding;
  bool report = false;
};

void decode(const DecodeOptions& options) {
  NSStringEncoding defaultEncoding = NSISOLatin1StringEncoding;
  if (!options.defaultEncoding.empty()) {
    defaultEncoding = NSEncodingFromName(argumentText(options.defaultEncoding));
    if (defaultEncoding == kNoStringEncoding) {
      finish(kUsage, "decode: unknown default encoding " + options.defaultEncoding);
    }
  }
  NSStringEncoding used = kNoStringEncoding;
  std::optional<std::u16string> text;
  bool standardInput = options.path.empty() || options.path == "-";
  if (!standardInput && options.charset.empty() && options.contentType.empty()) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(options.path, error) ||
        access(options.path.c_str(), R_OK) != 0) {
      finish(kUsage, options.path + ": not a readable file");
    }
    text = stringWithMarkupContentsOfFile(argumentText(options.path), defaultEncoding, &used);
  } else {
    std::string bytes = readInput(options.path);
    std::span<const std::uint8_t> data(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                       bytes.size());
    std::u16string name = argumentText(options.charset);
    if (!options.contentType.empty()) {
      name = headerCharset(argumentText(options.contentType)).value_or(std::u16string());
    }
    text = stringWithMarkupData(data, name, defaultEncoding, std::u16string_view(), &used);
  }
  if (!text) finish(kNegative, "decode: nothing could be decoded");
  if (options.report) {
    std::size_t replacements =
        static_cast<std::size_t>(std::count(text->begin(), text->end(), u'\uFFFD'));
    printJson(Dictionary{{u"markupCharset", markupCharset(*text)},
                         {u"encoding", stringEncodingNumber(used)},
                         {u"converter", converterOf(used)},
                         {u"replacementCharacters", replacements}});
  } else {
    writeText(*text);
  }
  finish(kSuccess);
}

void addCommands(CLI::App& area) {
  auto name = std::make_shared<std::string>();
  CLI::App* charset = area.add_subcommand("charset", "the encodings a charset name stands for");
  charset->add_option("NAME", *name, "a charset name as found in pages")->required();
  charset->callback([name] {
    std::u16string text = argumentText(*name);
    CFStringEncoding extended = charset2CFStringEncoding(text);
    NSStringEncoding encoding = charset2NSStringEncoding(text);
    const char* converter = icuConverterName(extended);
    printJson(Dictionary{{u"cf", static_cast<std::int64_t>(extended)},
                         {u"ns", stringEncodingNumber(encoding)},
                         {u"converter", converter ? Value(argumentText(converter)) : Value()}});
    finish(encoding == kNoStringEncoding ? kNegative : kSuccess);
  });

  auto options = std::make_shared<DecodeOptions>();
  CLI::App* decodeCommand = area.add_subcommand("decode", "markup bytes to UTF-8 text");
  CLI::Option* charsetOption =
      decodeCommand->add_option("--charset", options->charset, "the charset named by the caller");
  decodeCommand->add_option("--content-type", options->contentType, "a content type with a charset")
      ->excludes(charsetOption);
  decodeCommand->add_option("--default-encoding", options->defaultEncoding,
                            "charset name of the default encoding (ISO Latin-1)");
  decodeCommand->add_flag("--report", options->report,
                          "print the declared charset, the encoding used and the U+FFFD count");
  decodeCommand->add_option("FILE", options->path, "input file, or - for standard input");
  decodeCommand->callback([options] { decode(*options); });
}

const RegisterArea kMarkupCharset{
    {"markup", "the tag scanner, attributes and markup decoding", addCommands}};

}  // namespace
}  // namespace ferncast::cli
