// Movie and sound file recognition, the representative frame of a movie, and the time, size and
// looping accessors of the older movie class.
//
// The type list is built once, on first use, from FFmpeg's demuxers, and is then read-only: any
// thread may call these functions; a QTMovie itself is used by one thread at a time.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Classes/PropertyList.h"
#include "imaging/QTMovie.h"

namespace ferncast {

// Every extension that FFmpeg's demuxers claim (in their order, each once, lower case), then each
// of our own movie extensions and quoted classic file types ("'MPG '") not yet in the list.
const std::vector<std::u16string>& QuickTimeFileTypes();
// The list holds the extension (compared without regard to case) or the classic type (compared
// exactly).
bool isQuickTimeExtension(std::u16string_view extension, std::u16string_view type);
// isQuickTimeExtension with the path's extension and the file's classic type.
bool isQuickTimeFile(std::u16string_view path);

// The time of the representative frame: half the duration, kept within 0 … 15 s, floored to a
// whole second (a 10.6 s clip gives 5, a film 15, a 1.5 s clip 0).
double middleTimeOfDuration(double seconds);

// The frame at middleTimeOfDuration of the movie's duration.
std::optional<MovieFrame> middleImage(QTMovie& movie);
// middleImage, or else the poster frame.
std::optional<MovieFrame> thumbnailImage(QTMovie& movie);

// thumbnailImage of the movie in a file; `attributes`, when given, is set to nullopt first and to
// the movie's attributes when the file opens. nullopt for a file that does not open.
std::optional<MovieFrame> thumbnailImageForMovieWithFile(const std::string& path,
                                                         std::optional<Dictionary>* attributes);
std::optional<MovieFrame> posterImageForMovieWithFile(const std::string& path);
std::optional<MovieFrame> middleImageForMovieWithFile(const std::string& path);

// The current time and duration in seconds, and the natural size.
double movieTime(const QTMovie& movie);
void setMovieTime(QTMovie& movie, double seconds);
double movieDuration(const QTMovie& movie);
MovieSize movieSize(const QTMovie& movie);

// 0 no looping, 1 loop, 2 loop back and forth. Setting writes both looping attributes, so a mode
// other than 1 and 2 turns both off.
int loopMode(const QTMovie& movie);
void setLoopMode(QTMovie& movie, int mode);

}  // namespace ferncast
