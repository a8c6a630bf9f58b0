// Movies over FFmpeg: the frame-time rule, frames at times, natural size with rotation and
// sample aspect ratio, poster times, cover art, attributes, accessors, type lists and bad files.
#include "imaging/QTMovie.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "Classes/Unicode.h"
#include "imaging/MovieHeader.h"
#include "imaging/QTMovie+Quill.h"
#include "tests/imaging/MediaTestFiles.h"

namespace ferncast {
namespace {

using namespace media_test;

// The mean red level of the frame's middle, where the ramp clips carry their time.
int redLevel(const MovieFrame& frame) {
  const std::size_t at =
      (static_cast<std::size_t>(frame.height / 2) * frame.width + frame.width / 2) * 3;
  return frame.rgb[at];
}

const std::uint8_t* pixel(const MovieFrame& frame, int x, int y) {
  return &frame.rgb[(static_cast<std::size_t>(y) * frame.width + x) * 3];
}

TEST(MovieFrameTime, HalfTheDurationWithinFifteenSecondsOnAWholeSecond) {
  const struct {
    double duration, expected;
  } rows[] = {{20, 10}, {40, 15}, {0.9, 0}, {10.6, 5}, {1.5, 0},      {7200, 15},
              {30, 15}, {0, 0},   {-3, 0},  {NAN, 0},  {INFINITY, 15}};
  for (const auto& row : rows) {
    EXPECT_EQ(middleTimeOfDuration(row.duration), row.expected) << row.duration;
  }
}

TEST(QTMovie, MiddleFrameOfShortMiddleAndLongClips) {
  const struct {
    double seconds;
    int red;  // 6 × the middle time
  } rows[] = {{20, 60}, {40, 90}, {0.9, 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.seconds);
    const fs::path clip = rampClip(row.seconds);
    ASSERT_FALSE(clip.empty()) << "ffmpeg could not make the clip";
    auto movie = QTMovie::movieWithFile(clip.string());
    ASSERT_TRUE(movie);
    EXPECT_NEAR(movie->duration(), row.seconds, 0.25);
    EXPECT_EQ(movie->naturalSize(), (MovieSize{64, 48}));
    const auto frame = middleImage(*movie);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->width, 64);
    EXPECT_EQ(frame->height, 48);
    EXPECT_NEAR(redLevel(*frame), row.red, 6);
  }
}

TEST(QTMovie, FrameAtATimeIsTheOneShownThenEvenAfterOtherRequests) {
  const fs::path clip = rampClip(20);
  ASSERT_FALSE(clip.empty());
  auto movie = QTMovie::movieWithFile(clip.string());
  ASSERT_TRUE(movie);
  const struct {
    double time;
    int red;
  } rows[] = {{7, 42},     {3.1, 18},           // between frames: the one that started before
              {19.9, 119}, {0, 0},    {-5, 0},  // before the start: the first frame
              {100, 119},                       // after the end: the last frame
              {12, 72}};                        // backward again after reading to the end
  for (const auto& row : rows) {
    const auto frame = movie->frameImageAtTime(row.time);
    ASSERT_TRUE(frame) << row.time;
    EXPECT_NEAR(redLevel(*frame), row.red, 6) << row.time;
  }
}

TEST(QTMovie, MoviesFromBytesMatchMoviesFromFiles) {
  const fs::path clip = rampClip(20);
  ASSERT_FALSE(clip.empty());
  auto movie = QTMovie::movieWithData(bytesOf(readFile(clip)));
  ASSERT_TRUE(movie);
  EXPECT_NEAR(movie->duration(), 20, 0.25);
  const auto frame = movie->frameImageAtTime(10);
  ASSERT_TRUE(frame);
  EXPECT_NEAR(redLevel(*frame), 60, 6);
  EXPECT_EQ(movie->movieAttributes().count(kQTMovieFileNameAttribute), 0u);
}

// Left half red, right half blue, 64 × 48.
fs::path halvesClip() {
  return ffmpegFile("halves.mp4", {"-f", "lavfi", "-i", "color=red:s=32x48:d=1:r=5", "-f", "lavfi",
                                   "-i", "color=blue:s=32x48:d=1:r=5", "-filter_complex",
                                   "[0][1]hstack,format=yuv420p", "-c:v", "mpeg4", "-q:v", "2"});
}

TEST(QTMovie, RotatedClipStandsUprightWithItsSidesSwapped) {
  const fs::path plain = halvesClip();
  ASSERT_FALSE(plain.empty());
  // The display matrix turns the frame a quarter counterclockwise, as ffmpeg's own autorotation
  // shows: the right (blue) half comes to the top.
  const fs::path rotated = ffmpegFile(
      "rotated.mp4", {"-i", plain.string(), "-c", "copy", "-metadata:s:v:0", "rotate=90"});
  ASSERT_FALSE(rotated.empty());
  auto movie = QTMovie::movieWithFile(rotated.string());
  ASSERT_TRUE(movie);
  EXPECT_EQ(movie->naturalSize(), (MovieSize{48, 64}));
  const auto frame = movie->frameImageAtTime(0);
  ASSERT_TRUE(frame);
  ASSERT_EQ(frame->width, 48);
  ASSERT_EQ(frame->height, 64);
  EXPECT_GT(pixel(*frame, 24, 4)[2], 200);  // top: blue
  EXPECT_LT(pixel(*frame, 24, 4)[0], 60);
  EXPECT_GT(pixel(*frame, 24, 59)[0], 200);  // bottom: red
  EXPECT_LT(pixel(*frame, 24, 59)[2], 60);
}

TEST(QTMovie, SampleAspectRatioWidensTheNaturalSize) {
  const fs::path clip =
      ffmpegFile("wide_pixels.mp4", {"-f", "lavfi", "-i", "color=gray:s=64x48:d=1:r=5", "-vf",
                                     "setsar=2/1,format=yuv420p", "-c:v", "mpeg4", "-q:v", "2"});
  ASSERT_FALSE(clip.empty());
  auto movie = QTMovie::movieWithFile(clip.string());
  ASSERT_TRUE(movie);
  EXPECT_EQ(movie->naturalSize(), (MovieSize{128, 48}));
  const auto frame = movie->frameImageAtTime(0);
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->width, 128);
  EXPECT_EQ(frame->height, 48);
}

