#include "service/Transport.h"

#include <errno.h>
#include <limits.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "Classes/BinaryPropertyList.h"
#include "Classes/Unicode.h"

namespace ferncast {
namespace {

std::optional<OutgoingFrame> frameOf(Value message) {
  OutgoingFrame frame;
  frame.message = std::move(message);
  frame.bytes.assign(kFrameHeaderLength, 0);
  if (!appendBinaryPropertyList(frame.bytes, frame.message, kMaxNesting, &frame.splices)) {
    return std::nullopt;
  }
  std::size_t length = frame.size() - kFrameHeaderLength;
  if (length > kMaxFrameLength) return std::nullopt;
  for (std::size_t i = 0; i < kFrameHeaderLength; ++i) {
    frame.bytes[i] = static_cast<std::uint8_t>(length >> (8 * (kFrameHeaderLength - 1 - i)));
  }
  return frame;
}

std::optional<Dictionary> messageOf(const std::uint8_t* body, std::size_t length) {
  PropertyListLimits limits;
  limits.maxDepth = kMaxNesting;
  auto value = readBinaryPropertyList(body, length, limits);
  if (!value || !value->is<Dictionary>()) return std::nullopt;
  return std::move(*value->as<Dictionary>());
}

template <typename T>
T* entry(Dictionary& message, std::u16string_view key) {
  auto found = message.find(std::u16string(key));
  return found == message.end() ? nullptr : found->second.as<T>();
}

// Waits until `fd` is ready for `events`; false when the deadline passes first. Errors count as
// ready, so that the next read or write reports them.
bool waitFor(int fd, short events, Deadline deadline) {
  for (;;) {
    auto now = std::chrono::steady_clock::now();
    if (now >= deadline) return false;
    auto ms = std::chrono::ceil<std::chrono::milliseconds>(deadline - now).count();
    pollfd p{fd, events, 0};
    int ready = poll(&p, 1, static_cast<int>(ms > INT_MAX ? INT_MAX : ms));
    if (ready > 0 || (ready < 0 && errno != EINTR)) return true;
  }
}

}  // namespace

std::size_t OutgoingFrame::size() const {
  std::size_t length = bytes.size();
  for (const Splice& splice : splices)
    length += splice.length;
  return length;
}

std::vector<std::uint8_t> OutgoingFrame::joined() const {
  std::vector<std::uint8_t> whole;
  whole.reserve(size());
  std::size_t position = 0;
  for (const Splice& splice : splices) {
    whole.insert(whole.end(), bytes.begin() + position, bytes.begin() + splice.position);
    whole.insert(whole.end(), splice.bytes, splice.bytes + splice.length);
    position = splice.position;
  }
  whole.insert(whole.end(), bytes.begin() + position, bytes.end());
  return whole;
}

std::optional<OutgoingFrame> encodeRequest(Request request) {
  Dictionary message;
  message.emplace(u"Sequence", Value(request.sequence));
  message.emplace(u"Selector", Value(std::move(request.selector)));
  message.emplace(u"Arguments", Value(std::move(request.arguments)));
  return frameOf(Value(std::move(message)));
}

std::optional<OutgoingFrame> encodeReply(Reply reply) {
  Dictionary message;
  message.emplace(u"Sequence", Value(reply.sequence));
  switch (reply.kind) {
    case Reply::Kind::kResult:
      if (reply.result) message.emplace(u"Result", std::move(*reply.result));
      break;
    case Reply::Kind::kException:
      message.emplace(u"Exception",
                      Value(Dictionary{{u"Name", Value(utf8ToUtf16(reply.exceptionName))},
                                       {u"Reason", Value(utf8ToUtf16(reply.exceptionReason))}}));
      break;
    case Reply::Kind::kDoesNotRespond:
      message.emplace(u"DoesNotRespond", Value(true));
      break;
  }
  return frameOf(Value(std::move(message)));
}

std::optional<std::size_t> frameBodyLength(const std::uint8_t* header) {
  std::size_t length = 0;
  for (std::size_t i = 0; i < kFrameHeaderLength; ++i)
    length = length << 8 | header[i];
  if (length == 0 || length > kMaxFrameLength) return std::nullopt;
  return length;
}

std::optional<Request> decodeRequest(const std::uint8_t* body, std::size_t length) {
  auto message = messageOf(body, length);
  if (!message) return std::nullopt;
  auto* sequence = entry<std::int64_t>(*message, u"Sequence");
  auto* selector = entry<std::u16string>(*message, u"Selector");
  auto* arguments = entry<Array>(*message, u"Arguments");
  if (!sequence || !selector || selector->empty() || !arguments) return std::nullopt;
  return Request{*sequence, std::move(*selector), std::move(*arguments)};
}

std::optional<Reply> decodeReply(const std::uint8_t* body, std::size_t length) {
  auto message = messageOf(body, length);
  if (!message) return std::nullopt;
  auto* sequence = entry<std::int64_t>(*message, u"Sequence");
  if (!sequence) return std::nullopt;
  Reply reply;
  reply.sequence = *sequence;
  auto result = message->find(u"Result");
  auto* exception = entry<Dictionary>(*message, u"Exception");
  bool doesNotRespond = message->count(u"DoesNotRespond") != 0;
  if ((result != message->end()) + (exception != nullptr) + doesNotRespond > 1) {
    return std::nullopt;
  }
  if (exception) {
    auto* name = entry<std::u16string>(*exception, u"Name");
    auto* reason = entry<std::u16string>(*exception, u"Reason");
    if (!name || !reason) return std::nullopt;
    reply.kind = Reply::Kind::kException;
    reply.exceptionName = utf16ToUtf8(*name);
    reply.exceptionReason = utf16ToUtf8(*reason);
  } else if (doesNotRespond) {
    reply.kind = Reply::Kind::kDoesNotRespond;
  } else if (result != message->end()) {
    reply.result = std::move(result->second);
  }
  return reply;
}

namespace {

// XDG_RUNTIME_DIR when it names a folder of this user that nobody else may enter.
std::optional<std::string> runtimeFolder() {
  const char* folder = std::getenv("XDG_RUNTIME_DIR");
  struct stat facts {};
  if (!folder || folder[0] != '/' || lstat(folder, &facts) != 0 || !S_ISDIR(facts.st_mode) ||
      facts.st_uid != geteuid() || (facts.st_mode & 077) != 0) {
    return std::nullopt;
  }
  return std::string(folder);
}

std::string modeText(mode_t mode) {
  char text[8];
  std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777));
  return text;
}

}  // namespace

