// The wire of the helper connection: a per-user named endpoint, length-prefixed binary
// property-list frames, and the request and reply messages they carry.
//
// Endpoint: an abstract-namespace Unix stream socket whose address is "\0<name>/<uid>", the
// registered name and the user id of the helper. Abstract addresses need no folder, vanish with
// the process that holds them and are private to the network namespace; since anyone may bind
// one, both ends check the other's user id (SO_PEERCRED) before a request is sent or read.
//
// Frame: four bytes of big-endian length, then that many bytes of binary property list. A length
// above kMaxFrameLength is refused before any buffer is allocated; containers may nest at most
// kMaxNesting deep.
//
// Request: {"Sequence": integer, "Selector": the full selector text, "Arguments": array, nil
// arguments as Null}. Reply: {"Sequence": the request's} and one of "Result" (absent for nil),
// "Exception" ({"Name": string, "Reason": string}) or "DoesNotRespond" (true). A client that has
// timed out skips replies with an older sequence number.
//
// Plain functions and a per-socket reader; any thread may use its own sockets.
#pragma once

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Classes/BinaryPropertyList.h"
#include "Classes/PropertyList.h"

namespace ferncast {

inline constexpr std::size_t kFrameHeaderLength = 4;
inline constexpr std::size_t kMaxFrameLength = std::size_t{64} << 20;
inline constexpr std::size_t kMaxNesting = 32;

struct Request {
  std::int64_t sequence = 0;
  std::u16string selector;
  Array arguments;
};

struct Reply {
  enum class Kind { kResult, kException, kDoesNotRespond };
  std::int64_t sequence = 0;
  Kind kind = Kind::kResult;
  std::optional<Value> result;  // kResult; nullopt for nil
  std::string exceptionName;    // kException, UTF-8
  std::string exceptionReason;
};

// A whole frame ready to send: the header and property list in `bytes`, except the payloads of
// large data values, which stay where they lie in `message` and are spliced in at their
// positions when the frame is sent. Move-only, since the splices point into `message`.
struct OutgoingFrame {
  OutgoingFrame() = default;
  OutgoingFrame(OutgoingFrame&&) = default;
  OutgoingFrame& operator=(OutgoingFrame&&) = default;
  OutgoingFrame(const OutgoingFrame&) = delete;
  OutgoingFrame& operator=(const OutgoingFrame&) = delete;

  // The length of the whole frame, and its bytes in one buffer.
  std::size_t size() const;
  std::vector<std::uint8_t> joined() const;

  Value message;
  std::vector<std::uint8_t> bytes;
  std::vector<Splice> splices;
};

// The frame of a message; nullopt when it would exceed the frame limits.
std::optional<OutgoingFrame> encodeRequest(Request request);
std::optional<OutgoingFrame> encodeReply(Reply reply);

// The body length a frame header announces; nullopt when it is 0 or above kMaxFrameLength.
std::optional<std::size_t> frameBodyLength(const std::uint8_t* header);

// The message in a frame body; nullopt when the bytes are no property list within the limits or
// not a message of that shape.
std::optional<Request> decodeRequest(const std::uint8_t* body, std::size_t length);
std::optional<Reply> decodeReply(const std::uint8_t* body, std::size_t length);

// ---- Sockets ----

struct EndpointAddress {
  sockaddr_un address;
  socklen_t length;
};

// The address for `name` and user `uid`; nullopt when the name is empty or too long.
std::optional<EndpointAddress> endpointAddress(std::u16string_view name, uid_t uid);

// The process and user ids of the other end of a connected Unix socket, as they were when that
// process connected or started listening; nullopt when they cannot be read.
struct PeerCredentials {
  pid_t pid;
  uid_t uid;
};
std::optional<PeerCredentials> peerCredentials(int fd);

using Deadline = std::chrono::steady_clock::time_point;
// Now plus `seconds`; negative means now, non-finite or huge values a far future.
Deadline deadlineAfter(double seconds);

enum class IoStatus { kDone, kTimedOut, kClosed };

// Writes all bytes (of a frame, splices included) to a socket, waiting for room until
// `deadline`. kClosed when the peer is gone or the socket fails; never raises SIGPIPE.
IoStatus sendAll(int fd, const std::uint8_t* bytes, std::size_t length, Deadline deadline);
IoStatus sendFrame(int fd, const OutgoingFrame& frame, Deadline deadline);

// Collects frames from one non-blocking socket. Its buffer holds at most one frame plus what
// followed it in the same read; a frame's buffer is reserved once its header is checked, and pages
// are touched only as bytes arrive. Between frames it keeps a buffer of up to `keptCapacity`
// bytes, so that a client receiving large replies reuses warm memory. One reader per socket, used
// by one thread.
class FrameReader {
 public:
  enum class Status { kFrame, kWouldBlock, kTimedOut, kClosed, kOversized };

  explicit FrameReader(std::size_t keptCapacity) : keptCapacity_(keptCapacity) {}

  // Reads what the socket holds, without waiting, until a whole frame is buffered: kFrame, or
  // kWouldBlock when more is to come, kClosed at end of stream or on an error, kOversized when a
  // header announces a length outside the limits.
  Status readAvailable(int fd);
  // The same, waiting until `deadline` (kTimedOut) for the rest of the frame.
  Status readFrame(int fd, Deadline deadline);

  // The buffered frame's body, after kFrame and until consumeFrame.
  const std::uint8_t* body() const { return buffer_.get() + kFrameHeaderLength; }
  std::size_t bodyLength() const { return frameLength_ - kFrameHeaderLength; }
  // Drops the current frame and keeps any bytes that followed it.
  void consumeFrame();
  // Whether a whole frame is buffered already (then readAvailable returns kFrame at once).
  bool hasFrame();
  // Whether part of a frame has arrived.
  bool hasPartialFrame() const { return filled_ > 0; }

 private:
  // kFrame, kWouldBlock (incomplete) or kOversized for the bytes buffered so far.
  Status check();
  void reserve(std::size_t capacity);

  std::size_t keptCapacity_;
  std::unique_ptr<std::uint8_t[]> buffer_;
  std::size_t capacity_ = 0;
  std::size_t filled_ = 0;
  std::size_t frameLength_ = 0;  // header included; 0 until the header is in
};

}  // namespace ferncast
