// The wire of the helper connection: a per-user named endpoint, length-prefixed binary
// property-list frames, and the request and reply messages they carry.
//
// Endpoint: a path-name Unix stream socket "<folder>/<name>" in a folder that only this user may
// enter (mode 0700): "$XDG_RUNTIME_DIR/ferncast" when XDG_RUNTIME_DIR names such a folder of this
// user, else "/tmp/ferncast-<uid>". Beside the socket lies "<name>.lock"; whoever holds the name
// keeps that file locked (flock) while it lives, so the kernel frees the name when its holder
// ends, however it ends. Both ends still check the other's user id (SO_PEERCRED).
//
// Frame: four bytes of big-endian length, then that many bytes of binary property list. A length
// of 0 or above kMaxFrameLength is refused before any buffer is allocated; containers may nest at
// most kMaxNesting deep.
//
// Request: {"Sequence": integer, "Selector": the full selector text, "Arguments": array, nil
// arguments as Null}. Reply: {"Sequence": the request's} and one of "Result" (absent for nil),
// "Exception" ({"Name": string, "Reason": string}) or "DoesNotRespond" (true). A client that has
// timed out skips replies with an older sequence number.
//
// Plain functions, and a per-socket reader and writer; any thread may use its own sockets.
#pragma once

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <sys/un.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
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
[[nodiscard]] std::optional<OutgoingFrame> encodeRequest(Request request);
[[nodiscard]] std::optional<OutgoingFrame> encodeReply(Reply reply);

// The body length a frame header announces; nullopt when it is 0 or above kMaxFrameLength.
[[nodiscard]] std::optional<std::size_t> frameBodyLength(const std::uint8_t* header);

// The message in a frame body; nullopt when the bytes are no property list within the limits or
// not a message of that shape.
[[nodiscard]] std::optional<Request> decodeRequest(const std::uint8_t* body, std::size_t length);
[[nodiscard]] std::optional<Reply> decodeReply(const std::uint8_t* body, std::size_t length);

// ---- Endpoints ----

// Where the helper registered under a name listens for this user.
struct Endpoint {
  std::string folder;      // the private folder of this user's endpoints
  std::string socketPath;  // "<folder>/<name>"
  std::string lockPath;    // "<folder>/<name>.lock"
  sockaddr_un address;     // of socketPath
  socklen_t length;
};

// The endpoint of `name` for this user; nullopt when the name is empty, holds "/" or NUL, is "."
// or "..", or makes a path too long for a socket address. Looks at the folder but creates
// nothing.
[[nodiscard]] std::optional<Endpoint> endpointFor(std::u16string_view name);

// Makes `folder` when it is missing, with mode 0700, and checks that it is a folder (not a link)
// of this user that nobody else may enter. False, with `why` telling what is wrong, otherwise.
[[nodiscard]] bool preparePrivateFolder(const std::string& folder, std::string& why);

// ---- Sockets ----

// The process and user ids of the other end of a connected Unix socket, as they were when that
// process connected or started listening; nullopt when they cannot be read.
struct PeerCredentials {
  pid_t pid;
  uid_t uid;
};
[[nodiscard]] std::optional<PeerCredentials> peerCredentials(int fd);

using Deadline = std::chrono::steady_clock::time_point;
// Now plus `seconds`; negative means now, non-finite or huge values a far future.
Deadline deadlineAfter(double seconds);

// Writes frames to one non-blocking socket as fast as it takes them, in order; the payloads of
// large data values go out from where they lie in each frame's message. One writer per socket,
// used by one thread; never raises SIGPIPE.
class FrameWriter {
 public:
  enum class Status { kDone, kWouldBlock, kTimedOut, kClosed };

  void push(OutgoingFrame frame);
  // Writes what the socket takes without waiting: kDone once every frame is out, kWouldBlock
  // when the socket is full (wait for POLLOUT), kClosed when the peer is gone or the socket fails.
  [[nodiscard]] Status writeAvailable(int fd);
  // The same, waiting for room until `deadline` (kTimedOut).
  [[nodiscard]] Status writeAll(int fd, Deadline deadline);

  bool empty() const { return frames_.empty(); }
  // Bytes still to write.
  std::size_t pendingBytes() const { return pending_; }

 private:
  void preparePieces();

  std::deque<OutgoingFrame> frames_;
  std::vector<iovec> pieces_;  // of the first frame, from the first byte not yet written
  std::size_t nextPiece_ = 0;
  std::size_t pending_ = 0;
};

// Writes one frame, waiting for room until `deadline`.
[[nodiscard]] FrameWriter::Status sendFrame(int fd, OutgoingFrame frame, Deadline deadline);

// Collects frames from one non-blocking socket. Its buffer holds at most one frame plus what
// followed it in the same read. A frame's buffer is reserved once its header is checked; large
// ones are mapped, so that only the pages bytes have arrived in are resident, and unmapped when
// the frame is consumed, unless `keptCapacity` lets the buffer stay for the next frames (as a
// client receiving large replies wants). One reader per socket, used by one thread.
class FrameReader {
 public:
  enum class Status { kFrame, kWouldBlock, kTimedOut, kClosed, kBadLength, kOverLimit };

  explicit FrameReader(std::size_t keptCapacity) : keptCapacity_(keptCapacity) {}
  ~FrameReader();
  FrameReader(const FrameReader&) = delete;
  FrameReader& operator=(const FrameReader&) = delete;

  // Reads what the socket holds, without waiting, until a whole frame is buffered: kFrame, or
  // kWouldBlock when more is to come, kClosed at end of stream or on an error, kBadLength when a
  // header announces a length outside the limits (announcedLength tells which), kOverLimit when
  // the frame needs more bytes than `limit` lets the reader hold (kReadChunk are always allowed)
  // or its buffer cannot be had.
  [[nodiscard]] Status readAvailable(int fd, std::size_t limit = SIZE_MAX);
  // The same, waiting until `deadline` (kTimedOut) for the rest of the frame.
  [[nodiscard]] Status readFrame(int fd, Deadline deadline);

  // The buffered frame's body, after kFrame and until consumeFrame.
  const std::uint8_t* body() const { return buffer_ + kFrameHeaderLength; }
  std::size_t bodyLength() const { return frameLength_ - kFrameHeaderLength; }
  // Drops the current frame and keeps any bytes that followed it.
  void consumeFrame();
  // Drops everything buffered.
  void reset();
  // Whether a whole frame is buffered already (then readAvailable returns kFrame at once).
  [[nodiscard]] bool hasFrame();
  // Whether part of a frame has arrived.
  bool hasPartialFrame() const { return filled_ > 0; }
  // The bytes received and not yet consumed.
  std::size_t bytesHeld() const { return filled_; }
  // The body length announced by the last header read, valid after kBadLength too.
  std::size_t announcedLength() const { return announced_; }

  // Bytes read at a time while a frame's header is not in yet.
  static constexpr std::size_t kReadChunk = 64 * 1024;

 private:
  // kFrame, kWouldBlock (incomplete) or kBadLength for the bytes buffered so far.
  Status check();
  // Gives the buffer at least `capacity` bytes, keeping what it holds; false when no memory.
  bool reserve(std::size_t capacity);
  void release();

  std::size_t keptCapacity_;
  std::uint8_t* buffer_ = nullptr;
  std::size_t capacity_ = 0;
  bool mapped_ = false;
  std::size_t filled_ = 0;
  std::size_t frameLength_ = 0;  // header included; 0 until the header is in
  std::size_t announced_ = 0;
};

}  // namespace ferncast
