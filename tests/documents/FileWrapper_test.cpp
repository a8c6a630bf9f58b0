// Serialized file wrappers (RTFD data) and file wrappers on disk: the platform's bytes exactly,
// hostile data refused without harm, packages that survive data and disk unchanged, and writes
// that replace a package whole.
#include "webcontent/documents/FileWrapper.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Classes/Unicode.h"
#include "tests/ScratchDirectory.h"
#include "webcontent/documents/FileWrapperFiles.h"
#include "webcontent/documents/Serializer.h"

namespace {

using namespace ferncast;
namespace fs = std::filesystem;

Data bytes(std::string_view text) {
  return Data(text.begin(), text.end());
}

// Little-endian words and raw text, for writing expected streams by hand.
struct Stream {
  Data data;
  Stream& word(std::uint32_t v) {
    for (int i = 0; i < 4; ++i)
      data.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
    return *this;
  }
  Stream& text(std::string_view t) {
    data.insert(data.end(), t.begin(), t.end());
    return *this;
  }
  Stream& sized(std::string_view t) { return word(static_cast<std::uint32_t>(t.size())).text(t); }
};

// The worked example: an empty folder "Test1" serialized by the platform.
Data emptyFolderExample() {
  Stream s;
  s.text("rtfd").word(0).word(3).word(2);
  s.sized("__@PreferredName@__").sized("__@UTF8PreferredName@__").word(13).word(13);
  s.word(1).sized("Test1").word(1).sized("Test1");
  return s.data;
}

FileWrapper samplePackage() {
  FileWrapper package = FileWrapper::directory();
  package.addFileWrapper(FileWrapper::regularFile(bytes("{\\rtf1 hi}"), u"TXT.rtf"));
  Data big(10000);
  for (std::size_t i = 0; i < big.size(); ++i)
    big[i] = static_cast<std::uint8_t>(i * 7);
  package.addFileWrapper(FileWrapper::regularFile(big, u"picture.png"));
  package.addFileWrapper(FileWrapper::regularFile({}, u"empty"));
  FileWrapper folder = FileWrapper::directory();
  folder.preferredFilename = u"Inner Folder";
  folder.addFileWrapper(FileWrapper::regularFile(bytes("x"), u"na\u00efve \u2603.txt"));
  package.addFileWrapper(folder);
  return package;
}

TEST(SerializedFileWrapper, TheWorkedExampleReadsAndWritesBackExactly) {
  const Data example = emptyFolderExample();
  std::optional<FileWrapper> wrapper = fileWrapperWithSerializedRepresentation(example);
  ASSERT_TRUE(wrapper);
  EXPECT_TRUE(wrapper->isDirectory());
  EXPECT_EQ(wrapper->preferredFilename, u"Test1");
  EXPECT_TRUE(wrapper->children.empty());
  EXPECT_EQ(serializedRepresentation(*wrapper), example);

  // The pasteboard form is the same stream without the header.
  std::optional<FileWrapper> headerless =
      fileWrapperWithSerializedRepresentation(std::span(example).subspan(8));
  ASSERT_TRUE(headerless);
  EXPECT_EQ(*headerless, *wrapper);
}

TEST(SerializedFileWrapper, LargeDataStartsOnAPageOfTheWholeBlob) {
  const FileWrapper package = samplePackage();
  const Data data = serializedRepresentation(package);
  const Data& picture = package.child(u"picture.png")->contents;
  const auto at = std::search(data.begin(), data.end(), picture.begin(), picture.end());
  ASSERT_NE(at, data.end());
  const auto offset = static_cast<std::size_t>(at - data.begin());
  EXPECT_EQ(offset % kSerializerPageSize, 0u);
  std::optional<FileWrapper> back = fileWrapperWithSerializedRepresentation(data);
  ASSERT_TRUE(back);
  EXPECT_EQ(*back, package);
  EXPECT_EQ(serializedRepresentation(*back), data);
}

TEST(SerializedFileWrapper, TheAlignmentMarkerIsReadAtAnySize) {
  Stream s;
  s.text("rtfd").word(0).word(3).word(1).sized("a.txt").word(4 + 12 + 3 + 2);
  s.word(1).word(0x80000000).word(2).word(3);
  s.data.insert(s.data.end(), 3, 0);
  s.text("hi");
  std::optional<FileWrapper> wrapper = fileWrapperWithSerializedRepresentation(s.data);
  ASSERT_TRUE(wrapper);
  ASSERT_NE(wrapper->child(u"a.txt"), nullptr);
  EXPECT_EQ(wrapper->child(u"a.txt")->contents, bytes("hi"));
}

TEST(SerializedFileWrapper, HostileDataIsRefused) {
  auto dictionaryOf = [](std::string_view key, std::uint32_t valueLength, const Data& value) {
    Stream s;
    s.text("rtfd").word(0).word(3).word(1).sized(key).word(valueLength);
    s.data.insert(s.data.end(), value.begin(), value.end());
    return s.data;
  };
  const Data file = Stream().word(1).sized("x").data;
  // Folders nested `levels` deep, as the writer makes them.
  auto nested = [](int levels) {
    SerializedObject object;
    object.type = SerializedObject::Type::kDictionary;
    for (int i = 1; i < levels; ++i) {
      SerializedObject outer;
      outer.type = SerializedObject::Type::kDictionary;
      outer.keys.push_back("d");
      outer.values.push_back(std::move(object));
      object = std::move(outer);
    }
    Data out = Stream().text("rtfd").word(0).data;
    serializeObject(object, out);
    return out;
  };
  EXPECT_TRUE(fileWrapperWithSerializedRepresentation(nested(kMaxSerializedDepth)));
  struct Row {
    const char* fault;
    Data data;
  } rows[] = {
      {"shorter than the header", bytes("rtfd")},
      {"version 1", Stream().text("rtfd").word(1).word(3).word(0).data},
      {"version in the upper bytes", Stream().text("rtfd").text(std::string("\0\1\0\0", 4)).data},
      {"a list at the top", Stream().text("rtfd").word(0).word(2).word(0).data},
      {"unknown type", Stream().text("rtfd").word(0).word(9).data},
      {"count far beyond the bytes", Stream().text("rtfd").word(0).word(3).word(0x7fffffff).data},
      {"negative count", Stream().text("rtfd").word(0).word(3).word(0x80000001).data},
      {"value length too short", dictionaryOf("x", 5, file)},
      {"value length too long", dictionaryOf("x", 13, file)},
      {"size beyond the end", dictionaryOf("x", 9, Stream().word(1).word(100).text("x").data)},
      {"pad beyond the end",
       dictionaryOf("x", 16, Stream().word(1).word(0x80000000).word(0).word(1000).data)},
      {"parent folder as name", dictionaryOf("..x/../y", 9, file)},
      {"slash in name", dictionaryOf("a/b", 9, file)},
      {"NUL in name", dictionaryOf(std::string_view("a\0b", 3), 9, file)},
      {"dot as name", dictionaryOf(".DS_Store/..", 9, file)},
      {"invalid UTF-8 name", dictionaryOf("\xff\xfe", 9, file)},
      {"list as child", dictionaryOf("x", 12, Stream().word(2).word(0).data)},
      {"nested one too deep", nested(kMaxSerializedDepth + 1)},
  };
  for (const Row& row : rows) {
    EXPECT_FALSE(fileWrapperWithSerializedRepresentation(row.data)) << row.fault;
  }

  Stream twice;
  twice.text("rtfd").word(0).word(3).word(2).sized("x").sized("x").word(9).word(9);
  twice.data.insert(twice.data.end(), file.begin(), file.end());
  twice.data.insert(twice.data.end(), file.begin(), file.end());
  EXPECT_FALSE(fileWrapperWithSerializedRepresentation(twice.data)) << "a name twice";
}

TEST(SerializedFileWrapper, EveryTruncationIsRefused) {
  const Data data = serializedRepresentation(samplePackage());
  for (std::size_t length = 0; length < data.size(); length += (length < 200 ? 1 : 97)) {
    EXPECT_FALSE(fileWrapperWithSerializedRepresentation(std::span(data).first(length))) << length;
  }
}

TEST(SerializedFileWrapper, TheStreamKeepsUnknownObjectsAndLists) {
  SerializedObject list;
  list.type = SerializedObject::Type::kList;
  list.values.resize(2);
  list.values[0].type = SerializedObject::Type::kString;
  list.values[0].bytes = bytes("\xc3\xa9t\xc3\xa9");
  list.values[1].type = SerializedObject::Type::kUnsupported;
  Data out;
  serializeObject(list, out);
  std::size_t consumed = 0;
  out.push_back(0xEE);  // bytes after the object are not looked at
  std::optional<SerializedObject> back = deserializeObject(out, &consumed);
  ASSERT_TRUE(back);
  EXPECT_EQ(*back, list);
  EXPECT_EQ(consumed, out.size() - 1);
}

TEST(FileWrapper, TakenNamesGetTheNumberedPrefixAndBadNamesAFallback) {
  FileWrapper folder = FileWrapper::directory();
  EXPECT_EQ(folder.addFileWrapper(FileWrapper::regularFile({}, u"TXT.rtf")), u"TXT.rtf");
  EXPECT_EQ(folder.addFileWrapper(FileWrapper::regularFile({}, u"dot.gif")), u"dot.gif");
  EXPECT_EQ(folder.addFileWrapper(FileWrapper::regularFile({}, u"dot.gif")),
            u"1__#$!@%!#__dot.gif");
  EXPECT_EQ(folder.addFileWrapper(FileWrapper::regularFile({}, u"dot.gif")),
            u"2__#$!@%!#__dot.gif");
  EXPECT_EQ(folder.addFileWrapper(FileWrapper::regularFile({}, u"../etc")), u"Attachment");
  EXPECT_EQ(folder.addFileWrapper(FileWrapper::regularFile({}, u"")), u"1__#$!@%!#__Attachment");
  ASSERT_NE(folder.child(u"2__#$!@%!#__dot.gif"), nullptr);

  // A name handed out before is skipped even when the counter would reach it.
  FileWrapper other = FileWrapper::directory();
  other.addFileWrapper(FileWrapper::regularFile({}, u"1__#$!@%!#__a"));
  other.addFileWrapper(FileWrapper::regularFile({}, u"a"));
  EXPECT_EQ(other.addFileWrapper(FileWrapper::regularFile({}, u"a")), u"2__#$!@%!#__a");

  for (std::u16string_view bad :
       {std::u16string_view(u""), std::u16string_view(u"."), std::u16string_view(u".."),
        std::u16string_view(u"a/b"), std::u16string_view(u"a\0b", 3)}) {
    EXPECT_FALSE(isValidFilename(bad));
  }
  EXPECT_TRUE(isValidFilename(u"Total duplicate rows.png"));
}

class FileWrapperOnDisk : public ::testing::Test {
 protected:
  std::u16string path(const std::string& name) const {
    return utf8ToUtf16((scratch_ / name).string());
  }
  std::vector<std::string> entries() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(scratch_.path())) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  ferncast::testing::ScratchDirectory scratch_{"filewrapper"};
};

