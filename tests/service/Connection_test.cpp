// The helper connection with real processes and sockets: the helper answers, serialises
// requests, hands back exceptions, survives hostile frames and slow or vanished clients, and
// talks only to its own user.
#include "service/Connection.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <thread>

#include "Classes/BinaryPropertyList.h"
#include "Classes/Log.h"
#include "service/FerncastHelper.h"
#include "service/QuillImExport.h"
#include "tests/service/TestHelperProcess.h"

namespace ferncast {
namespace {

using namespace ferncast::testing;
using Clock = std::chrono::steady_clock;

constexpr uid_t kNobody = 65534;

std::int64_t ordinal(Proxy& proxy, std::u16string_view selector, Array arguments = {}) {
  auto result = proxy.perform(selector, std::move(arguments));
  return result && result->is<std::int64_t>() ? *result->as<std::int64_t>() : -1;
}

// A test helper under a fresh name, and a proxy to it.
class HelperConnection : public ::testing::Test {
 protected:
  void start(std::string timeout = "15") {
    helper_ = std::make_unique<HelperProcess>(
        HelperProcess::Settings{.name = name_, .timeout = std::move(timeout)});
    proxy_ = waitForProxy(name_);
    ASSERT_TRUE(proxy_) << helper_->log();
  }
  bool helperAnswers() {
    auto proxy = Proxy::rootProxyForConnectionWithRegisteredName(name_);
    return proxy && proxy->perform(u"ordinal", {}).has_value();
  }