// The clip's bytes with the mvhd poster time set to `units` of its time scale.
std::string withPosterTime(const std::string& bytes, std::uint32_t units) {
  std::string patched = bytes;
  const std::size_t box = patched.find("mvhd") - 4;
  EXPECT_EQ(patched[box + 8], 0) << "a version-0 mvhd";
  for (int i = 0; i < 4; ++i)
    patched[box + 88 + i] = static_cast<char>(units >> (24 - 8 * i));
  return patched;
}

TEST(QTMovie, PosterFrameComesFromTheMovieHeaderElseTheFirstFrame) {
  const fs::path clip = rampClip(20);
  ASSERT_FALSE(clip.empty());
  const std::string bytes = readFile(clip);
  ASSERT_EQ(movieHeaderOfBytes(bytesOf(bytes))->timeScale, 1000u);

  auto plain = QTMovie::movieWithFile(clip.string());
  ASSERT_TRUE(plain);
  EXPECT_EQ(plain->posterTime(), 0.0);
  const auto first = plain->posterImage();
  ASSERT_TRUE(first);
  EXPECT_NEAR(redLevel(*first), 0, 6);

  const fs::path patched = testFolder() / "poster.mp4";
  writeFile(patched, withPosterTime(bytes, 4000));
  auto movie = QTMovie::movieWithFile(patched.string());
  ASSERT_TRUE(movie);
  EXPECT_EQ(movie->posterTime(), 4.0);
  EXPECT_EQ(movie->movieAttributes().at(kQTMoviePosterTimeAttribute), Value(4.0));
  const auto poster = posterImageForMovieWithFile(patched.string());
  ASSERT_TRUE(poster);
  EXPECT_NEAR(redLevel(*poster), 24, 6);
}

