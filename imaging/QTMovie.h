// QTMovie: a movie or sound file opened through FFmpeg (libavformat, libavcodec, libswscale), the
// stand-in for the platform movie class.
//
// A movie answers its duration, its natural size (the coded size with the sample aspect ratio and
// the display matrix's rotation applied), its attributes and the frame shown at a time, upright
// and at the natural size. A file without video but with cover art (an attached picture, as
// audio files carry) answers that picture as its frame at every time. The QuickTime poster time
// comes from our own reading of the "mvhd" box (imaging/MovieHeader.h).
//
// Bounds: every opening and every frame request stops after kOperationTimeLimit (FFmpeg's
// interrupt callback and the decode loop check it); frames above kMaxFramePixels are refused.
// Nothing throws; failures answer null, nullopt or 0. A movie is used by one thread at a time;
// different movies may be used on different threads. FFmpeg's own log is silenced process-wide on
// first use.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Classes/PropertyList.h"

namespace ferncast {

// The keys of the attribute dictionary, as the platform names them.
inline constexpr char16_t kQTMovieNaturalSizeAttribute[] = u"QTMovieNaturalSizeAttribute";
inline constexpr char16_t kQTMovieDurationAttribute[] = u"QTMovieDurationAttribute";
inline constexpr char16_t kQTMoviePosterTimeAttribute[] = u"QTMoviePosterTimeAttribute";
inline constexpr char16_t kQTMovieHasVideoAttribute[] = u"QTMovieHasVideoAttribute";
inline constexpr char16_t kQTMovieHasAudioAttribute[] = u"QTMovieHasAudioAttribute";
inline constexpr char16_t kQTMovieLoopsAttribute[] = u"QTMovieLoopsAttribute";
inline constexpr char16_t kQTMovieLoopsBackAndForthAttribute[] =
    u"QTMovieLoopsBackAndForthAttribute";
inline constexpr char16_t kQTMovieFileNameAttribute[] = u"QTMovieFileNameAttribute";

struct MovieSize {
  double width = 0, height = 0;
  bool operator==(const MovieSize&) const = default;
};

// Pixels of a frame: 8-bit RGB, three bytes a pixel, rows packed top row first.
struct MovieFrame {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> rgb;
};

class QTMovie {
 public:
  static constexpr std::chrono::seconds kOperationTimeLimit{10};
  static constexpr std::int64_t kMaxFramePixels = 100'000'000;

  // Opens a movie file, or movie bytes (copied). Null when FFmpeg cannot read them, or when they
  // hold neither video, nor audio, nor a picture.
  [[nodiscard]] static std::unique_ptr<QTMovie> movieWithFile(const std::string& path);
  [[nodiscard]] static std::unique_ptr<QTMovie> movieWithData(std::span<const std::uint8_t> bytes);

  ~QTMovie();
  QTMovie(const QTMovie&) = delete;
  QTMovie& operator=(const QTMovie&) = delete;

  // In seconds; 0 when the file does not say.
  double duration() const;
  // Display width and height; zero without video or cover art.
  MovieSize naturalSize() const;
  bool hasVideo() const;
  bool hasAudio() const;
  // The poster time of a QuickTime or MPEG-4 file, in seconds; nullopt for other files.
  std::optional<double> posterTime() const;

  // The frame shown at `seconds` (the last one that starts at or before it; the first frame for
  // earlier times, the last for later ones); the cover art of a file without video. nullopt when
  // there is neither or decoding fails.
  std::optional<MovieFrame> frameImageAtTime(double seconds);
  // The frame at the poster time, else at 0.
  std::optional<MovieFrame> posterImage();

  // Natural size (a size string), duration and poster time (seconds), video and audio flags,
  // looping flags, and the file name when opened from a file.
  Dictionary movieAttributes() const;

  // The current time in seconds, kept within 0 … duration.
  double currentTime() const;
  void setCurrentTime(double seconds);

  bool loops() const;
  void setLoops(bool loops);
  bool loopsBackAndForth() const;
  void setLoopsBackAndForth(bool loops);

 private:
  struct State;
  explicit QTMovie(std::unique_ptr<State> state);
  static std::unique_ptr<QTMovie> open(std::unique_ptr<State> state, const char* path);
  std::unique_ptr<State> state_;
};

}  // namespace ferncast
