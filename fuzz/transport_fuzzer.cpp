// What the helper and its clients read from a socket: frames through the frame reader, their
// bodies through the bounded binary property-list reader and the request and reply decoders.
// A message that decodes must encode again, and encode the same way a second time.
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "Classes/BinaryPropertyList.h"
#include "service/Transport.h"

namespace {

using namespace ferncast;

template <typename Message, typename Decode, typename Encode>
void roundTrip(const std::uint8_t* body, std::size_t length, Decode decode, Encode encode) {
  std::optional<Message> message = decode(body, length);
  if (!message) return;
  auto first = encode(std::move(*message));
  if (!first) std::abort();  // what was read within the limits must be writable
  std::vector<std::uint8_t> bytes = first->joined();
  auto again = decode(bytes.data() + kFrameHeaderLength, bytes.size() - kFrameHeaderLength);
  if (!again) std::abort();
  if (encode(std::move(*again))->joined() != bytes) std::abort();
}

void decodeBody(const std::uint8_t* body, std::size_t length) {
  readBinaryPropertyList(body, length);
  roundTrip<Request>(body, length, decodeRequest, encodeRequest);
  roundTrip<Reply>(body, length, decodeReply, encodeReply);
}

// Feeds the bytes through a socket pair in pieces, as a peer might send them.
void readFrames(const std::uint8_t* data, std::size_t size) {
  int fds[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, fds) != 0) return;
  FrameReader reader(0);
  // As the helper reads: what one client may hold is limited by what the others hold.
  std::size_t limit = size ? std::size_t{data[0]} << 10 : 0;
  std::size_t sent = 0;
  while (sent < size) {
    std::size_t piece = std::min<std::size_t>(size - sent, 1 + data[sent] * 16);
    ssize_t n = send(fds[1], data + sent, piece, MSG_NOSIGNAL);
    if (n <= 0) break;
    sent += static_cast<std::size_t>(n);
    FrameReader::Status status;
    while ((status = reader.readAvailable(fds[0], limit)) == FrameReader::Status::kFrame) {
      decodeBody(reader.body(), reader.bodyLength());
      reader.consumeFrame();
    }
    if (status != FrameReader::Status::kWouldBlock) break;
  }
  close(fds[0]);
  close(fds[1]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 64 * 1024) return 0;
  decodeBody(data, size);
  readFrames(data, size);
  return 0;
}