  std::u16string name_ = uniqueName();
  std::unique_ptr<HelperProcess> helper_;
  std::shared_ptr<Proxy> proxy_;
};

TEST(HelperProcessTest, RealHelperAnswersEveryOperationWithNilOrNo) {
  HelperProcess helper({.executable = kHelperPath});
  auto proxy = waitForProxy(kFerncastHelperName);
  ASSERT_TRUE(proxy);
  EXPECT_EQ(proxy->processIdentifier(), helper.pid());
  QuillImExportProxy ferncast(proxy);
  EXPECT_FALSE(ferncast.PDFImageRepOfFile(u"/missing.pdf"));
  EXPECT_FALSE(ferncast.imageWithContentsOfFile(u"/missing.png", true, true));
  EXPECT_FALSE(ferncast.attributed(true, Data{'%', 'P', 'D', 'F'}));
  EXPECT_FALSE(ferncast.posterImageForMovieWithFile(u"/missing.mov"));
  EXPECT_FALSE(ferncast.attributedStringWithContentsOfFile(u"/missing.rtf"));
  // A web archive that cannot be read gives an empty reply, not nil.
  EXPECT_EQ(ferncast.searchableTextOfWebArchive(u"/missing.webarchive"), Dictionary{});
  EXPECT_FALSE(ferncast.writeRTFDData(std::nullopt, u"/tmp/never.rtfd"));
  EXPECT_FALSE(
      ferncast.RTFDWithHTML(Data{'<', 'p', '>'}, u"http://example.com/", false, std::nullopt));
  EXPECT_FALSE(ferncast.metaDataForFile(u"/missing.txt"));
  EXPECT_FALSE(ferncast.supportsFile(u"/missing.txt"));
  // What the launcher asks about: the real helper has no "stillBusy".
  EXPECT_EQ(proxy->send(u"stillBusy", {}).kind, Reply::Kind::kDoesNotRespond);
}

TEST(HelperProcessTest, SecondInstanceTakesTheNameOverWhenTheFirstEnds) {
  // SIGKILL leaves the socket file behind; SIGTERM lets the first helper give the name up.
  for (int signal : {SIGTERM, SIGKILL}) {
    std::u16string name = uniqueName();
    HelperProcess first({.name = name});
    ASSERT_TRUE(waitForProxy(name));
    HelperProcess second({.name = name});
    ASSERT_TRUE(second.waitForLog("running without a name")) << second.log();
    auto proxy = Proxy::rootProxyForConnectionWithRegisteredName(name);
    ASSERT_TRUE(proxy);
    EXPECT_EQ(proxy->processIdentifier(), first.pid());
    kill(first.pid(), signal);
    first.task().waitUntilExit(5);
    proxy = waitForProxy(name);
    ASSERT_TRUE(proxy) << "the name was not taken over after signal " << signal;
    EXPECT_EQ(proxy->processIdentifier(), second.pid());
  }
}

TEST(HelperProcessTest, TerminatedHelperGivesUpItsNameAndStillDeliversRepliesOnTheirWay) {
  std::u16string name = uniqueName();
  HelperProcess first({.name = name});
  ASSERT_TRUE(waitForProxy(name));
  int reader = connectRaw(name);
  ASSERT_GE(reader, 0);
  constexpr std::size_t kLength = std::size_t{16} << 20;  // more than the socket buffers hold
  ASSERT_TRUE(sendRaw(reader, encodeRequest({1, u"dataOfLength:", {Value(kLength)}})->joined()));
  pollfd replyBegun{reader, POLLIN, 0};
  ASSERT_EQ(poll(&replyBegun, 1, 5000), 1);
  first.task().terminate();
  HelperProcess second({.name = name});
  ASSERT_TRUE(second.waitForLog("registered")) << "the name was not free at once";
  auto reply = receiveReply(reader);
  ASSERT_TRUE(reply);
  ASSERT_TRUE(reply->result && reply->result->is<Data>());
  EXPECT_EQ(reply->result->as<Data>()->size(), kLength);
  close(reader);
  EXPECT_TRUE(first.task().waitUntilExit(5));
  EXPECT_EQ(first.task().terminationStatus(), 0);
}

TEST(HelperProcessTest, TerminatingAHelperInAnOperationEndsItAtOnce) {
  // The operation may hang: the launcher wants it gone and the name free.
  std::u16string name = uniqueName();
  HelperProcess first({.name = name});
  auto proxy = waitForProxy(name);
  ASSERT_TRUE(proxy);
  auto call = std::async(std::launch::async, [&] {
    try {
      return proxy->perform(u"sleepFor:", {Value(30.0)}).has_value();
    } catch (const ConnectionError&) {
      return false;
    }
  });
  ASSERT_TRUE(first.waitForLog("sleeping"));
  first.task().terminate();
  EXPECT_TRUE(first.task().waitUntilExit(5));
  EXPECT_EQ(first.task().terminationStatus(), SIGTERM);
  EXPECT_FALSE(call.get()) << "the caller got an answer";
  HelperProcess second({.name = name});
  EXPECT_TRUE(second.waitForLog("registered"));
}

TEST_F(HelperConnection, UnknownOperationIsAnsweredDoesNotRespond) {
  start();
  EXPECT_EQ(proxy_->send(u"noSuchOperation:", {Value(1)}).kind, Reply::Kind::kDoesNotRespond);
  try {
    proxy_->perform(u"noSuchOperation:", {});
    FAIL() << "no exception";
  } catch (const RemoteException& e) {
    EXPECT_EQ(e.name(), "NSInvalidArgumentException");
  }
  EXPECT_TRUE(helperAnswers());
}

TEST_F(HelperConnection, ExceptionsOfUnguardedOperationsReachTheCaller) {
  start();
  QuillImExportProxy ferncast(proxy_);
  struct Row {
    std::u16string path;
    std::string name;
    std::string reason;
  };
  const Row rows[] = {
      {u"/raise/x", "NSRangeException", "raised on request"},
      {u"/throw/x", "std::out_of_range", "thrown on request"},
  };
  for (const Row& row : rows) {
    try {
      ferncast.supportsFile(row.path);
      ADD_FAILURE() << row.name;
    } catch (const RemoteException& e) {
      EXPECT_EQ(e.name(), row.name);
      EXPECT_EQ(e.reason(), row.reason);
    }
  }
  EXPECT_FALSE(ferncast.supportsFile(u"/fine"));
}

TEST_F(HelperConnection, ArgumentsOfTheWrongKindsAreRefusedOnBothSides) {
  start();
  // Unchecked by the client: the helper answers with an exception and goes on.
  Reply reply = proxy_->send(u"supportsFile:", {Value(42)});
  EXPECT_EQ(reply.kind, Reply::Kind::kException);
  EXPECT_EQ(reply.exceptionName, "NSInvalidArgumentException");
  reply = proxy_->send(u"writeRTFDData:toFile:", {Value(u"no data")});
  EXPECT_EQ(reply.kind, Reply::Kind::kException);
  // With the protocol set, the proxy refuses before sending anything.
  proxy_->setProtocolForProxy(&kQuillImExport);
  EXPECT_THROW(proxy_->perform(u"supportsFile:", {Value(true)}), std::invalid_argument);
  EXPECT_EQ(ordinal(*proxy_, u"ordinal"), 1);
}

TEST_F(HelperConnection, ClientsAreServedOneAfterTheOther) {
  start();
  auto other = waitForProxy(name_);
  ASSERT_TRUE(other);
  struct Row {
    const char16_t* slow;  // holds the helper while the other client asks
  };
  std::int64_t expected = 1;
  for (Row row : {Row{u"sleepFor:"}, Row{u"runLoopFor:"}}) {
    auto slow =
        std::async(std::launch::async, [&] { return ordinal(*proxy_, row.slow, {Value(0.3)}); });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    std::int64_t quick = ordinal(*other, u"ordinal");
    EXPECT_EQ(slow.get(), expected) << "the slow request finished first";
    EXPECT_EQ(quick, expected + 1) << "the quick request waited for it";
    expected += 2;
  }
}

TEST_F(HelperConnection, SlowOperationTimesOutTheCallerAndTheHelperGoesOn) {
  start();
  proxy_->setRequestTimeout(0.2);
  proxy_->setReplyTimeout(0.2);
  try {
    proxy_->perform(u"sleepFor:", {Value(0.6)});
    FAIL() << "no time-out";
  } catch (const ConnectionError& e) {
    EXPECT_EQ(e.kind(), ConnectionError::Kind::kTimedOut);
  }
  ASSERT_TRUE(proxy_->isValid());
  proxy_->setReplyTimeout(5);
  // The late reply of the slow request (1) is skipped; this one is the second answer.
  EXPECT_EQ(ordinal(*proxy_, u"ordinal"), 2);
}

TEST_F(HelperConnection, HelperDyingMidRequestFailsTheCallerAtOnce) {
  start();
  proxy_->setReplyTimeout(60);
  auto started = Clock::now();
  try {
    proxy_->perform(u"exitNow", {});
    FAIL() << "no error";
  } catch (const ConnectionError& e) {
    EXPECT_EQ(e.kind(), ConnectionError::Kind::kClosed);
  }
  EXPECT_LT(Clock::now() - started, std::chrono::seconds(30)) << "waited for the time-out";
  EXPECT_FALSE(proxy_->isValid());
  EXPECT_THROW(proxy_->perform(u"ordinal", {}), ConnectionError);
}

TEST_F(HelperConnection, LargeResultsArriveWhole) {
  start();
  auto result = proxy_->perform(u"dataOfLength:", {Value(16 << 20)});
  ASSERT_TRUE(result && result->is<Data>());
  const Data& data = *result->as<Data>();
  ASSERT_EQ(data.size(), std::size_t{16} << 20);
  EXPECT_EQ(data[12345], static_cast<std::uint8_t>(12345 * 7));
  EXPECT_EQ(data.back(), static_cast<std::uint8_t>((data.size() - 1) * 7));
}

std::vector<std::uint8_t> rawFrame(const std::vector<std::uint8_t>& body) {
  std::vector<std::uint8_t> frame(kFrameHeaderLength + body.size());
  for (std::size_t i = 0; i < kFrameHeaderLength; ++i) {
    frame[i] = static_cast<std::uint8_t>(body.size() >> (8 * (kFrameHeaderLength - 1 - i)));
  }
  std::copy(body.begin(), body.end(), frame.begin() + kFrameHeaderLength);
  return frame;
}

std::vector<std::uint8_t> plist(const Value& value) {
  std::vector<std::uint8_t> bytes;
  appendBinaryPropertyList(bytes, value, 100);
  return bytes;
}

TEST_F(HelperConnection, HostileFramesCloseOnlyTheirConnection) {
  start("0.5");
  long before = peakResidentKilobytes(helper_->pid());
  Value deep = Array{};
  for (int i = 0; i < 40; ++i)
    deep = Array{deep};
  auto request = [](Value arguments) {
    return Dictionary{{u"Sequence", Value(1)},
                      {u"Selector", Value(u"supportsFile:")},
                      {u"Arguments", std::move(arguments)}};
  };
  auto bigData = [](std::size_t bytes) {
    std::vector<std::uint8_t> frame = rawFrame(std::vector<std::uint8_t>(bytes, 0));
    frame.resize(1024);  // announced in full, sent in part
    return frame;
  };
  auto truncated = [](std::vector<std::uint8_t> frame) {
    frame.resize(frame.size() / 2);
    return frame;
  };
  struct Row {
    const char* fault;
    std::vector<std::uint8_t> bytes;
  };
  const Row rows[] = {
      {"oversized header", {0x04, 0x00, 0x00, 0x01}},
      {"length zero", {0, 0, 0, 0, 1, 2, 3}},
      {"truncated frame, then silence", truncated(rawFrame(plist(Value(request(Array{})))))},
      {"60 MiB announced, little sent", bigData(60 << 20)},
      {"no property list", rawFrame({'h', 'e', 'l', 'l', 'o'})},
      {"nested too deeply", rawFrame(plist(Value(request(Array{deep}))))},
      {"no dictionary", rawFrame(plist(Value(Array{Value(u"supportsFile:")})))},
      {"no selector", rawFrame(plist(Value(Dictionary{{u"Sequence", Value(1)}})))},
  };
  for (const Row& row : rows) {
    int fd = connectRaw(name_);
    ASSERT_GE(fd, 0) << row.fault;
    EXPECT_TRUE(sendRaw(fd, row.bytes)) << row.fault;
    Received received = receiveUntilClosed(fd);
    EXPECT_TRUE(received.closed) << row.fault;
    EXPECT_TRUE(received.bytes.empty()) << row.fault;
    close(fd);
    EXPECT_TRUE(helperAnswers()) << row.fault;
  }
  // Well-formed frames with a bad request get an answer, and the connection stays.
  int fd = connectRaw(name_);
  ASSERT_GE(fd, 0);
  ASSERT_TRUE(sendRaw(fd, rawFrame(plist(Value(request(Array{Value(7)}))))));
  auto reply = receiveReply(fd);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->kind, Reply::Kind::kException);
  ASSERT_TRUE(sendRaw(fd, encodeRequest({2, u"noSuchOperation:", {}})->joined()));
  reply = receiveReply(fd);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->kind, Reply::Kind::kDoesNotRespond);
  close(fd);

