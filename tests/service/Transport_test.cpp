// Frames and messages of the helper connection, the per-user endpoint address, and the socket
// reader and writer with their limits and deadlines.
#include "service/Transport.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "Classes/BinaryPropertyList.h"
#include "Classes/Unicode.h"

namespace ferncast {
namespace {

std::vector<std::uint8_t> header(std::size_t length) {
  return {static_cast<std::uint8_t>(length >> 24), static_cast<std::uint8_t>(length >> 16),
          static_cast<std::uint8_t>(length >> 8), static_cast<std::uint8_t>(length)};
}

std::vector<std::uint8_t> frameOf(const Value& message) {
  std::vector<std::uint8_t> body;
  EXPECT_TRUE(appendBinaryPropertyList(body, message, 64));
  auto frame = header(body.size());
  frame.insert(frame.end(), body.begin(), body.end());
  return frame;
}

TEST(Transport, RequestsAndRepliesSurviveTheTrip) {
  auto encoded = encodeRequest({7,
                                u"imageWithContentsOfFile:stringFromPDF:canUseSpotlight:",
                                {Value(u"/tmp/a b.png"), Value(true), Value(false)}});
  ASSERT_TRUE(encoded);
  auto frame = encoded->joined();
  auto length = frameBodyLength(frame.data());
  ASSERT_EQ(length, frame.size() - kFrameHeaderLength);
  auto request = decodeRequest(frame.data() + kFrameHeaderLength, *length);
  ASSERT_TRUE(request);
  EXPECT_EQ(request->sequence, 7);
  EXPECT_EQ(request->selector, u"imageWithContentsOfFile:stringFromPDF:canUseSpotlight:");
  EXPECT_EQ(request->arguments, (Array{Value(u"/tmp/a b.png"), Value(true), Value(false)}));

  Reply exception;
  exception.sequence = 3;
  exception.kind = Reply::Kind::kException;
  exception.exceptionName = "NSRangeException";
  exception.exceptionReason = "caf\xc3\xa9";
  Reply nil;
  nil.sequence = 4;
  Reply data;
  data.sequence = 5;
  data.result = Value(Data{1, 2, 3});
  Reply stranger;
  stranger.sequence = 6;
  stranger.kind = Reply::Kind::kDoesNotRespond;
  for (const Reply& reply : {exception, nil, data, stranger}) {
    auto encoded = encodeReply(reply);
    ASSERT_TRUE(encoded);
    auto bytes = encoded->joined();
    auto back = decodeReply(bytes.data() + kFrameHeaderLength, bytes.size() - 4);
    ASSERT_TRUE(back) << reply.sequence;
    EXPECT_EQ(back->sequence, reply.sequence);
    EXPECT_EQ(back->kind, reply.kind);
    EXPECT_EQ(back->result, reply.result);
    EXPECT_EQ(back->exceptionName, reply.exceptionName);
    EXPECT_EQ(back->exceptionReason, reply.exceptionReason);
  }
}

TEST(Transport, LargeDataIsSplicedNotCopiedAndJoinsToTheSameBytes) {
  Data large(200000, 0x5A), small(100, 0x11);
  Reply reply;
  reply.sequence = 2;
  reply.result = Value(
      Dictionary{{u"Rtfd", Value(large)}, {u"Small", Value(small)}, {u"Thumbnail", Value(large)}});
  auto frame = encodeReply(reply);
  ASSERT_TRUE(frame);
  ASSERT_EQ(frame->splices.size(), 2u);
  EXPECT_LT(frame->bytes.size(), 1000u);
  // The same frame written in one piece.
  std::vector<std::uint8_t> whole(kFrameHeaderLength, 0);
  ASSERT_TRUE(appendBinaryPropertyList(whole, frame->message, kMaxNesting));
  auto joined = frame->joined();
  ASSERT_EQ(joined.size(), whole.size());
  EXPECT_EQ(frame->size(), whole.size());
  EXPECT_TRUE(std::equal(joined.begin() + 4, joined.end(), whole.begin() + 4));
  EXPECT_EQ(decodeReply(joined.data() + 4, joined.size() - 4)->result, reply.result);
}

TEST(Transport, FrameLengthsOutsideTheLimitsAreRefused) {
  EXPECT_FALSE(frameBodyLength(header(0).data()));
  EXPECT_EQ(frameBodyLength(header(1).data()), 1u);
  EXPECT_EQ(frameBodyLength(header(kMaxFrameLength).data()), kMaxFrameLength);
  EXPECT_FALSE(frameBodyLength(header(kMaxFrameLength + 1).data()));
  EXPECT_FALSE(frameBodyLength(std::vector<std::uint8_t>{0xFF, 0xFF, 0xFF, 0xFF}.data()));
}

TEST(Transport, MessagesOfTheWrongShapeAreRefused) {
  Value arguments = Array{Value(u"x")};
  struct Row {
    const char* fault;
    Value message;
  };
  const Row requests[] = {
      {"no dictionary", Value(Array{})},
      {"no sequence", Dictionary{{u"Selector", Value(u"a:")}, {u"Arguments", arguments}}},
      {"no selector", Dictionary{{u"Sequence", Value(1)}, {u"Arguments", arguments}}},
      {"empty selector",
       Dictionary{{u"Sequence", Value(1)}, {u"Selector", Value(u"")}, {u"Arguments", arguments}}},
      {"arguments no array",
       Dictionary{{u"Sequence", Value(1)}, {u"Selector", Value(u"a:")}, {u"Arguments", Value(1)}}},
      {"sequence no integer",
       Dictionary{
           {u"Sequence", Value(u"1")}, {u"Selector", Value(u"a:")}, {u"Arguments", arguments}}},
  };
  for (const Row& row : requests) {
    auto frame = frameOf(row.message);
    EXPECT_FALSE(decodeRequest(frame.data() + 4, frame.size() - 4)) << row.fault;
  }
  Value exception = Dictionary{{u"Name", Value(u"N")}, {u"Reason", Value(u"R")}};
  const Row replies[] = {
      {"no sequence", Dictionary{{u"Result", Value(1)}}},
      {"result and exception",
       Dictionary{{u"Sequence", Value(1)}, {u"Result", Value(1)}, {u"Exception", exception}}},
      {"exception without reason",
       Dictionary{{u"Sequence", Value(1)}, {u"Exception", Dictionary{{u"Name", Value(u"N")}}}}},
  };
  for (const Row& row : replies) {
    auto frame = frameOf(row.message);
    EXPECT_FALSE(decodeReply(frame.data() + 4, frame.size() - 4)) << row.fault;
  }
}

TEST(Transport, MessagesBeyondTheNestingLimitAreNotEncoded) {
  Value deep = Array{};
  for (int i = 0; i < 40; ++i)
    deep = Array{deep};
  Reply reply;
  reply.result = deep;
  EXPECT_FALSE(encodeReply(reply));
  EXPECT_FALSE(encodeRequest({1, u"a:", {deep}}));
}

TEST(Endpoint, NamesThatAreNoPlainFileNameAreRefused) {
  const std::u16string names[] = {
      u"", u".", u"..", u"a/b", u"/abs", std::u16string(u"a\0b", 3), std::u16string(200, u'x')};
  for (const std::u16string& name : names) {
    EXPECT_FALSE(endpointFor(name)) << utf16ToUtf8(name);
  }
  auto endpoint = endpointFor(u"FerncastHelper32");
  ASSERT_TRUE(endpoint);
  EXPECT_EQ(endpoint->socketPath, endpoint->folder + "/FerncastHelper32");
  EXPECT_EQ(endpoint->lockPath, endpoint->socketPath + ".lock");
  EXPECT_STREQ(endpoint->address.sun_path, endpoint->socketPath.c_str());
}

// XDG_RUNTIME_DIR for the length of a test.
class RuntimeFolder : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* saved = std::getenv("XDG_RUNTIME_DIR");
    if (saved) saved_ = saved;
    root_ = ::testing::TempDir() + "endpoint-test-XXXXXX";
    ASSERT_TRUE(mkdtemp(root_.data()));
  }
  void TearDown() override {
    if (saved_) {
      setenv("XDG_RUNTIME_DIR", saved_->c_str(), 1);
    } else {
      unsetenv("XDG_RUNTIME_DIR");
    }
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }
  std::optional<std::string> saved_;
  std::string root_;
};