TEST_F(FileWrapperOnDisk, PackageToDataToPackageKeepsEveryFileByteForByte) {
  const FileWrapper package = samplePackage();
  ASSERT_TRUE(writeFileWrapper(package, path("a.rtfd")));
  std::optional<FileWrapper> read = fileWrapperWithPath(path("a.rtfd"));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->filename, u"a.rtfd");
  // From disk the children come sorted by name, with their names as preferred names.
  std::vector<std::u16string> names;
  for (const FileWrapper& child : read->children)
    names.push_back(child.filename);
  EXPECT_EQ(names,
            (std::vector<std::u16string>{u"Inner Folder", u"TXT.rtf", u"empty", u"picture.png"}));

  const Data data = serializedRepresentation(*read);
  std::optional<FileWrapper> fromData = fileWrapperWithSerializedRepresentation(data);
  ASSERT_TRUE(fromData);
  ASSERT_TRUE(writeFileWrapper(*fromData, path("b.rtfd")));
  std::optional<FileWrapper> again = fileWrapperWithPath(path("b.rtfd"));
  ASSERT_TRUE(again);
  again->preferredFilename = read->preferredFilename;
  EXPECT_EQ(*again, *read);
  EXPECT_EQ(serializedRepresentation(*again), data);
}

TEST_F(FileWrapperOnDisk, WritingReplacesWhateverWasThereWhole) {
  FileWrapper old = FileWrapper::directory();
  old.addFileWrapper(FileWrapper::regularFile(bytes("old"), u"TXT.rtf"));
  old.addFileWrapper(FileWrapper::regularFile(bytes("stale"), u"stale.png"));
  ASSERT_TRUE(writeFileWrapper(old, path("p.rtfd")));
  FileWrapper fresh = FileWrapper::directory();
  fresh.addFileWrapper(FileWrapper::regularFile(bytes("new"), u"TXT.rtf"));
  ASSERT_TRUE(writeFileWrapper(fresh, path("p.rtfd")));
  std::optional<FileWrapper> read = fileWrapperWithPath(path("p.rtfd"));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->children.size(), 1u);
  EXPECT_EQ(read->child(u"TXT.rtf")->contents, bytes("new"));

  // A plain file in the way is replaced too, and no temporary is left beside it.
  std::ofstream(scratch_ / "q.rtfd") << "a file";
  ASSERT_TRUE(writeFileWrapper(fresh, path("q.rtfd")));
  EXPECT_TRUE(fs::is_directory(scratch_ / "q.rtfd"));
  EXPECT_EQ(entries(), (std::vector<std::string>{"p.rtfd", "q.rtfd"}));
}