  long after = peakResidentKilobytes(helper_->pid());
  ASSERT_GT(before, 0);
  // Only the pages that bytes arrived in become resident, with or without a sanitizer.
  EXPECT_LT(after - before, 4096) << "refused frames made the helper grow";
}

TEST_F(HelperConnection, IdleConnectionsCannotLockOutANewClient) {
  start();
  // More silent connections than the helper keeps: the longest idle give way to newcomers.
  std::vector<int> idle;
  for (int i = 0; i < 70; ++i) {
    idle.push_back(connectRaw(name_));
    ASSERT_GE(idle.back(), 0);
  }
  auto late = Proxy::rootProxyForConnectionWithRegisteredName(name_);
  ASSERT_TRUE(late);
  EXPECT_EQ(ordinal(*late, u"ordinal"), 1);
  // The first client was idle the longest; it is still served.
  EXPECT_EQ(ordinal(*proxy_, u"ordinal"), 2);
  for (int fd : idle)
    close(fd);
}

TEST_F(HelperConnection, IdleConnectionsAreClosedAndProxiesFindTheirHelperAgain) {
  helper_ = std::make_unique<HelperProcess>(HelperProcess::Settings{.name = name_, .idle = "0.2"});
  proxy_ = waitForProxy(name_);
  ASSERT_TRUE(proxy_);
  EXPECT_EQ(ordinal(*proxy_, u"ordinal"), 1);
  int idle = connectRaw(name_);
  ASSERT_GE(idle, 0);
  EXPECT_TRUE(receiveUntilClosed(idle).closed);  // and the proxy's connection with it
  close(idle);
  EXPECT_EQ(ordinal(*proxy_, u"ordinal"), 2);
  // A proxy does not follow the name to another helper.
  helper_.reset();
  HelperProcess other({.name = name_});
  ASSERT_TRUE(waitForProxy(name_));
  EXPECT_THROW(ordinal(*proxy_, u"ordinal"), ConnectionError);
}

