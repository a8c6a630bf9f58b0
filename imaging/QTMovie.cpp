#include "imaging/QTMovie.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libavutil/imgutils.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cmath>
#include <cstring>
#include <mutex>
#include <new>

#include "Classes/Unicode.h"
#include "imaging/MovieHeader.h"

namespace ferncast {
namespace {

using SteadyClock = std::chrono::steady_clock;

// A frame request reads at most this many packets after its seek: a hostile stream that never
// yields a frame ends here even when every packet is quick.
constexpr int kMaxPacketsPerFrame = 100'000;
constexpr int kIOBufferSize = 32768;

void silenceFFmpeg() {
  static std::once_flag once;
  std::call_once(once, [] { av_log_set_level(AV_LOG_QUIET); });
}

struct FrameFree {
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
using Frame = std::unique_ptr<AVFrame, FrameFree>;

struct PacketFree {
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
using Packet = std::unique_ptr<AVPacket, PacketFree>;

struct CodecFree {
  void operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
};
using Codec = std::unique_ptr<AVCodecContext, CodecFree>;

// The quarter turns (0 to 3) by which a stream's frames must be turned counterclockwise to stand
// upright, from its display matrix.
int quarterTurnsOf(const AVStream* stream) {
  std::size_t size = 0;
  const std::uint8_t* matrix = av_stream_get_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
  if (matrix == nullptr || size < 9 * sizeof(std::int32_t)) return 0;
  std::int32_t values[9];
  std::memcpy(values, matrix, sizeof values);
  const double degrees = av_display_rotation_get(values);
  if (!std::isfinite(degrees)) return 0;
  const long turns = std::lround(degrees / 90.0) % 4;
  return static_cast<int>(turns < 0 ? turns + 4 : turns);
}

// The frame turned counterclockwise by `turns` quarter turns.
MovieFrame turned(MovieFrame frame, int turns) {
  if (turns == 0) return frame;
  const int width = frame.width, height = frame.height;
  MovieFrame out;
  out.width = turns == 2 ? width : height;
  out.height = turns == 2 ? height : width;
  out.rgb.resize(frame.rgb.size());
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      int toX, toY;
      switch (turns) {
        case 1:  // the right edge becomes the top
          toX = y;
          toY = width - 1 - x;
          break;
        case 2:
          toX = width - 1 - x;
          toY = height - 1 - y;
          break;
        default:  // 3: the left edge becomes the top
          toX = height - 1 - y;
          toY = x;
          break;
      }
      std::memcpy(&out.rgb[(static_cast<std::size_t>(toY) * out.width + toX) * 3],
                  &frame.rgb[(static_cast<std::size_t>(y) * width + x) * 3], 3);
    }
  }
  return out;
}

// A decoded frame as RGB at `width` × `height` (its sample aspect ratio applied by the caller).
std::optional<MovieFrame> rgbOfFrame(const AVFrame* frame, int width, int height) {
  if (frame->width <= 0 || frame->height <= 0 || width <= 0 || height <= 0) return std::nullopt;
  if (static_cast<std::int64_t>(width) * height > QTMovie::kMaxFramePixels) return std::nullopt;
  SwsContext* scaler =
      sws_getContext(frame->width, frame->height, static_cast<AVPixelFormat>(frame->format), width,
                     height, AV_PIX_FMT_RGB24, SWS_BICUBIC, nullptr, nullptr, nullptr);
  if (scaler == nullptr) return std::nullopt;
  std::optional<MovieFrame> result;
  try {
    result.emplace();
    result->width = width;
    result->height = height;
    result->rgb.resize(static_cast<std::size_t>(width) * height * 3);
    std::uint8_t* planes[4] = {result->rgb.data(), nullptr, nullptr, nullptr};
    int strides[4] = {width * 3, 0, 0, 0};
    if (sws_scale(scaler, frame->data, frame->linesize, 0, frame->height, planes, strides) !=
        height) {
      result.reset();
    }
  } catch (const std::bad_alloc&) {
    result.reset();
  }
  sws_freeContext(scaler);
  return result;
}

}  // namespace

struct QTMovie::State {
  AVFormatContext* format = nullptr;
  AVIOContext* io = nullptr;  // our own reader over `bytes`, for movies made from data
  std::vector<std::uint8_t> bytes;
  std::int64_t position = 0;
  std::string path;

  SteadyClock::time_point deadline;
  int video = -1;  // a stream of moving pictures
  int cover = -1;  // an attached picture
  bool audio = false;
  int quarterTurns = 0;
  MovieSize naturalSize;
  double duration = 0;
  std::optional<double> posterTime;
  Codec decoder;