std::optional<Endpoint> endpointFor(std::u16string_view name) {
  if (name.empty() || name == u"." || name == u".." ||
      name.find_first_of(std::u16string_view(u"/\0", 2)) != std::u16string_view::npos) {
    return std::nullopt;
  }
  Endpoint endpoint{};
  auto runtime = runtimeFolder();
  endpoint.folder = runtime ? *runtime + "/ferncast" : "/tmp/ferncast-" + std::to_string(geteuid());
  endpoint.socketPath = endpoint.folder + "/" + utf16ToUtf8(name);
  endpoint.lockPath = endpoint.socketPath + ".lock";
  if (endpoint.socketPath.size() + 1 > sizeof endpoint.address.sun_path) return std::nullopt;
  endpoint.address.sun_family = AF_UNIX;
  std::memcpy(endpoint.address.sun_path, endpoint.socketPath.c_str(),
              endpoint.socketPath.size() + 1);
  endpoint.length =
      static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + endpoint.socketPath.size() + 1);
  return endpoint;
}

bool preparePrivateFolder(const std::string& folder, std::string& why) {
  if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
    why = "cannot make " + folder + ": " + std::strerror(errno);
    return false;
  }
  // Checked after making it: whoever made it first, it must be ours and closed to others.
  struct stat facts {};
  if (lstat(folder.c_str(), &facts) != 0) {
    why = "cannot read " + folder + ": " + std::strerror(errno);
  } else if (!S_ISDIR(facts.st_mode)) {
    why = folder + " is no folder";
  } else if (facts.st_uid != geteuid()) {
    why = folder + " belongs to user " + std::to_string(facts.st_uid);
  } else if ((facts.st_mode & 077) != 0) {
    why = folder + " is open to other users (mode " + modeText(facts.st_mode) + ")";
  } else {
    return true;
  }
  return false;
}