TEST_F(HelperConnection, ClientThatNeverReadsDoesNotHoldUpOthers) {
  start("30");
  // Asks for more than the socket buffers hold, then reads nothing.
  int stalled = connectRaw(name_);
  ASSERT_GE(stalled, 0);
  ASSERT_TRUE(sendRaw(stalled, encodeRequest({1, u"dataOfLength:", {Value(8 << 20)}})->joined()));
  pollfd replyBegun{stalled, POLLIN, 0};
  ASSERT_EQ(poll(&replyBegun, 1, 5000), 1);
  proxy_->setReplyTimeout(10);
  EXPECT_EQ(ordinal(*proxy_, u"ordinal"), 1) << "waited behind the stalled reply";
  close(stalled);
}

TEST_F(HelperConnection, ReplyNotTakenWithinTheTimeOutClosesOnlyThatClient) {
  start("0.3");
  int stalled = connectRaw(name_);
  ASSERT_GE(stalled, 0);
  ASSERT_TRUE(sendRaw(stalled, encodeRequest({1, u"dataOfLength:", {Value(8 << 20)}})->joined()));
  EXPECT_TRUE(helper_->waitForLog("the reply was not taken within 0.3 s")) << helper_->log();
  Received received = receiveUntilClosed(stalled);
  EXPECT_TRUE(received.closed);
  EXPECT_LT(received.bytes.size(), std::size_t{8} << 20);
  close(stalled);
  EXPECT_TRUE(helperAnswers());
}