TEST(QTMovie, AudioGivesItsCoverArtOrNoFrame) {
  const fs::path cover = ffmpegFile("cover.m4a", {"-f",
                                                  "lavfi",
                                                  "-i",
                                                  "sine=d=1",
                                                  "-f",
                                                  "lavfi",
                                                  "-i",
                                                  "color=c=lime:s=40x30:d=1",
                                                  "-map",
                                                  "0",
                                                  "-map",
                                                  "1",
                                                  "-frames:v",
                                                  "1",
                                                  "-c:a",
                                                  "aac",
                                                  "-c:v",
                                                  "png",
                                                  "-disposition:v:0",
                                                  "attached_pic"});
  ASSERT_FALSE(cover.empty()) << "ffmpeg could not make the audio file";
  std::optional<Dictionary> attributes;
  const auto art = thumbnailImageForMovieWithFile(cover.string(), &attributes);
  ASSERT_TRUE(art);
  EXPECT_EQ(art->width, 40);
  EXPECT_EQ(art->height, 30);
  EXPECT_GT(pixel(*art, 20, 15)[1], 200);  // lime
  ASSERT_TRUE(attributes);
  EXPECT_EQ(attributes->at(kQTMovieHasVideoAttribute), Value(false));
  EXPECT_EQ(attributes->at(kQTMovieHasAudioAttribute), Value(true));
  EXPECT_EQ(attributes->at(kQTMovieNaturalSizeAttribute), Value(u"{40, 30}"));

  const fs::path bare = ffmpegFile("bare.m4a", {"-f", "lavfi", "-i", "sine=d=1", "-c:a", "aac"});
  ASSERT_FALSE(bare.empty());
  auto movie = QTMovie::movieWithFile(bare.string());
  ASSERT_TRUE(movie);
  EXPECT_NEAR(movie->duration(), 1, 0.1);
  EXPECT_EQ(movie->naturalSize(), (MovieSize{0, 0}));
  EXPECT_FALSE(thumbnailImage(*movie));
  EXPECT_FALSE(thumbnailImageForMovieWithFile(bare.string(), &attributes));
  EXPECT_TRUE(attributes);  // the file opened: its attributes come back without a frame
}

TEST(QTMovie, AttributesNameSizeDurationAndFile) {
  const fs::path clip = rampClip(20);
  ASSERT_FALSE(clip.empty());
  std::optional<Dictionary> attributes;
  ASSERT_TRUE(thumbnailImageForMovieWithFile(clip.string(), &attributes));
  ASSERT_TRUE(attributes);
  EXPECT_EQ(attributes->at(kQTMovieNaturalSizeAttribute), Value(u"{64, 48}"));
  EXPECT_NEAR(*attributes->at(kQTMovieDurationAttribute).number(), 20, 0.25);
  EXPECT_EQ(attributes->at(kQTMovieFileNameAttribute), Value(utf8ToUtf16(clip.string())));
  EXPECT_EQ(attributes->at(kQTMovieHasVideoAttribute), Value(true));
}

TEST(QTMovie, LoopModeAndMovieTime) {
  const fs::path clip = rampClip(20);
  ASSERT_FALSE(clip.empty());
  auto movie = QTMovie::movieWithFile(clip.string());
  ASSERT_TRUE(movie);
  EXPECT_EQ(loopMode(*movie), 0);
  const struct {
    int set, expected;
    bool loops, backAndForth;
  } rows[] = {{1, 1, true, false}, {2, 2, false, true}, {3, 0, false, false}, {0, 0, false, false}};
  for (const auto& row : rows) {
    setLoopMode(*movie, row.set);
    EXPECT_EQ(loopMode(*movie), row.expected) << row.set;
    const Dictionary attributes = movie->movieAttributes();
    EXPECT_EQ(attributes.at(kQTMovieLoopsAttribute), Value(row.loops)) << row.set;
    EXPECT_EQ(attributes.at(kQTMovieLoopsBackAndForthAttribute), Value(row.backAndForth));
  }
  EXPECT_EQ(movieTime(*movie), 0);
  setMovieTime(*movie, 5.5);
  EXPECT_EQ(movieTime(*movie), 5.5);
  setMovieTime(*movie, -1);
  EXPECT_EQ(movieTime(*movie), 0);
  setMovieTime(*movie, 1000);
  EXPECT_EQ(movieTime(*movie), movieDuration(*movie));
  EXPECT_EQ(movieSize(*movie), (MovieSize{64, 48}));
}