  double currentTime = 0;
  bool loops = false;
  bool loopsBackAndForth = false;

  ~State() {
    decoder.reset();
    avformat_close_input(&format);
    if (io != nullptr) {
      av_freep(&io->buffer);
      avio_context_free(&io);
    }
  }

  void startOperation() { deadline = SteadyClock::now() + kOperationTimeLimit; }
  bool pastDeadline() const { return SteadyClock::now() > deadline; }

  static int interrupted(void* opaque) {
    return static_cast<const State*>(opaque)->pastDeadline() ? 1 : 0;
  }
  static int readBytes(void* opaque, std::uint8_t* buffer, int size) {
    auto* state = static_cast<State*>(opaque);
    const auto total = static_cast<std::int64_t>(state->bytes.size());
    const std::int64_t count = std::min<std::int64_t>(size, total - state->position);
    if (count <= 0) return AVERROR_EOF;
    std::memcpy(buffer, state->bytes.data() + state->position, static_cast<std::size_t>(count));
    state->position += count;
    return static_cast<int>(count);
  }
  static std::int64_t seekBytes(void* opaque, std::int64_t offset, int whence) {
    auto* state = static_cast<State*>(opaque);
    const auto total = static_cast<std::int64_t>(state->bytes.size());
    if (whence & AVSEEK_SIZE) return total;
    std::int64_t to;
    switch (whence & ~AVSEEK_FORCE) {
      case SEEK_SET:
        to = offset;
        break;
      case SEEK_CUR:
        to = state->position + offset;
        break;
      case SEEK_END:
        to = total + offset;
        break;
      default:
        return AVERROR(EINVAL);
    }
    if (to < 0 || to > total) return AVERROR(EINVAL);
    state->position = to;
    return to;
  }

  // The decoder of a stream, opened with one thread.
  Codec openDecoder(int streamIndex) {
    const AVCodecParameters* parameters = format->streams[streamIndex]->codecpar;
    const AVCodec* codec = avcodec_find_decoder(parameters->codec_id);
    if (codec == nullptr) return nullptr;
    Codec context(avcodec_alloc_context3(codec));
    if (!context || avcodec_parameters_to_context(context.get(), parameters) < 0) return nullptr;
    context->thread_count = 1;
    context->max_pixels = kMaxFramePixels;
    if (avcodec_open2(context.get(), codec, nullptr) < 0) return nullptr;
    return context;
  }

  // The display size of decoded frames of the video stream: sample aspect ratio applied, before
  // turning.
  std::pair<int, int> displayPixels(const AVFrame* frame) const {
    AVRational ratio =
        av_guess_sample_aspect_ratio(format, format->streams[video], const_cast<AVFrame*>(frame));
    int width = frame->width;
    if (ratio.num > 0 && ratio.den > 0 && av_cmp_q(ratio, AVRational{1, 1}) != 0) {
      width = static_cast<int>(std::lround(frame->width * av_q2d(ratio)));
    }
    return {std::max(width, 1), frame->height};
  }

  std::optional<MovieFrame> coverArt() {
    AVStream* stream = format->streams[cover];
    if (stream->attached_pic.size <= 0) return std::nullopt;
    Codec pictureDecoder = openDecoder(cover);
    if (!pictureDecoder) return std::nullopt;
    Frame frame(av_frame_alloc());
    if (!frame || avcodec_send_packet(pictureDecoder.get(), &stream->attached_pic) < 0) {
      return std::nullopt;
    }
    avcodec_send_packet(pictureDecoder.get(), nullptr);
    if (avcodec_receive_frame(pictureDecoder.get(), frame.get()) < 0) return std::nullopt;
    return rgbOfFrame(frame.get(), frame->width, frame->height);
  }