std::optional<PeerCredentials> peerCredentials(int fd) {
  ucred credentials{};
  socklen_t length = sizeof credentials;
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0 ||
      length != sizeof credentials) {
    return std::nullopt;
  }
  return PeerCredentials{credentials.pid, credentials.uid};
}

Deadline deadlineAfter(double seconds) {
  constexpr double kFarFuture = 1e9;  // about 31 years
  auto now = std::chrono::steady_clock::now();
  if (!(seconds < kFarFuture)) seconds = kFarFuture;  // also NaN
  if (seconds <= 0) return now;
  return now + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                   std::chrono::duration<double>(seconds));
}

// ---- FrameWriter ----

namespace {

iovec piece(const std::uint8_t* bytes, std::size_t length) {
  return iovec{const_cast<std::uint8_t*>(bytes), length};
}

}  // namespace

void FrameWriter::push(OutgoingFrame frame) {
  pending_ += frame.size();
  frames_.push_back(std::move(frame));
  if (frames_.size() == 1) preparePieces();
}

void FrameWriter::preparePieces() {
  pieces_.clear();
  nextPiece_ = 0;
  if (frames_.empty()) return;
  const OutgoingFrame& frame = frames_.front();
  std::size_t position = 0;
  for (const Splice& splice : frame.splices) {
    pieces_.push_back(piece(frame.bytes.data() + position, splice.position - position));
    pieces_.push_back(piece(splice.bytes, splice.length));
    position = splice.position;
  }
  pieces_.push_back(piece(frame.bytes.data() + position, frame.bytes.size() - position));
}

FrameWriter::Status FrameWriter::writeAvailable(int fd) {
  while (!frames_.empty()) {
    msghdr message{};
    message.msg_iov = pieces_.data() + nextPiece_;
    message.msg_iovlen = std::min<std::size_t>(pieces_.size() - nextPiece_, IOV_MAX);
    ssize_t n = sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n < 0) {
      if (errno == EINTR) continue;
      return errno == EAGAIN || errno == EWOULDBLOCK ? Status::kWouldBlock : Status::kClosed;
    }
    auto sent = static_cast<std::size_t>(n);
    pending_ -= sent;
    while (nextPiece_ < pieces_.size() && sent >= pieces_[nextPiece_].iov_len)
      sent -= pieces_[nextPiece_++].iov_len;
    if (nextPiece_ < pieces_.size()) {
      pieces_[nextPiece_].iov_base =
          static_cast<std::uint8_t*>(pieces_[nextPiece_].iov_base) + sent;
      pieces_[nextPiece_].iov_len -= sent;
    } else {
      frames_.pop_front();
      preparePieces();
    }
  }
  return Status::kDone;
}

FrameWriter::Status FrameWriter::writeAll(int fd, Deadline deadline) {
  Status status;
  while ((status = writeAvailable(fd)) == Status::kWouldBlock) {
    if (!waitFor(fd, POLLOUT, deadline)) return Status::kTimedOut;
  }
  return status;
}

FrameWriter::Status sendFrame(int fd, OutgoingFrame frame, Deadline deadline) {
  FrameWriter writer;
  writer.push(std::move(frame));
  return writer.writeAll(fd, deadline);
}