TEST_F(HelperConnection, UnfinishedFramesOfManyClientsAreCappedInMemory) {
  start();
  long before = peakResidentKilobytes(helper_->pid());
  // Each client announces a large request, sends part of it and stops.
  std::vector<std::uint8_t> part(std::size_t{8} << 20);
  std::size_t announced = std::size_t{60} << 20;
  for (std::size_t i = 0; i < kFrameHeaderLength; ++i)
    part[i] = static_cast<std::uint8_t>(announced >> (8 * (kFrameHeaderLength - 1 - i)));
  std::vector<int> clients;
  for (int i = 0; i < 24; ++i) {
    int fd = connectRaw(name_);
    ASSERT_GE(fd, 0);
    (void)sendRaw(fd, part);  // cut short once the helper will hold no more
    clients.push_back(fd);
  }
  EXPECT_TRUE(helperAnswers());
  EXPECT_TRUE(helper_->waitForLog("requests of all clients would hold more than"));
  long grown = peakResidentKilobytes(helper_->pid()) - before;
  EXPECT_LT(grown, 176 << 10) << "kilobytes held for 24 unfinished requests of 8 MiB";
  for (int fd : clients)
    close(fd);
}

// Another user cannot enter the endpoint's folder; these tests open a way in, as a careless
// administrator might, to see that both ends still check who is at the other end.
class AnotherUser : public HelperConnection {
 protected:
  void SetUp() override {
    if (geteuid() != 0 || access("/usr/bin/setpriv", X_OK) != 0) {
      GTEST_SKIP() << "needs to run as root with setpriv, to switch users";
    }
  }
  // A path in /tmp, which every user may enter.
  std::string publicPath() {
    return "/tmp/ferncast-test-" + std::to_string(getpid()) + "-" + std::to_string(++paths_);
  }
  int paths_ = 0;
};

