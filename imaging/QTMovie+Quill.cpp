#include "imaging/QTMovie+Quill.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <algorithm>
#include <cmath>

#include "Classes/ContentTypes.h"
#include "Classes/NSString+Paths.h"
#include "Classes/Unicode.h"
#include "markup/chartables/NSString+QuillCompare.h"

namespace ferncast {
namespace {

// Our own movie and sound types, added after FFmpeg's in this order.
constexpr const char16_t* kOwnMovieTypes[] = {
    u"'MPG '", u"mpg",    u"mpeg",   u"m4a",    u"mp4",    u"mp3",    u"m3u",    u"m4p",
    u"avi",    u"swf",    u"flv",    u"f4v",    u"qt",     u"mid",    u"midi",   u"au",
    u"wav",    u"aif",    u"aiff",   u"3gp",    u"3g2",    u"3gpp",   u"flc",    u"'VfW '",
    u"m1s",    u"MQV",    u"'MPGA'", u"'.WAV'", u"'amr '", u"m75",    u"'cdda'", u"'qhtm'",
    u"'mpg4'", u"'rtsp'", u"mqv",    u"'hmov'", u"'grip'", u"m1v",    u"m2v",    u"'DIVX'",
    u"bwf",    u"'SMIL'", u"'mxfd'", u"pls",    u"qtpf",   u"cel",    u"'sdp '", u"gsm",
    u"dvd",    u"'sdv '", u"mpa",    u"qht",    u"'PLAY'", u"'SWFL'", u"'3gp2'", u"'attr'",
    u"m15",    u"'MPG3'", u"'M1V '", u"amr",    u"adts",   u"aac",    u"sdp",    u"'MPGa'",
    u"'FLI '", u"atr",    u"skin",   u"'MPGx'", u"dif",    u"smil",   u"'adts'", u"m4b",
    u"rtsp",   u"'3gpp'", u"'SwaT'", u"'amc '", u"3gp2",   u"sdv",    u"'embd'", u"m1a",
    u"'caff'", u"swa",    u"mpm",    u"sd2",    u"'dvc!'", u"'MPG2'", u"cdda",   u"'MP3 '",
    u"'.SMI'", u"'MPGV'", u"smf",    u"'M1A '", u"'GSM '", u"vfw",    u"fli",    u"smi",
    u"mpv",    u"dv",     u"caf",    u"m2a",    u"kar",    u"'Sd2f'", u"mp2",    u"amc",
    u"sml",    u"'MPEG'", u"'DAVI'", u"'AIFC'", u"qtz",    u"qhtm",   u"'Midi'", u"'MPGv'",
    u"m4v",
};
static_assert(std::size(kOwnMovieTypes) == 113);

std::vector<std::u16string> buildMovieTypes() {
  std::vector<std::u16string> types;
  auto add = [&types](std::u16string type) {
    if (!type.empty() && std::find(types.begin(), types.end(), type) == types.end()) {
      types.push_back(std::move(type));
    }
  };
  void* iterator = nullptr;
  while (const AVInputFormat* demuxer = av_demuxer_iterate(&iterator)) {
    if (demuxer->extensions == nullptr) continue;
    std::string_view list = demuxer->extensions;
    while (!list.empty()) {
      const std::size_t comma = std::min(list.find(','), list.size());
      std::string extension(list.substr(0, comma));
      std::transform(extension.begin(), extension.end(), extension.begin(),
                     [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
      add(utf8ToUtf16(extension));
      list.remove_prefix(std::min(comma + 1, list.size()));
    }
  }
  for (const char16_t* type : kOwnMovieTypes)
    add(type);
  return types;
}

}  // namespace

const std::vector<std::u16string>& QuickTimeFileTypes() {
  static const std::vector<std::u16string> types = buildMovieTypes();
  return types;
}

bool isQuickTimeExtension(std::u16string_view extension, std::u16string_view type) {
  for (const std::u16string& entry : QuickTimeFileTypes()) {
    if ((!extension.empty() && equalsNoCase(entry, extension)) ||
        (!type.empty() && entry == type)) {
      return true;
    }
  }
  return false;
}

bool isQuickTimeFile(std::u16string_view path) {
  const std::optional<std::u16string> type = classicFileTypeOfPath(path);
  return isQuickTimeExtension(pathExtension(path), type.value_or(u""));
}

double middleTimeOfDuration(double seconds) {
  double time = seconds * 0.5;
  if (!(time > 0)) time = 0;  // negative, or not a number
  if (time > 15) time = 15;
  return std::floor(time);
}

std::optional<MovieFrame> middleImage(QTMovie& movie) {
  return movie.frameImageAtTime(middleTimeOfDuration(movieDuration(movie)));
}

std::optional<MovieFrame> thumbnailImage(QTMovie& movie) {
  std::optional<MovieFrame> frame = middleImage(movie);
  if (!frame) frame = movie.posterImage();
  return frame;
}

std::optional<MovieFrame> thumbnailImageForMovieWithFile(const std::string& path,
                                                         std::optional<Dictionary>* attributes) {
  if (attributes != nullptr) attributes->reset();
  auto movie = QTMovie::movieWithFile(path);
  if (!movie) return std::nullopt;
  std::optional<MovieFrame> frame = thumbnailImage(*movie);
  if (attributes != nullptr) *attributes = movie->movieAttributes();
  return frame;
}

std::optional<MovieFrame> posterImageForMovieWithFile(const std::string& path) {
  auto movie = QTMovie::movieWithFile(path);
  if (!movie) return std::nullopt;
  return movie->posterImage();
}

std::optional<MovieFrame> middleImageForMovieWithFile(const std::string& path) {
  auto movie = QTMovie::movieWithFile(path);
  if (!movie) return std::nullopt;
  return middleImage(*movie);
}

double movieTime(const QTMovie& movie) {
  return movie.currentTime();
}
void setMovieTime(QTMovie& movie, double seconds) {
  movie.setCurrentTime(seconds);
}
double movieDuration(const QTMovie& movie) {
  return movie.duration();
}
MovieSize movieSize(const QTMovie& movie) {
  return movie.naturalSize();
}

int loopMode(const QTMovie& movie) {
  if (movie.loopsBackAndForth()) return 2;
  return movie.loops() ? 1 : 0;
}

void setLoopMode(QTMovie& movie, int mode) {
  movie.setLoops(mode == 1);
  movie.setLoopsBackAndForth(mode == 2);
}

}  // namespace ferncast