  // The video frame shown at `seconds`: seek backward to a key frame, decode forward.
  Frame videoFrameAt(double seconds) {
    if (!decoder) decoder = openDecoder(video);
    if (!decoder) return nullptr;
    const AVStream* stream = format->streams[video];
    const double unit = av_q2d(stream->time_base);
    if (unit <= 0) return nullptr;
    const std::int64_t start = stream->start_time != AV_NOPTS_VALUE ? stream->start_time : 0;
    const std::int64_t target = start + static_cast<std::int64_t>(std::floor(seconds / unit));
    if (av_seek_frame(format, video, target, AVSEEK_FLAG_BACKWARD) < 0 &&
        av_seek_frame(format, video, start, AVSEEK_FLAG_BACKWARD) < 0) {
      av_seek_frame(format, -1, 0, AVSEEK_FLAG_BYTE);
    }
    avcodec_flush_buffers(decoder.get());

    Packet packet(av_packet_alloc());
    Frame decoded(av_frame_alloc()), shown;
    if (!packet || !decoded) return nullptr;
    // Takes every frame the decoder has ready; true once the frame at the target is known.
    auto drain = [&]() -> bool {
      while (avcodec_receive_frame(decoder.get(), decoded.get()) == 0) {
        const std::int64_t time = decoded->best_effort_timestamp;
        if (shown && time != AV_NOPTS_VALUE && time > target) return true;
        shown.reset(av_frame_clone(decoded.get()));
        av_frame_unref(decoded.get());
        if (!shown) return true;
        if (time != AV_NOPTS_VALUE && time >= target) return true;
      }
      return false;
    };
    for (int packets = 0; packets < kMaxPacketsPerFrame && !pastDeadline(); ++packets) {
      if (av_read_frame(format, packet.get()) < 0) break;
      if (packet->stream_index == video) {
        const int sent = avcodec_send_packet(decoder.get(), packet.get());
        av_packet_unref(packet.get());
        if (sent < 0 && sent != AVERROR(EAGAIN)) continue;
        if (drain()) return shown;
      } else {
        av_packet_unref(packet.get());
      }
    }
    // The end of the stream, or a limit: what the decoder still holds may be the frame.
    if (!pastDeadline() && avcodec_send_packet(decoder.get(), nullptr) >= 0) drain();
    return shown;
  }
};

QTMovie::QTMovie(std::unique_ptr<State> state) : state_(std::move(state)) {}
QTMovie::~QTMovie() = default;

std::unique_ptr<QTMovie> QTMovie::movieWithFile(const std::string& path) {
  if (path.empty()) return nullptr;
  auto state = std::make_unique<State>();
  state->path = path;
  return open(std::move(state), path.c_str());
}

std::unique_ptr<QTMovie> QTMovie::movieWithData(std::span<const std::uint8_t> bytes) {
  if (bytes.empty()) return nullptr;
  auto state = std::make_unique<State>();
  try {
    state->bytes.assign(bytes.begin(), bytes.end());
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  auto* buffer = static_cast<std::uint8_t*>(av_malloc(kIOBufferSize));
  if (buffer == nullptr) return nullptr;
  state->io = avio_alloc_context(buffer, kIOBufferSize, 0, state.get(), State::readBytes, nullptr,
                                 State::seekBytes);
  if (state->io == nullptr) {
    av_free(buffer);
    return nullptr;
  }
  return open(std::move(state), nullptr);
}

std::unique_ptr<QTMovie> QTMovie::open(std::unique_ptr<State> state, const char* path) {
  silenceFFmpeg();
  state->startOperation();
  state->format = avformat_alloc_context();
  if (state->format == nullptr) return nullptr;
  state->format->interrupt_callback = {State::interrupted, state.get()};
  if (state->io != nullptr) {
    state->format->pb = state->io;
    state->format->flags |= AVFMT_FLAG_CUSTOM_IO;
  }
  // Local files only: a playlist or reference movie may name other files, never URLs.
  AVDictionary* options = nullptr;
  av_dict_set(&options, "protocol_whitelist", "file", 0);
  const std::string url = path != nullptr ? std::string("file:") + path : std::string();
  const int opened = avformat_open_input(&state->format, path != nullptr ? url.c_str() : nullptr,
                                         nullptr, &options);
  av_dict_free(&options);
  if (opened < 0) {
    state->format = nullptr;  // freed by the failed call
    return nullptr;
  }
  if (avformat_find_stream_info(state->format, nullptr) < 0) return nullptr;

  AVFormatContext* format = state->format;
  for (unsigned i = 0; i < format->nb_streams; ++i) {
    const AVStream* stream = format->streams[i];
    const AVMediaType type = stream->codecpar->codec_type;
    if (type == AVMEDIA_TYPE_AUDIO) state->audio = true;
    if (type != AVMEDIA_TYPE_VIDEO) continue;
    if (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) {
      if (state->cover < 0) state->cover = static_cast<int>(i);
    } else if (state->video < 0 && stream->codecpar->width > 0 && stream->codecpar->height > 0) {
      state->video = static_cast<int>(i);
    }
  }
  const int best = av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  if (best >= 0 && !(format->streams[best]->disposition & AV_DISPOSITION_ATTACHED_PIC) &&
      format->streams[best]->codecpar->width > 0) {
    state->video = best;
  }
  if (state->video < 0 && state->cover < 0 && !state->audio) return nullptr;

  if (format->duration != AV_NOPTS_VALUE && format->duration > 0) {
    state->duration = static_cast<double>(format->duration) / AV_TIME_BASE;
  } else if (state->video >= 0) {
    const AVStream* stream = format->streams[state->video];
    if (stream->duration != AV_NOPTS_VALUE && stream->duration > 0) {
      state->duration = static_cast<double>(stream->duration) * av_q2d(stream->time_base);
    }
  }
  if (!std::isfinite(state->duration) || state->duration < 0) state->duration = 0;

  const int pictureStream = state->video >= 0 ? state->video : state->cover;
  if (pictureStream >= 0) {
    const AVStream* stream = format->streams[pictureStream];
    double width = stream->codecpar->width, height = stream->codecpar->height;
    if (state->video >= 0) {
      const AVRational ratio =
          av_guess_sample_aspect_ratio(format, format->streams[state->video], nullptr);
      if (ratio.num > 0 && ratio.den > 0) width = std::max(1.0, std::round(width * av_q2d(ratio)));
      state->quarterTurns = quarterTurnsOf(stream);
      if (state->quarterTurns % 2 == 1) std::swap(width, height);
    }
    state->naturalSize = {width, height};
  }

  // The poster time lives in QuickTime and MPEG-4 files only.
  const std::optional<MovieHeader> header =
      state->io != nullptr ? movieHeaderOfBytes(state->bytes) : movieHeaderOfFile(state->path);
  if (header) state->posterTime = header->posterSeconds();
  return std::unique_ptr<QTMovie>(new QTMovie(std::move(state)));
}

double QTMovie::duration() const {
  return state_->duration;
}
MovieSize QTMovie::naturalSize() const {
  return state_->naturalSize;
}
bool QTMovie::hasVideo() const {
  return state_->video >= 0;
}
bool QTMovie::hasAudio() const {
  return state_->audio;
}
std::optional<double> QTMovie::posterTime() const {
  return state_->posterTime;
}

std::optional<MovieFrame> QTMovie::frameImageAtTime(double seconds) {
  State& state = *state_;
  if (!std::isfinite(seconds)) return std::nullopt;
  state.startOperation();
  if (state.video < 0) {
    if (state.cover < 0) return std::nullopt;
    return state.coverArt();
  }
  Frame frame = state.videoFrameAt(std::max(seconds, 0.0));
  if (!frame) return std::nullopt;
  const auto [width, height] = state.displayPixels(frame.get());
  std::optional<MovieFrame> rgb = rgbOfFrame(frame.get(), width, height);
  if (!rgb) return std::nullopt;
  try {
    return turned(std::move(*rgb), state.quarterTurns);
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

std::optional<MovieFrame> QTMovie::posterImage() {
  return frameImageAtTime(state_->posterTime.value_or(0));
}

Dictionary QTMovie::movieAttributes() const {
  const State& state = *state_;
  Dictionary attributes{
      {kQTMovieNaturalSizeAttribute, sizeString(state.naturalSize.width, state.naturalSize.height)},
      {kQTMovieDurationAttribute, state.duration},
      {kQTMovieHasVideoAttribute, state.video >= 0},
      {kQTMovieHasAudioAttribute, state.audio},
      {kQTMovieLoopsAttribute, state.loops},
      {kQTMovieLoopsBackAndForthAttribute, state.loopsBackAndForth},
  };
  if (state.posterTime) attributes.emplace(kQTMoviePosterTimeAttribute, *state.posterTime);
  if (!state.path.empty()) attributes.emplace(kQTMovieFileNameAttribute, utf8ToUtf16(state.path));
  return attributes;
}

double QTMovie::currentTime() const {
  return state_->currentTime;
}
void QTMovie::setCurrentTime(double seconds) {
  if (!std::isfinite(seconds)) return;
  state_->currentTime = std::clamp(seconds, 0.0, state_->duration);
}

bool QTMovie::loops() const {
  return state_->loops;
}
void QTMovie::setLoops(bool loops) {
  state_->loops = loops;
}
bool QTMovie::loopsBackAndForth() const {
  return state_->loopsBackAndForth;
}
void QTMovie::setLoopsBackAndForth(bool loops) {
  state_->loopsBackAndForth = loops;
}

}  // namespace ferncast