TEST_F(AnotherUser, CannotTakeTheNameFirst) {
  auto endpoint = endpointFor(name_);
  ASSERT_TRUE(endpoint);
  std::string why;
  ASSERT_TRUE(preparePrivateFolder(endpoint->folder, why)) << why;
  HelperProcess squatter(
      {.mode = "squat",
       .squatPath = endpoint->socketPath,
       .prefix = {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"}});
  ASSERT_TRUE(squatter.waitForLog("cannot squat: Permission denied")) << squatter.log();
  start();
  EXPECT_EQ(proxy_->processIdentifier(), helper_->pid());
  EXPECT_EQ(ordinal(*proxy_, u"ordinal"), 1);
}

TEST_F(AnotherUser, ListenerOfAnotherUserIsRefused) {
  std::string stranger = publicPath();
  HelperProcess squatter(
      {.mode = "squat",
       .squatPath = stranger,
       .prefix = {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"}});
  ASSERT_TRUE(squatter.waitForLog("squatting")) << squatter.log();
  auto endpoint = endpointFor(name_);
  std::string why;
  ASSERT_TRUE(preparePrivateFolder(endpoint->folder, why)) << why;
  ASSERT_EQ(rename(stranger.c_str(), endpoint->socketPath.c_str()), 0) << strerror(errno);
  std::string logged;
  setLogSink([&](std::string_view text) { logged += text; });
  auto proxy = Proxy::rootProxyForConnectionWithRegisteredName(name_);
  setLogSink({});
  EXPECT_FALSE(proxy);
  EXPECT_NE(logged.find("it belongs to user 65534"), std::string::npos) << logged;
  unlink(endpoint->socketPath.c_str());
  EXPECT_EQ(squatter.log().find("received"), std::string::npos) << "the stranger got a request";
}

TEST_F(AnotherUser, ClientOfAnotherUserGetsNothing) {
  start();
  std::string way = publicPath();
  ASSERT_EQ(link(endpointFor(name_)->socketPath.c_str(), way.c_str()), 0) << strerror(errno);
  ASSERT_EQ(chmod(way.c_str(), 0777), 0);
  int status[2];
  ASSERT_EQ(pipe(status), 0);
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // Another user: connect without checks, send a valid request, report what comes back.
    char outcome = 'x';
    if (setresgid(kNobody, kNobody, kNobody) == 0 && setresuid(kNobody, kNobody, kNobody) == 0) {
      int fd = connectPath(way);
      if (fd >= 0) {
        // The helper may have closed the connection before the request is even sent.
        bool sent = sendRaw(fd, encodeRequest({1, u"ordinal", {}})->joined());
        Received received = receiveUntilClosed(fd);
        outcome = (!sent || received.closed) && received.bytes.empty() ? 'n' : 'a';
      }
    }
    ssize_t ignored = write(status[1], &outcome, 1);
    (void)ignored;
    _exit(0);
  }
  close(status[1]);
  char outcome = 0;
  ASSERT_EQ(read(status[0], &outcome, 1), 1);
  close(status[0]);
  waitpid(child, nullptr, 0);
  unlink(way.c_str());
  EXPECT_EQ(outcome, 'n') << "'a': answered, 'x': could not try";
  EXPECT_TRUE(helper_->waitForLog("Refused a connection from user 65534."));
  EXPECT_EQ(ordinal(*proxy_, u"ordinal"), 1) << "the stranger's request ran";
}

}  // namespace
}  // namespace ferncast