TEST_F(RuntimeFolder, OnlyAPrivateRuntimeFolderOfThisUserIsUsed) {
  std::string fallback = "/tmp/ferncast-" + std::to_string(geteuid());
  std::string shared = root_ + "/shared";
  ASSERT_EQ(mkdir(shared.c_str(), 0755), 0);
  std::string link = root_ + "/link";
  ASSERT_EQ(symlink(root_.c_str(), link.c_str()), 0);
  struct Row {
    const char* fault;
    std::optional<std::string> runtime;
    std::string folder;
  };
  const Row rows[] = {
      {"private", root_, root_ + "/ferncast"},
      {"unset", std::nullopt, fallback},
      {"relative", "relative/folder", fallback},
      {"open to others", shared, fallback},
      {"a link", link, fallback},
      {"missing", root_ + "/missing", fallback},
  };
  for (const Row& row : rows) {
    if (row.runtime) {
      setenv("XDG_RUNTIME_DIR", row.runtime->c_str(), 1);
    } else {
      unsetenv("XDG_RUNTIME_DIR");
    }
    EXPECT_EQ(endpointFor(u"Name")->folder, row.folder) << row.fault;
  }
}

TEST_F(RuntimeFolder, FolderOfAnotherUserOrOpenToOthersIsRefused) {
  auto folder = [&](const char* name, mode_t mode, uid_t owner) {
    std::string path = root_ + "/" + name;
    if (mkdir(path.c_str(), 0700) != 0 || chmod(path.c_str(), mode) != 0 ||
        (owner != geteuid() && chown(path.c_str(), owner, owner) != 0)) {
      ADD_FAILURE() << "cannot make " << path;
    }
    return path;
  };
  std::string file = root_ + "/file";
  std::ofstream(file) << "x";
  struct Row {
    std::string path;
    std::string why;  // empty when accepted
  };
  std::vector<Row> rows = {
      {root_ + "/made", ""},
      {folder("ours", 0700, geteuid()), ""},
      {folder("open", 0755, geteuid()), "is open to other users (mode 0755)"},
      {file, "is no folder"},
  };
  if (geteuid() == 0) rows.push_back({folder("strangers", 0700, 65534), "belongs to user 65534"});
  for (const Row& row : rows) {
    std::string why;
    EXPECT_EQ(preparePrivateFolder(row.path, why), row.why.empty()) << row.path;
    EXPECT_NE(why.find(row.why), std::string::npos) << why;
  }
  struct stat facts {};
  ASSERT_EQ(stat((root_ + "/made").c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode & 0777, 0700u);
}

class SocketPair : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, fds_), 0);
  }
  void TearDown() override {
    if (fds_[0] >= 0) close(fds_[0]);
    if (fds_[1] >= 0) close(fds_[1]);
  }
  void write(const std::vector<std::uint8_t>& bytes) {
    ASSERT_EQ(send(fds_[1], bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
  }
  int fds_[2] = {-1, -1};
};

TEST_F(SocketPair, FramesArriveWholeWhateverTheirPieces) {
  auto first = encodeRequest({1, u"supportsFile:", {Value(u"/a")}})->joined();
  auto second = encodeRequest({2, u"supportsFile:", {Value(u"/b")}})->joined();
  FrameReader reader{0};
  // Byte by byte: nothing until the last byte is in.
  for (std::size_t i = 0; i + 1 < first.size(); ++i) {
    write({first[i]});
    ASSERT_EQ(reader.readAvailable(fds_[0]), FrameReader::Status::kWouldBlock) << i;
  }
  // The last byte together with the whole second frame.
  std::vector<std::uint8_t> rest{first.back()};
  rest.insert(rest.end(), second.begin(), second.end());
  write(rest);
  ASSERT_EQ(reader.readAvailable(fds_[0]), FrameReader::Status::kFrame);
  EXPECT_EQ(decodeRequest(reader.body(), reader.bodyLength())->sequence, 1);
  reader.consumeFrame();
  ASSERT_EQ(reader.readAvailable(fds_[0]), FrameReader::Status::kFrame);
  EXPECT_EQ(decodeRequest(reader.body(), reader.bodyLength())->sequence, 2);
  reader.consumeFrame();
  EXPECT_FALSE(reader.hasPartialFrame());
}

TEST_F(SocketPair, FramesReadTogetherAreKeptApart) {
  auto both = encodeRequest({1, u"supportsFile:", {Value(u"/a")}})->joined();
  auto second = encodeRequest({2, u"supportsFile:", {Value(u"/b")}})->joined();
  both.insert(both.end(), second.begin(), second.end());
  both.push_back(0);  // the first byte of a third frame
  write(both);
  FrameReader reader{0};
  ASSERT_EQ(reader.readAvailable(fds_[0]), FrameReader::Status::kFrame);
  EXPECT_EQ(decodeRequest(reader.body(), reader.bodyLength())->sequence, 1);
  reader.consumeFrame();
  ASSERT_TRUE(reader.hasFrame());  // already buffered, nothing more to read
  EXPECT_EQ(decodeRequest(reader.body(), reader.bodyLength())->sequence, 2);
  reader.consumeFrame();
  EXPECT_FALSE(reader.hasFrame());
  EXPECT_TRUE(reader.hasPartialFrame());
}

TEST_F(SocketPair, LargeFrameArrivesIntact) {
  Data payload(3 << 20);
  for (std::size_t i = 0; i < payload.size(); ++i)
    payload[i] = static_cast<std::uint8_t>(i * 31);
  Reply reply;
  reply.sequence = 9;
  reply.result = Value(payload);
  auto frame = encodeReply(reply);
  ASSERT_TRUE(frame);
  std::thread writer([&] {
    EXPECT_EQ(sendFrame(fds_[1], std::move(*frame), deadlineAfter(5)), FrameWriter::Status::kDone);
  });
  FrameReader reader{0};
  ASSERT_EQ(reader.readFrame(fds_[0], deadlineAfter(5)), FrameReader::Status::kFrame);
  writer.join();
  auto back = decodeReply(reader.body(), reader.bodyLength());
  ASSERT_TRUE(back);
  EXPECT_EQ(back->result, Value(payload));
}

TEST_F(SocketPair, OversizedHeaderIsReportedBeforeTheBody) {
  write(header(kMaxFrameLength + 1));
  FrameReader reader{0};
  EXPECT_EQ(reader.readAvailable(fds_[0]), FrameReader::Status::kBadLength);
}

TEST_F(SocketPair, EndOfStreamAndDeadlineAreReported) {
  FrameReader reader{0};
  write(header(100));
  EXPECT_EQ(reader.readFrame(fds_[0], deadlineAfter(0.05)), FrameReader::Status::kTimedOut);
  EXPECT_TRUE(reader.hasPartialFrame());
  close(fds_[1]);
  fds_[1] = -1;
  EXPECT_EQ(reader.readFrame(fds_[0], deadlineAfter(5)), FrameReader::Status::kClosed);
}

TEST_F(SocketPair, WriterGivesUpAtItsDeadlineAndOnAClosedPeer) {
  auto lots = [] {
    Reply reply;
    reply.result = Value(Data(8 << 20));  // more than the socket buffers hold
    return std::move(*encodeReply(reply));
  };
  EXPECT_EQ(sendFrame(fds_[1], lots(), deadlineAfter(0.05)), FrameWriter::Status::kTimedOut);
  close(fds_[0]);
  fds_[0] = -1;
  EXPECT_EQ(sendFrame(fds_[1], lots(), deadlineAfter(5)), FrameWriter::Status::kClosed);
}

}  // namespace
}  // namespace ferncast
