// The mvhd reader on boxes written by hand: both versions, the box walk, and every truncation.
#include "imaging/MovieHeader.h"

#include <gtest/gtest.h>

#include <string>

namespace ferncast {
namespace {

std::string bigEndian(std::uint64_t value, int bytes) {
  std::string out;
  for (int i = bytes - 1; i >= 0; --i)
    out.push_back(static_cast<char>(value >> (8 * i)));
  return out;
}

std::string box(const std::string& type, const std::string& payload) {
  return bigEndian(payload.size() + 8, 4) + type + payload;
}

// An mvhd payload: version, flags, times, then rate, volume, reserved, matrix, preview times,
// poster time, selection times, current time and next track.
std::string movieHeader(int version, std::uint32_t scale, std::uint64_t duration,
                        std::uint32_t poster) {
  const int wide = version == 1 ? 8 : 4;
  std::string payload = bigEndian(version, 1) + bigEndian(0, 3) + bigEndian(1, wide) +
                        bigEndian(2, wide) + bigEndian(scale, 4) + bigEndian(duration, wide);
  payload += bigEndian(0x10000, 4) + bigEndian(0x100, 2) + std::string(10, '\0') +
             std::string(36, '\x01') + bigEndian(7, 4) + bigEndian(8, 4) + bigEndian(poster, 4) +
             std::string(16, '\0') + bigEndian(2, 4);
  return box("mvhd", payload);
}

std::vector<std::uint8_t> bytesOf(const std::string& text) {
  return std::vector<std::uint8_t>(text.begin(), text.end());
}

TEST(MovieHeader, ReadsBothVersionsPastOtherBoxes) {
  const std::string ftyp = box("ftyp", "isom\0\0\0\0isom");
  const std::string mdat = box("mdat", std::string(1000, '\xAB'));
  const struct {
    const char* layout;
    std::string bytes;
    std::uint32_t scale;
    std::uint64_t duration;
    std::uint32_t poster;
  } rows[] = {
      {"version 0 after mdat", ftyp + mdat + box("moov", movieHeader(0, 600, 12000, 1800)), 600,
       12000, 1800},
      {"version 1 with a 64-bit duration",
       ftyp + box("moov", box("iods", "xx") + movieHeader(1, 1000, 1ULL << 40, 250)), 1000,
       1ULL << 40, 250},
      {"64-bit box size",
       ftyp + bigEndian(1, 4) + "mdat" + bigEndian(16 + 4, 8) + "abcd" +
           box("moov", movieHeader(0, 90000, 900000, 45000)),
       90000, 900000, 45000},
      {"last box runs to the end", ftyp + bigEndian(0, 4) + "moov" + movieHeader(0, 30, 300, 60),
       30, 300, 60},
  };
  for (const auto& row : rows) {
    const auto header = movieHeaderOfBytes(bytesOf(row.bytes));
    ASSERT_TRUE(header) << row.layout;
    EXPECT_EQ(header->timeScale, row.scale) << row.layout;
    EXPECT_EQ(header->duration, row.duration) << row.layout;
    EXPECT_EQ(header->posterTime, row.poster) << row.layout;
  }
  EXPECT_EQ(movieHeaderOfBytes(bytesOf(rows[0].bytes))->posterSeconds(), 3.0);
}

TEST(MovieHeader, RefusesWhatIsNotThere) {
  const std::string header = movieHeader(0, 600, 12000, 1800);
  const struct {
    const char* fault;
    std::string bytes;
  } rows[] = {
      {"no bytes", ""},
      {"mvhd outside moov", header},
      {"moov without mvhd", box("moov", box("trak", "x"))},
      {"version 2", box("moov", box("mvhd", bigEndian(2, 1) + std::string(123, '\0')))},
      {"box larger than the file", bigEndian(4000, 4) + "moov" + header},
      {"box smaller than its header", bigEndian(3, 4) + "moov" + header},
      {"64-bit size below 16", bigEndian(1, 4) + "moov" + bigEndian(8, 8) + header},
  };
  for (const auto& row : rows) {
    EXPECT_FALSE(movieHeaderOfBytes(bytesOf(row.bytes))) << row.fault;
  }
}

TEST(MovieHeader, EveryTruncationIsRefused) {
  const std::string file = box("ftyp", "isom") + box("moov", movieHeader(1, 1000, 5000, 10));
  ASSERT_TRUE(movieHeaderOfBytes(bytesOf(file)));
  for (std::size_t length = 0; length < file.size(); ++length) {
    // The moov box then claims more than there is, or mvhd lacks its poster time.
    EXPECT_FALSE(movieHeaderOfBytes(bytesOf(file.substr(0, length)))) << length;
  }
}

TEST(MovieHeader, FilesAreReadLikeBytes) {
  const std::string path = ::testing::TempDir() + "/movie_header_test.mov";
  const std::string file = box("wide", "") + box("moov", movieHeader(0, 600, 600, 300));
  FILE* out = std::fopen(path.c_str(), "wb");
  ASSERT_TRUE(out);
  std::fwrite(file.data(), 1, file.size(), out);
  std::fclose(out);
  const auto header = movieHeaderOfFile(path);
  std::remove(path.c_str());
  ASSERT_TRUE(header);
  EXPECT_EQ(header->posterSeconds(), 0.5);
  EXPECT_FALSE(movieHeaderOfFile(path));
}

}  // namespace
}  // namespace ferncast
