#include "service/Transport.h"

#include <errno.h>
#include <limits.h>
#include <poll.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstring>

#include "Classes/BinaryPropertyList.h"
#include "Classes/Unicode.h"

namespace ferncast {
namespace {

// Bytes read at a time while a frame's header is not in yet.
constexpr std::size_t kChunk = 64 * 1024;

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

std::optional<EndpointAddress> endpointAddress(std::u16string_view name, uid_t uid) {
  if (name.empty()) return std::nullopt;
  std::string path = utf16ToUtf8(name) + "/" + std::to_string(uid);
  EndpointAddress endpoint{};
  // The first byte of sun_path stays 0: an abstract address, without a trailing 0.
  if (path.size() + 1 > sizeof endpoint.address.sun_path) return std::nullopt;
  endpoint.address.sun_family = AF_UNIX;
  std::memcpy(endpoint.address.sun_path + 1, path.data(), path.size());
  endpoint.length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + path.size());
  return endpoint;
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

namespace {

// Writes the pieces in order, resuming after partial writes.
IoStatus sendPieces(int fd, std::vector<iovec>& pieces, Deadline deadline) {
  std::size_t next = 0;
  while (next < pieces.size()) {
    msghdr message{};
    message.msg_iov = pieces.data() + next;
    message.msg_iovlen = std::min<std::size_t>(pieces.size() - next, IOV_MAX);
    ssize_t n = sendmsg(fd, &message, MSG_NOSIGNAL);
    if (n < 0) {
      if (errno == EINTR) continue;
      if (errno != EAGAIN && errno != EWOULDBLOCK) return IoStatus::kClosed;
      if (!waitFor(fd, POLLOUT, deadline)) return IoStatus::kTimedOut;
      continue;
    }
    auto sent = static_cast<std::size_t>(n);
    while (next < pieces.size() && sent >= pieces[next].iov_len)
      sent -= pieces[next++].iov_len;
    if (next < pieces.size()) {
      pieces[next].iov_base = static_cast<std::uint8_t*>(pieces[next].iov_base) + sent;
      pieces[next].iov_len -= sent;
    }
  }
  return IoStatus::kDone;
}

iovec piece(const std::uint8_t* bytes, std::size_t length) {
  return iovec{const_cast<std::uint8_t*>(bytes), length};
}

}  // namespace

IoStatus sendAll(int fd, const std::uint8_t* bytes, std::size_t length, Deadline deadline) {
  std::vector<iovec> pieces{piece(bytes, length)};
  return sendPieces(fd, pieces, deadline);
}

IoStatus sendFrame(int fd, const OutgoingFrame& frame, Deadline deadline) {
  std::vector<iovec> pieces;
  std::size_t position = 0;
  for (const Splice& splice : frame.splices) {
    pieces.push_back(piece(frame.bytes.data() + position, splice.position - position));
    pieces.push_back(piece(splice.bytes, splice.length));
    position = splice.position;
  }
  pieces.push_back(piece(frame.bytes.data() + position, frame.bytes.size() - position));
  return sendPieces(fd, pieces, deadline);
}

FrameReader::Status FrameReader::check() {
  if (frameLength_ == 0) {
    if (filled_ < kFrameHeaderLength) return Status::kWouldBlock;
    auto body = frameBodyLength(buffer_.get());
    if (!body) return Status::kOversized;
    frameLength_ = kFrameHeaderLength + *body;
  }
  return filled_ >= frameLength_ ? Status::kFrame : Status::kWouldBlock;
}

bool FrameReader::hasFrame() {
  return check() == Status::kFrame;
}

void FrameReader::reserve(std::size_t capacity) {
  if (capacity_ >= capacity) return;
  // Not value-initialised: pages of a large frame become resident only as bytes arrive.
  std::unique_ptr<std::uint8_t[]> larger(new std::uint8_t[capacity]);
  if (filled_) std::memcpy(larger.get(), buffer_.get(), filled_);
  buffer_ = std::move(larger);
  capacity_ = capacity;
}

FrameReader::Status FrameReader::readAvailable(int fd) {
  for (;;) {
    Status status = check();
    if (status != Status::kWouldBlock) return status;
    // A chunk while the header is not in (it may hold a whole small frame), else exactly the
    // rest of the frame.
    std::size_t want = frameLength_ ? frameLength_ - filled_ : kChunk - filled_;
    reserve(filled_ + want);
    ssize_t n = recv(fd, buffer_.get() + filled_, want, 0);
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
  if (capacity_ > std::max(keptCapacity_, kChunk)) {
    // Give a large frame's memory back; what follows it came with the first chunk.
    std::unique_ptr<std::uint8_t[]> smaller(new std::uint8_t[kChunk]);
    std::memcpy(smaller.get(), buffer_.get() + frameLength_, rest);
    buffer_ = std::move(smaller);
    capacity_ = kChunk;
  } else if (rest) {
    std::memmove(buffer_.get(), buffer_.get() + frameLength_, rest);
  }
  filled_ = rest;
  frameLength_ = 0;
}

}  // namespace ferncast