// ---- FrameReader ----

FrameReader::~FrameReader() {
  release();
}

void FrameReader::release() {
  if (mapped_) {
    munmap(buffer_, capacity_);
  } else {
    delete[] buffer_;
  }
  buffer_ = nullptr;
  capacity_ = 0;
  mapped_ = false;
}

bool FrameReader::reserve(std::size_t capacity) {
  if (capacity_ >= capacity) return true;
  std::uint8_t* larger = nullptr;
  bool mapped = capacity > kReadChunk;
  if (mapped) {
    // Untouched pages cost nothing: a frame announced but never sent holds no memory.
    void* pages = mmap(nullptr, capacity, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (pages == MAP_FAILED) return false;
    larger = static_cast<std::uint8_t*>(pages);
  } else {
    larger = new (std::nothrow) std::uint8_t[capacity];
    if (!larger) return false;
  }
  if (filled_) std::memcpy(larger, buffer_, filled_);
  release();
  buffer_ = larger;
  capacity_ = capacity;
  mapped_ = mapped;
  return true;
}

FrameReader::Status FrameReader::check() {
  if (frameLength_ == 0) {
    if (filled_ < kFrameHeaderLength) return Status::kWouldBlock;
    announced_ = 0;
    for (std::size_t i = 0; i < kFrameHeaderLength; ++i)
      announced_ = announced_ << 8 | buffer_[i];
    auto body = frameBodyLength(buffer_);
    if (!body) return Status::kBadLength;
    frameLength_ = kFrameHeaderLength + *body;
  }
  return filled_ >= frameLength_ ? Status::kFrame : Status::kWouldBlock;
}

bool FrameReader::hasFrame() {
  return check() == Status::kFrame;
}

FrameReader::Status FrameReader::readAvailable(int fd, std::size_t limit) {
  limit = std::max(limit, kReadChunk);
  for (;;) {
    Status status = check();
    if (status != Status::kWouldBlock) return status;
    // A chunk while the header is not in (it may hold a whole small frame), else exactly the
    // rest of the frame, reserved at once.
    std::size_t end = frameLength_ ? frameLength_ : kReadChunk;
    if (!reserve(end)) return Status::kOverLimit;
    std::size_t allowed = std::min(end, limit);
    if (filled_ >= allowed) return Status::kOverLimit;
    ssize_t n = recv(fd, buffer_ + filled_, allowed - filled_, MSG_DONTWAIT);
    if (n > 0) {
      filled_ += static_cast<std::size_t>(n);
    } else if (n == 0) {
      return Status::kClosed;
    } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
      return Status::kWouldBlock;
    } else if (errno != EINTR) {
      return Status::kClosed;
    }
  }
}

FrameReader::Status FrameReader::readFrame(int fd, Deadline deadline) {
  // A reply is rarely there yet: wait first, then read.
  Status status = check();
  while (status == Status::kWouldBlock) {
    if (!waitFor(fd, POLLIN, deadline)) return Status::kTimedOut;
    status = readAvailable(fd);
  }
  return status;
}

void FrameReader::consumeFrame() {
  std::size_t rest = filled_ - frameLength_;
  if (capacity_ > std::max(keptCapacity_, kReadChunk)) {
    // Give a large frame's memory back; what follows it came with the first chunk.
    std::uint8_t* smaller = new std::uint8_t[kReadChunk];
    std::memcpy(smaller, buffer_ + frameLength_, rest);
    release();
    buffer_ = smaller;
    capacity_ = kReadChunk;
  } else if (rest) {
    std::memmove(buffer_, buffer_ + frameLength_, rest);
  }
  filled_ = rest;
  frameLength_ = 0;
}

void FrameReader::reset() {
  filled_ = 0;
  frameLength_ = 0;
  if (capacity_ > std::max(keptCapacity_, kReadChunk)) release();
}

}  // namespace ferncast
