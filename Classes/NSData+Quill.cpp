#include "Classes/NSData+Quill.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "Classes/Log.h"
#include "Classes/Unicode.h"

namespace ferncast {
namespace {

constexpr std::string_view kRTFSignature = "{\\rtf";
constexpr std::string_view kCocoaRTFSignature = "\\cocoartf";
constexpr std::size_t kBytesPerLine = 16;

std::string_view view(const Data& data) {
  return {reinterpret_cast<const char*>(data.data()), data.size()};
}

// Reads to the end of the file; false on a read error.
bool readAll(int fd, Data& data) {
  struct stat status;
  if (fstat(fd, &status) == 0 && status.st_size > 0)
    data.reserve(static_cast<std::size_t>(status.st_size));
  std::uint8_t buffer[65536];
  for (;;) {
    const ssize_t n = read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) return true;
    data.insert(data.end(), buffer, buffer + n);
  }
}

// A byte as the character that the dump shows for it.
void appendShown(std::u16string& line, std::uint8_t byte) {
  line += byte < 32 ? u' ' : static_cast<char16_t>(byte);
}

}  // namespace

std::optional<Data> dataWithUncachedContentsOfFile(std::u16string_view path) {
  const std::string fileSystemPath = utf16ToUtf8(path);
  const int fd = open(fileSystemPath.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  Data data;
  bool ok = false;
  try {
    ok = readAll(fd, data);
  } catch (const std::bad_alloc&) {
  }
  posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
  close(fd);
  if (!ok) return std::nullopt;
  return data;
}

std::optional<Data> dataWithContentsOfRegularFile(std::u16string_view path) {
  const std::string fileSystemPath = utf16ToUtf8(path);
  const int fd = open(fileSystemPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd < 0) return std::nullopt;
  struct stat status;
  Data data;
  bool ok = false;
  if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
    try {
      ok = readAll(fd, data);
    } catch (const std::bad_alloc&) {
    }
  }
  close(fd);
  if (!ok) return std::nullopt;
  return data;
}

bool isAsciiData(const Data& data) {
  if (data.empty()) return false;
  return std::all_of(data.begin(), data.end(), [](std::uint8_t byte) {
    return byte < 128 && (byte >= 32 || byte == 3 || byte == 8 || byte == 9 || byte == 10 ||
                          byte == 12 || byte == 13);
  });
}

bool isRTFData(const Data& data) {
  return isRTFData(data, nullptr);
}

bool isRTFData(const Data& data, bool* isCocoaRTF) {
  const std::string_view bytes = view(data);
  const std::size_t found = bytes.find(kRTFSignature);
  if (isCocoaRTF) {
    *isCocoaRTF =
        found != std::string_view::npos &&
        bytes.find(kCocoaRTFSignature, found + kRTFSignature.size()) != std::string_view::npos;
  }
  return found != std::string_view::npos;
}

void dump(const Data& data) {
  if (data.empty()) return;
  static constexpr char kHex[] = "0123456789abcdef";
  std::u16string text;
  for (std::size_t lineStart = 0; lineStart < data.size(); lineStart += kBytesPerLine) {
    const std::size_t lineEnd = std::min(lineStart + kBytesPerLine, data.size());
    for (std::size_t i = lineStart; i < lineEnd; ++i)
      appendShown(text, data[i]);
    text.append(kBytesPerLine - (lineEnd - lineStart), u' ');
    text += u": ";
    for (std::size_t i = lineStart; i < lineEnd; ++i) {
      text += static_cast<char16_t>(kHex[data[i] >> 4]);
      text += static_cast<char16_t>(kHex[data[i] & 15]);
      text += u' ';
    }
    text += u'\n';
  }
  NSLog(data.size() <= kBytesPerLine ? text : u"\n" + text + u"\n");
}

void dumpAsArray(const Data& data) {
  if (data.empty()) return;
  std::string text = "\nconst unsigned char data[] = {\n\t";
  char item[16];
  for (std::size_t i = 0; i < data.size(); ++i) {
    if (i + 1 == data.size()) {
      std::snprintf(item, sizeof item, "0x%02x\n};\n ", data[i]);
    } else {
      std::snprintf(item, sizeof item, "0x%02x, ", data[i]);
    }
    text += item;
    if (i + 1 < data.size() && (i + 1) % kBytesPerLine == 0) text += "\n\t";
  }
  text += '\n';
  NSLog(text);
}

}  // namespace ferncast
