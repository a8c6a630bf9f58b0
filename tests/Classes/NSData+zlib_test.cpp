#include "Classes/NSData+zlib.h"

#include <gtest/gtest.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "tests/Corpus.h"

namespace ferncast {
namespace {

Data bytesOf(std::string_view text) {
  return Data(text.begin(), text.end());
}

// Text that compresses well, larger than several 16384-byte buffers.
Data sampleText(std::size_t size) {
  static const std::string_view kWords[] = {"the ",    "quick ", "brown ", "fox ",
                                            "jumps\n", "over ",  "lazy ",  "dogs, ",
                                            "and ",    "reads ", "news ",  "pages. "};
  std::mt19937 random(7);
  Data text;
  while (text.size() < size) {
    std::string_view word = kWords[random() % std::size(kWords)];
    text.insert(text.end(), word.begin(), word.end());
  }
  text.resize(size);
  return text;
}

Data randomBytes(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  Data bytes(size);
  for (auto& byte : bytes)
    byte = static_cast<std::uint8_t>(random());
  return bytes;
}

// zlib's own one-shot compression with the given parameters: the reference output.
Data zlibCompress(const Data& input, int level, int windowBits) {
  z_stream stream{};
  EXPECT_EQ(deflateInit2(&stream, level, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY), Z_OK);
  Data out(deflateBound(&stream, input.size()) + 32);
  stream.next_in = const_cast<Bytef*>(input.data());
  stream.avail_in = static_cast<uInt>(input.size());
  stream.next_out = out.data();
  stream.avail_out = static_cast<uInt>(out.size());
  EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

// zlib's own inflation (zlib or gzip framing), the reference decoder.
std::optional<Data> zlibInflate(const Data& input) {
  z_stream stream{};
  EXPECT_EQ(inflateInit2(&stream, 47), Z_OK);
  Data out;
  stream.next_in = const_cast<Bytef*>(input.data());
  stream.avail_in = static_cast<uInt>(input.size());
  int status;
  do {
    Bytef buffer[4096];
    stream.next_out = buffer;
    stream.avail_out = sizeof buffer;
    status = inflate(&stream, Z_NO_FLUSH);
    out.insert(out.end(), buffer, buffer + (sizeof buffer - stream.avail_out));
  } while (status == Z_OK);
  inflateEnd(&stream);
  if (status != Z_STREAM_END || stream.avail_in != 0) return std::nullopt;
  return out;
}

TEST(Compression, NoInputGivesNil) {
  const std::uint8_t byte = 1;
  EXPECT_FALSE(dataByCompressingBytes(nullptr, 10, -1, true));
  EXPECT_FALSE(dataByCompressingBytes(&byte, 0, -1, false));
  EXPECT_FALSE(dataByGzippingData(Data{}));
  EXPECT_FALSE(dataByDeflatingData(Data{}, 9));
}

// Each level must produce exactly what zlib produces at the clamped level: a wrong clamp shows
// up as different bytes (0 would be stored blocks, 12 an init failure).
TEST(Compression, LevelsAreClampedLikeZlibExpectsThem) {
  const Data input = sampleText(100000);
  const std::pair<int, int> levels[] = {
      {-1, Z_DEFAULT_COMPRESSION}, {0, 1}, {-5, 1}, {1, 1}, {5, 5}, {9, 9}, {12, 9}, {1000, 9}};
  for (const auto& [given, used] : levels) {
    EXPECT_EQ(*dataByGzippingData(input, given), zlibCompress(input, used, 31)) << given;
    EXPECT_EQ(*dataByDeflatingData(input, given), zlibCompress(input, used, 15)) << given;
  }
  EXPECT_EQ(*dataByGzippingData(input), zlibCompress(input, Z_DEFAULT_COMPRESSION, 31));
  EXPECT_EQ(*dataByDeflatingData(input), zlibCompress(input, Z_DEFAULT_COMPRESSION, 15));
  EXPECT_LT(dataByDeflatingData(input, 0)->size(), input.size() / 2);
}

TEST(Compression, FramingFollowsTheGzipFlag) {
  const Data input = bytesOf("framing");
  const Data gzip = *dataByCompressingBytes(input.data(), input.size(), -1, true);
  ASSERT_GE(gzip.size(), 18u);
  EXPECT_EQ(gzip[0], 0x1f);
  EXPECT_EQ(gzip[1], 0x8b);
  const Data zlib = *dataByCompressingBytes(input.data(), input.size(), -1, false);
  ASSERT_GE(zlib.size(), 6u);
  EXPECT_EQ(zlib[0] & 0x0f, 8);                 // method deflate
  EXPECT_EQ((zlib[0] << 8 | zlib[1]) % 31, 0);  // header check
}

TEST(Compression, RoundTripsThroughZlibsOwnDecoder) {
  const Data inputs[] = {bytesOf("x"), sampleText(16384), sampleText(16385), sampleText(1 << 20),
                         randomBytes(70000, 1)};
  for (const Data& input : inputs) {
    for (bool gzip : {false, true}) {
      auto compressed = dataByCompressingBytes(input.data(), input.size(), 6, gzip);
      ASSERT_TRUE(compressed);
      EXPECT_EQ(zlibInflate(*compressed), input) << input.size() << " gzip " << gzip;
    }
  }
}

TEST(Inflation, ReadsZlibsOwnOutputInBothFramings) {
  const Data inputs[] = {bytesOf("a"), sampleText(50000), sampleText(1 << 20),
                         randomBytes(100000, 2)};
  for (const Data& input : inputs) {
    EXPECT_EQ(dataByInflatingData(zlibCompress(input, 9, 15)), input);
    EXPECT_EQ(dataByInflatingData(zlibCompress(input, 1, 31)), input);
    Data compressed(compressBound(input.size()));
    uLongf length = compressed.size();
    ASSERT_EQ(compress2(compressed.data(), &length, input.data(), input.size(), 6), Z_OK);
    compressed.resize(length);
    EXPECT_EQ(dataByInflatingData(compressed), input);
  }
}

TEST(Inflation, AnEmptyStreamInflatesToEmptyData) {
  const Data empty = zlibCompress(Data{}, 6, 31);
  auto inflated = dataByInflatingData(empty);
  ASSERT_TRUE(inflated);
  EXPECT_TRUE(inflated->empty());
}

TEST(Inflation, NoInputLeavesTheReceiverAlone) {
  Data receiver = bytesOf("keep");
  EXPECT_FALSE(setDataByInflatingBytes(receiver, nullptr, 4));
  EXPECT_FALSE(setDataByInflating(receiver, Data{}));
  EXPECT_EQ(receiver, bytesOf("keep"));
  EXPECT_FALSE(dataByInflatingData(Data{}));
}

TEST(Inflation, TrailingBytesGiveNoButKeepTheInflatedBytes) {
  const Data input = sampleText(40000);
  for (int windowBits : {15, 31}) {
    Data compressed = zlibCompress(input, 6, windowBits);
    for (std::string_view junk : {std::string_view("x"), std::string_view("\0\0\0\0", 4),
                                  std::string_view("trailing junk after the stream")}) {
      Data body = compressed;
      body.insert(body.end(), junk.begin(), junk.end());
      Data receiver = bytesOf("old");
      EXPECT_FALSE(setDataByInflating(receiver, body));
      EXPECT_EQ(receiver, input);
      EXPECT_FALSE(dataByInflatingData(body));
    }
  }
  // A second gzip member is trailing bytes too.
  Data twoMembers = zlibCompress(bytesOf("one"), 6, 31);
  const Data second = zlibCompress(bytesOf("two"), 6, 31);
  twoMembers.insert(twoMembers.end(), second.begin(), second.end());
  Data receiver;
  EXPECT_FALSE(setDataByInflating(receiver, twoMembers));
  EXPECT_EQ(receiver, bytesOf("one"));
}

TEST(Inflation, TruncatedStreamsGiveNo) {
  const Data input = sampleText(60000);
  for (int windowBits : {15, 31}) {
    const Data compressed = zlibCompress(input, 6, windowBits);
    for (std::size_t length = 1; length < compressed.size(); length += 97) {
      Data receiver;
      EXPECT_FALSE(setDataByInflatingBytes(receiver, compressed.data(), length)) << length;
    }
    // Only the checksum missing.
    EXPECT_FALSE(dataByInflatingBytes(compressed.data(), compressed.size() - 1));
  }
}

TEST(Inflation, CorruptOrForeignBytesGiveNo) {
  const Data input = sampleText(30000);
  for (int windowBits : {15, 31}) {
    Data compressed = zlibCompress(input, 6, windowBits);
    compressed[compressed.size() / 2] ^= 0x55;
    EXPECT_FALSE(dataByInflatingData(compressed)) << windowBits;
  }
  Data badChecksum = zlibCompress(input, 6, 31);
  badChecksum[badChecksum.size() - 6] ^= 1;  // CRC-32 of the gzip trailer
  EXPECT_FALSE(dataByInflatingData(badChecksum));
  EXPECT_FALSE(dataByInflatingData(bytesOf("plain text, not compressed")));
  EXPECT_FALSE(dataByInflatingData(randomBytes(5000, 3)));
  // Raw deflate without a header is not one of the two framings.
  EXPECT_FALSE(dataByInflatingData(zlibCompress(input, 6, -15)));
}

class GzipTool : public ::testing::Test {
 protected:
  void SetUp() override {
    if (std::system("gzip --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "no gzip tool";
    directory_ =
        std::filesystem::path(::testing::TempDir()) / ("zlib_test_" + std::to_string(::getpid()));
    std::filesystem::create_directories(directory_);
  }
  void TearDown() override {
    std::error_code error;
    std::filesystem::remove_all(directory_, error);
  }
  std::filesystem::path file(const char* name) const { return directory_ / name; }
  static void write(const std::filesystem::path& path, const Data& data) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(data.data()),
               static_cast<std::streamsize>(data.size()));
  }
  static Data read(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return Data(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  std::filesystem::path directory_;
};

TEST_F(GzipTool, ReadsOurGzipOutput) {
  const Data inputs[] = {bytesOf("short\n"), sampleText(300000), randomBytes(50000, 4)};
  for (int level : {-1, 1, 9}) {
    for (const Data& input : inputs) {
      write(file("ours.gz"), *dataByGzippingData(input, level));
      const std::string command = "gzip -t '" + file("ours.gz").string() + "' && gzip -dc '" +
                                  file("ours.gz").string() + "' > '" + file("out").string() + "'";
      ASSERT_EQ(std::system(command.c_str()), 0) << level;
      EXPECT_EQ(read(file("out")), input);
    }
  }
}

TEST_F(GzipTool, WeReadTheToolsOutputWithItsFileNameHeader) {
  const Data input = sampleText(200000);
  write(file("plain.txt"), input);
  const std::string command =
      "gzip -9 -c '" + file("plain.txt").string() + "' > '" + file("plain.txt.gz").string() + "'";
  ASSERT_EQ(std::system(command.c_str()), 0);
  EXPECT_EQ(dataByInflatingData(read(file("plain.txt.gz"))), input);
}

TEST(Inflation, ReadsTheArticleCorpusLikeZlibsGzipReader) {
  if (corpus::articlePages().empty()) GTEST_SKIP() << "no shared corpus";
  int files = 0;
  for (const corpus::File& page : corpus::articlePages()) {
    const std::string compressed = corpus::readFile(page.path);
    EXPECT_EQ(dataByInflatingData(Data(compressed.begin(), compressed.end())),
              Data(page.bytes.begin(), page.bytes.end()))
        << page.path;
    ++files;
  }
  EXPECT_GT(files, 0);
}

}  // namespace
}  // namespace ferncast