TEST(QTMovie, BadFilesGiveNilNeverACrash) {
  const fs::path clip = rampClip(20);
  ASSERT_FALSE(clip.empty());
  const std::string good = readFile(clip);
  const struct {
    const char* fault;
    std::string bytes;
  } rows[] = {
      {"zero bytes", ""},
      {"text", "just some words, no movie at all"},
      {"first half only", good.substr(0, good.size() / 2)},
      {"a tenth", good.substr(0, good.size() / 10)},
      {"header box only", good.substr(0, 32)},
      {"mdat cut to nothing", good.substr(0, good.find("mdat") + 4)},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.fault);
    const fs::path file = testFolder() / "bad.mp4";
    writeFile(file, row.bytes);
    std::unique_ptr<QTMovie> movies[] = {QTMovie::movieWithFile(file.string()),
                                         QTMovie::movieWithData(bytesOf(row.bytes))};
    for (auto& movie : movies) {
      if (!movie) continue;
      (void)movie->duration();
      (void)thumbnailImage(*movie);
      (void)movie->frameImageAtTime(1e9);
    }
    std::optional<Dictionary> attributes = Dictionary{};
    (void)thumbnailImageForMovieWithFile(file.string(), &attributes);
  }
  std::optional<Dictionary> attributes = Dictionary{};
  EXPECT_FALSE(
      thumbnailImageForMovieWithFile((testFolder() / "missing.mp4").string(), &attributes));
  EXPECT_FALSE(attributes);
  EXPECT_FALSE(QTMovie::movieWithFile(""));
}

TEST(QuickTimeFileTypes, ExtensionsIgnoreCaseTypesCompareExactly) {
  const struct {
    const char16_t* extension;
    const char16_t* type;
    bool expected;
  } rows[] = {
      {u"mp4", u"", true},          {u"MP4", u"", true},     {u"Mp4", u"", true},
      {u"mov", u"", true},          {u"mqv", u"", true},     {u"MQV", u"", true},
      {u"", u"'mpg4'", true},       {u"", u"'MPG4'", false}, {u"", u"'MPG '", true},
      {u"", u"'mpg '", false},      {u"xyz123", u"", false}, {u"", u"", false},
      {u"xyz123", u"'caff'", true},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(isQuickTimeExtension(row.extension, row.type), row.expected)
        << utf16ToUtf8(row.extension) << " " << utf16ToUtf8(row.type);
  }
}

TEST(QuickTimeFileTypes, FFmpegExtensionsFirstThenOursEachOnce) {
  const auto& types = QuickTimeFileTypes();
  const auto position = [&](std::u16string_view type) {
    return std::find(types.begin(), types.end(), type) - types.begin();
  };
  // "mov" comes from FFmpeg's QuickTime demuxer, "'MPG '" is our first entry.
  EXPECT_LT(position(u"mov"), position(u"'MPG '"));
  EXPECT_LT(position(u"'MPG '"), position(u"'VfW '"));
  EXPECT_LT(static_cast<std::size_t>(position(u"m4v")), types.size());
  for (const auto& type : types) {
    EXPECT_EQ(std::count(types.begin(), types.end(), type), 1) << utf16ToUtf8(type);
  }
  EXPECT_TRUE(isQuickTimeFile(u"/any/where/Clip.M4V"));
  EXPECT_FALSE(isQuickTimeFile(u"/any/where/notes.xyz123"));
}

}  // namespace
}  // namespace ferncast
