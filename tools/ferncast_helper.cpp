// ferncast helper <operation> [arguments]: one request to the helper process.
//
// Uses the running ferncast-helper of this user when there is one, else launches the one beside
// this executable for this command only (it ends with the command). When the connection closes
// before the reply, the request is made once more. Prints the reply as JSON (null for nil). Exit
// status 1 when the reply is nil or NO or the helper raised an exception, 3 when the helper could
// not be reached or timed out. Paths are sent absolute; PDF, RTFD and HTML files are read here and
// sent as data. --save-data DIR writes each data value to DIR/<key> (nested keys joined with ".", a
// bare data reply named after the operation) and prints
// {"file": "<path>"} in its place.
#include <limits.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "Classes/Unicode.h"
#include "service/Connection.h"
#include "service/FerncastHelper.h"
#include "service/HelperTask.h"
#include "service/QuillImExport.h"
#include "tools/ferncast_cli.h"

namespace ferncast::cli {
namespace {

namespace fs = std::filesystem;

std::u16string helperPath() {
  char self[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
  if (n <= 0) finish(kUnreachable, "cannot find the helper: /proc/self/exe is unreadable");
  return argumentText(
      (fs::path(std::string(self, static_cast<std::size_t>(n))).parent_path() / "ferncast-helper")
          .string());
}

std::u16string absolutePath(const std::string& path) {
  return argumentText(fs::absolute(path).lexically_normal().string());
}

// The bytes of a file, or of standard input for "-", read once even when the request is made
// again.
Data fileData(const std::string& path) {
  static std::map<std::string, Data> read;
  auto found = read.find(path);
  if (found == read.end()) {
    std::string bytes = readInput(path);
    found = read.emplace(path, Data(bytes.begin(), bytes.end())).first;
  }
  return found->second;
}

// Writes the data values inside `value` to files in `directory` and puts {"file": path} in
// their place.
void saveData(Value& value, const fs::path& directory, const std::string& name) {
  if (Data* data = value.as<Data>()) {
    std::string file = name;
    for (char& c : file) {
      if (c == '/') c = '_';
    }
    fs::path path = directory / file;
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(data->data()),
              static_cast<std::streamsize>(data->size()));
    if (!out.flush()) finish(kUsage, path.string() + ": cannot write");
    value = Dictionary{{u"file", Value(argumentText(path.string()))}};
  } else if (Dictionary* dict = value.as<Dictionary>()) {
    for (auto& [key, item] : *dict) {
      std::string keyText = utf16ToUtf8(key);
      saveData(item, directory, name.empty() ? keyText : name + "." + keyText);
    }
  } else if (Array* array = value.as<Array>()) {
    for (std::size_t i = 0; i < array->size(); ++i) {
      saveData((*array)[i], directory, (name.empty() ? "" : name + ".") + std::to_string(i));
    }
  }
}

struct Options {
  std::string path;
  std::string second;
  std::string saveData;
  std::string base;
  std::string charset;
  bool stringFromPDF = false;
  bool spotlight = false;
  bool attributed = false;
  bool allowRemote = false;
};

using Call = std::function<std::optional<Value>(QuillImExport&, const Options&)>;

// The proxy of a running helper, else of one launched for this command. When helpers launched at
// the same moment by other commands hold the name, ours waits for it (and is ended with the
// command): use whichever helper holds the name, once one does.
std::shared_ptr<Proxy> reach(HelperTask& task) {
  if (auto proxy = task.proxy()) return proxy;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(15);
  while (task.task() && task.task()->isRunning()) {
    if (auto proxy = task.launchedProxy()) return proxy;
    if (std::chrono::steady_clock::now() >= deadline) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return nullptr;
}

void request(const char* operation, const Options& options, const Call& call) {
  auto task = HelperTask::initWithPath(helperPath(), kFerncastHelperName, &kQuillImExport);
  std::optional<Value> reply;
  // A helper found running may be ended by whoever launched it while it works for us: when the
  // connection closes before the reply, ask once more.
  for (int attempt = 1;; ++attempt) {
    std::shared_ptr<Proxy> proxy = reach(*task);
    if (!proxy) finish(kUnreachable, "the helper could not be reached");
    QuillImExportProxy helper(proxy);
    try {
      reply = call(helper, options);
      break;
    } catch (const ConnectionError& e) {
      if (e.kind() == ConnectionError::Kind::kClosed && attempt == 1) continue;
      finish(kUnreachable, std::string("helper: ") + e.what());
    } catch (const RemoteException& e) {
      finish(kNegative, "the helper raised " + e.name() + ": " + e.reason());
    }
  }
  if (!reply) {
    printJson(Null{});
    finish(kNegative);
  }
  if (!options.saveData.empty()) {
    std::error_code error;
    fs::create_directories(options.saveData, error);
    saveData(*reply, options.saveData, reply->is<Data>() ? operation : "");
  }
  printJson(*reply);
  finish(reply->is<bool>() && !*reply->as<bool>() ? kNegative : kSuccess);
}

template <typename T>
std::optional<Value> value(std::optional<T> result) {
  if (!result) return std::nullopt;
  return Value(std::move(*result));
}

void addCommands(CLI::App& area) {
  auto options = std::make_shared<Options>();
  auto add = [&area, options](const char* name, const char* description, const char* first,
                              const char* firstHelp, Call call) {
    CLI::App* command = area.add_subcommand(name, description);
    command->add_option(first, options->path, firstHelp)->required();
    command->add_option("--save-data", options->saveData,
                        "write data values to files in this folder, named after their keys");
    command->callback([name, options, call] { request(name, *options, call); });
    return command;
  };

  add("PDFImageRepOfFile", "PDF data of an image or PostScript file", "PATH", "the file",
      [](QuillImExport& h, const Options& o) {
        return value(h.PDFImageRepOfFile(absolutePath(o.path)));
      });
  CLI::App* image = add(
      "imageWithContentsOfFile", "thumbnail and image facts of a file", "PATH", "the file",
      [](QuillImExport& h, const Options& o) {
        return value(h.imageWithContentsOfFile(absolutePath(o.path), o.stringFromPDF, o.spotlight));
      });
  image->add_flag("--string-from-pdf", options->stringFromPDF, "also the text of a PDF");
  image->add_flag("--spotlight", options->spotlight, "the importer may supply the PDF's text");
  CLI::App* attributed = add("attributed", "text and facts of a PDF file's data", "PDFFILE",
                             "the PDF file, or -", [](QuillImExport& h, const Options& o) {
                               return value(h.attributed(o.attributed, fileData(o.path)));
                             });
  attributed->add_flag("--attributed", options->attributed, "the text as RTFD data");
  add("posterImageForMovieWithFile", "poster frame, size and duration of a movie", "PATH",
      "the movie", [](QuillImExport& h, const Options& o) {
        return value(h.posterImageForMovieWithFile(absolutePath(o.path)));
      });
  add("attributedStringWithContentsOfFile", "RTFD and document attributes of a document", "PATH",
      "the document", [](QuillImExport& h, const Options& o) {
        return value(h.attributedStringWithContentsOfFile(absolutePath(o.path)));
      });
  add("searchableTextOfWebArchive", "text, source and URL of a web archive", "PATH",
      "the web archive", [](QuillImExport& h, const Options& o) {
        return value(h.searchableTextOfWebArchive(absolutePath(o.path)));
      });
  CLI::App* write =
      add("writeRTFDData", "write RTFD data as a file package", "RTFDFILE", "the RTFD data, or -",
          [](QuillImExport& h, const Options& o) {
            return std::optional<Value>(h.writeRTFDData(fileData(o.path), absolutePath(o.second)));
          });
  write->add_option("DEST", options->second, "the package to write")->required();
  CLI::App* html =
      add("RTFDWithHTML", "HTML rendered to RTFD data", "HTMLFILE", "the HTML, or -",
          [](QuillImExport& h, const Options& o) {
            std::optional<std::u16string> base, charset;
            if (!o.base.empty()) base = argumentText(o.base);
            if (!o.charset.empty()) charset = argumentText(o.charset);
            return value(h.RTFDWithHTML(fileData(o.path), base, o.allowRemote, charset));
          });
  html->add_option("--base", options->base, "the base URL");
  html->add_flag("--allow-remote", options->allowRemote, "let the page load remote resources");
  html->add_option("--charset", options->charset, "the character set of the HTML");
  add("metaDataForFile", "importer attributes of a file", "PATH", "the file",
      [](QuillImExport& h, const Options& o) {
        return value(h.metaDataForFile(absolutePath(o.path)));
      });
  add("supportsFile", "whether an importer claims the file", "PATH", "the file",
      [](QuillImExport& h, const Options& o) {
        return std::optional<Value>(h.supportsFile(absolutePath(o.path)));
      });
}

const RegisterArea kHelper{{"helper", "one request to the helper process", addCommands}};

}  // namespace
}  // namespace ferncast::cli
