// ferncast rtf and ferncast rtfd: RTF text, and RTFD data and packages.
//   rtf text [FILE...|-]:       the plain text of RTF files, UTF-8; with several inputs each text
//                               ends with a form feed and a line feed. 1 when an input is no RTF.
//   rtfd write DATA DEST.rtfd:  reads RTFD data and writes its package at DEST, replacing what is
//                               there whole, as the helper's writeRTFDData does; 1 when the data is
//                               no RTFD or the package cannot be written.
//   rtfd list DATA:             the entries of the serialized package as JSON: {"name", "size"}
//                               for a file, {"name", "entries": [...]} for a folder, and the
//                               package's "preferredName" when it has one; 1 when no RTFD data.
//   rtfd pack DIR.rtfd [-o OUT]: the RTFD data of a package folder (standard output without -o);
//                               1 when the folder cannot be read.
// 2 when an input cannot be read.
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Classes/Unicode.h"
#include "tools/ferncast_cli.h"
#include "webcontent/documents/FileWrapper.h"
#include "webcontent/documents/FileWrapperFiles.h"
#include "webcontent/documents/RTF.h"
#include "webcontent/documents/RTFD.h"

namespace ferncast::cli {
namespace {

std::span<const std::uint8_t> bytesOf(const std::string& bytes) {
  return {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()};
}

std::string nameOf(const std::string& path) {
  return path == "-" ? "standard input" : path;
}

void writeFileOrOutput(const std::string& path, const Data& data) {
  if (path.empty() || path == "-") {
    writeOutput(std::string_view(reinterpret_cast<const char*>(data.data()), data.size()));
    return;
  }
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
  if (!out.flush()) finish(kUsage, path + ": cannot be written");
}

Value entriesOf(const FileWrapper& folder) {
  Array entries;
  for (const FileWrapper& child : folder.children) {
    Dictionary entry{{u"name", Value(child.filename)}};
    if (child.isDirectory()) {
      entry[u"entries"] = entriesOf(child);
    } else {
      entry[u"size"] = Value(child.contents.size());
    }
    entries.push_back(std::move(entry));
  }
  return entries;
}

void addRTFCommands(CLI::App& area) {
  auto paths = std::make_shared<std::vector<std::string>>();
  CLI::App* text = area.add_subcommand("text", "the plain text of RTF files");
  text->add_option("FILE", *paths, "RTF files, or - for standard input");
  text->callback([paths] {
    if (paths->empty()) paths->push_back("-");
    for (const std::string& path : *paths) {
      std::optional<AttributedString> string = initWithRTF(bytesOf(readInput(path)), nullptr);
      if (!string) finish(kNegative, nameOf(path) + ": not RTF");
      writeText(string->string());
      if (paths->size() > 1) writeOutput("\f\n");
    }
    finish(kSuccess);
  });
}

void addRTFDCommands(CLI::App& area) {
  struct Options {
    std::string data = "-", destination, folder, output;
  };
  auto o = std::make_shared<Options>();

  CLI::App* write = area.add_subcommand("write", "write RTFD data as a package");
  write->add_option("DATA", o->data, "RTFD data, or - for standard input")->required();
  write->add_option("DEST", o->destination, "the package to write (DEST.rtfd)")->required();
  write->callback([o] {
    if (!writeRTFD(bytesOf(readInput(o->data)), utf8ToUtf16(o->destination))) {
      finish(kNegative, o->destination + ": not written (no RTFD data, or the folder failed)");
    }
    finish(kSuccess);
  });

  CLI::App* list = area.add_subcommand("list", "the entries of RTFD data as JSON");
  list->add_option("DATA", o->data, "RTFD data, or - for standard input");
  list->callback([o] {
    std::optional<FileWrapper> package =
        fileWrapperWithSerializedRepresentation(bytesOf(readInput(o->data)));
    if (!package) finish(kNegative, nameOf(o->data) + ": not RTFD data");
    Dictionary result{{u"entries", entriesOf(*package)}};
    if (!package->preferredFilename.empty()) {
      result[u"preferredName"] = Value(package->preferredFilename);
    }
    printJson(result);
    finish(kSuccess);
  });

  CLI::App* pack = area.add_subcommand("pack", "the RTFD data of a package folder");
  pack->add_option("DIR", o->folder, "an RTFD package folder")->required();
  pack->add_option("-o,--output", o->output, "where to write the data (standard output without)");
  pack->callback([o] {
    std::optional<FileWrapper> package = fileWrapperWithPath(utf8ToUtf16(o->folder));
    if (!package || !package->isDirectory()) finish(kNegative, o->folder + ": no package folder");
    package->preferredFilename.clear();
    writeFileOrOutput(o->output, serializedRepresentation(*package));
    finish(kSuccess);
  });
}

const RegisterArea kRTF{{"rtf", "text of RTF files", addRTFCommands}};
const RegisterArea kRTFD{{"rtfd", "RTFD data and packages", addRTFDCommands}};

}  // namespace
}  // namespace ferncast::cli
