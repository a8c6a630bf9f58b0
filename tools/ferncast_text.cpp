// ferncast text <verb> [options] [FILE|-]: the character tables and string operations on UTF-8
// text (invalid sequences read as U+FFFD). Each verb writes the resulting text as UTF-8; "words"
// writes the word count and a line feed.
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "markup/chartables/CharacterTables.h"
#include "markup/chartables/NSString+Quill.h"
#include "tools/ferncast_cli.h"

namespace ferncast::cli {
namespace {

struct TextOptions {
  std::string file;
  std::string form = "C";
  bool lowercase = false;
  bool lower = false;
  bool upper = false;
  bool ascii = false;
  bool feeds = false;
};

using Transform = std::function<void(std::u16string& text, const TextOptions& options)>;

// A verb that reads FILE (or standard input), changes the text and writes it out.
CLI::App* addTextVerb(CLI::App& area, const char* name, const char* description,
                      const std::shared_ptr<TextOptions>& options, Transform transform) {
  CLI::App* verb = area.add_subcommand(name, description);
  verb->add_option("file", options->file, "UTF-8 input file, or - for standard input");
  verb->callback([options, transform] {
    std::u16string text = readTextInput(options->file);
    transform(text, *options);
    writeText(text);
    finish(kSuccess);
  });
  return verb;
}

const std::map<std::string, NormalizationForm> kForms = {
    {"C", kNormalizationFormC},
    {"D", kNormalizationFormD},
    {"KC", kNormalizationFormKC},
    {"KD", kNormalizationFormKD},
};

void normalize(std::u16string& text, const TextOptions& options) {
  const NormalizationForm form = kForms.at(options.form);
  if (!options.lowercase) return normalizeString(text, form);
  // Lower-casing works on form C; another form is then applied to the lower-cased text.
  normalizeLowercaseString(text);
  if (form != kNormalizationFormC) normalizeString(text, form);
}

void fold(std::u16string& text, const TextOptions& options) {
  using Operation = std::u16string (*)(std::u16string_view);
  // [ascii][case: 0 as is, 1 lower, 2 upper]
  static constexpr Operation kOperations[2][3] = {
      {nonUmlautedNormalizedString, lowercaseNonUmlautedNormalizedString,
       uppercaseNonUmlautedNormalizedString},
      {asciiString, lowercaseAsciiString, uppercaseAsciiString},
  };
  const int letterCase = options.lower ? 1 : options.upper ? 2 : 0;
  text = kOperations[options.ascii][letterCase](text);
}

void addTextCommands(CLI::App& area) {
  auto options = std::make_shared<TextOptions>();

  CLI::App* normalizeVerb =
      addTextVerb(area, "normalize", "Unicode normalisation", options, normalize);
  normalizeVerb->add_option("--form", options->form, "normalisation form (default C)")
      ->check(CLI::IsMember(kForms));
  normalizeVerb->add_flag("--lowercase", options->lowercase, "lower-case after normalising");

  addTextVerb(
      area, "fix", "replace NUL, surrogates and U+F400-U+F8FF by spaces, then normalise to form C",
      options, [](std::u16string& text, const TextOptions&) { fixAndNormalizeString(text); });

  CLI::App* foldVerb = addTextVerb(
      area, "fold", "fold accented letters to their base letters (form C first)", options, fold);
  CLI::Option* lower = foldVerb->add_flag("--lower", options->lower, "lower-case too");
  CLI::Option* upper = foldVerb->add_flag("--upper", options->upper, "upper-case too");
  lower->excludes(upper);
  foldVerb->add_flag("--ascii", options->ascii,
                     "turn every code unit that does not fold to ASCII into a space");

  addTextVerb(area, "ligatures", "expand typographic ligatures", options,
              [](std::u16string& text, const TextOptions&) { convertLigaturesToCharacters(text); });

  CLI::App* collapseVerb =
      addTextVerb(area, "collapse", "turn each run of spaces and tabs into one space", options,
                  [](std::u16string& text, const TextOptions& o) {
                    removeMultipleSpacesAndFeeds(text, o.feeds);
                  });
  collapseVerb->add_flag("--feeds", options->feeds, "line ends and other white space too");

  CLI::App* wordsVerb = area.add_subcommand("words", "print the number of words");
  wordsVerb->add_option("file", options->file, "UTF-8 input file, or - for standard input");
  wordsVerb->callback([options] {
    const std::u16string text = readTextInput(options->file);
    writeOutput(std::to_string(numberOfWordsOfCharacters(text.data(), text.size())) + "\n");
    finish(kSuccess);
  });
}

const RegisterArea kTextArea{
    {"text", "character tables and string normalisation", addTextCommands}};

}  // namespace
}  // namespace ferncast::cli