TEST_F(FileWrapperOnDisk, FailedWritesLeaveNothingAndStaleTemporariesAreCleared) {
  FileWrapper bad = FileWrapper::directory();
  FileWrapper child = FileWrapper::regularFile(bytes("x"));
  child.filename = u"../escape";
  bad.children.push_back(child);
  EXPECT_FALSE(writeFileWrapper(bad, path("bad.rtfd")));
  EXPECT_FALSE(writeFileWrapper(samplePackage(), path("missing/folder.rtfd")));
  EXPECT_TRUE(entries().empty());

  // A temporary of a writer that died (no such process) goes at the next write of that path; one
  // of a live process stays.
  fs::create_directories(scratch_ / ".p.rtfd.ferncast-999999999-abcdef");
  const std::string live = ".p.rtfd.ferncast-" + std::to_string(getppid()) + "-abcdef";
  fs::create_directories(scratch_ / live);
  ASSERT_TRUE(writeFileWrapper(samplePackage(), path("p.rtfd")));
  EXPECT_EQ(entries(), (std::vector<std::string>{live, "p.rtfd"}));
}

TEST_F(FileWrapperOnDisk, LinksAreKeptAsLinksAndOtherFilesAreRefused) {
  fs::create_directories(scratch_ / "p.rtfd");
  fs::create_symlink("/etc/passwd", scratch_ / "p.rtfd" / "link");
  std::optional<FileWrapper> read = fileWrapperWithPath(path("p.rtfd"));
  ASSERT_TRUE(read);
  ASSERT_TRUE(read->child(u"link"));
  EXPECT_TRUE(read->child(u"link")->isSymbolicLink());
  EXPECT_EQ(read->child(u"link")->contents, bytes("/etc/passwd"));
  EXPECT_FALSE(fileWrapperWithPath(u"/dev/null"));
  EXPECT_FALSE(fileWrapperWithPath(path("absent")));
  FileWrapperReadLimits small;
  small.maxBytes = 10;
  std::ofstream(scratch_ / "p.rtfd" / "big") << "more than ten bytes";
  EXPECT_FALSE(fileWrapperWithPath(path("p.rtfd"), small));
}

}  // namespace
