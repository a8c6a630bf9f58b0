// Image benchmarks.
//
//   images_benchmark [Google Benchmark options]: the small operations (fitting sizes, sniffing
//     bytes, content types).
//   images_benchmark --peers [FILES] [ROUNDS]: ours against the command-line peers on files it
//     makes itself (FILES 12-megapixel JPEGs, the same with an embedded EXIF thumbnail, FILES EPS
//     drawings), each side timed over all files in one go, ROUNDS times alternately; prints the
//     median times and their ratios:
//       thumbnails   Image::thumbnailForFile(256, properties) + TIFF, in this process, against
//                    `vipsthumbnail -s 256 -o %s.tif FILES...` (one process for all files)
//       embedded     the same on the files with an embedded thumbnail (ours takes that one)
//       eps          convertPostScriptToPDF per file (a child process each, started from here)
//                    against `gs ... -sDEVICE=pdfwrite -dEPSCrop` per file
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vips/vips.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "Classes/ContentTypes.h"
#include "Classes/Unicode.h"
#include "imaging/Image.h"
#include "imaging/ImageClassification.h"
#include "imaging/PostScript.h"

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <exiv2/exiv2.hpp>
#pragma GCC diagnostic pop

extern char** environ;

namespace {

using namespace ferncast;
namespace fs = std::filesystem;

// --- Micro benchmarks ------------------------------------------------------------------------

void BM_ThumbSize(benchmark::State& state) {
  float w = 1000;
  for (auto _ : state) {
    benchmark::DoNotOptimize(Image::thumb({256, 256}, {w, 750}));
    w += 1;
  }
}
BENCHMARK(BM_ThumbSize);

void BM_PathExtensionForData(benchmark::State& state) {
  Data bytes(1024, 'x');
  std::memcpy(bytes.data() + 900, "Photoshop", 9);
  for (auto _ : state)
    benchmark::DoNotOptimize(pathExtensionForData(bytes));
}
BENCHMARK(BM_PathExtensionForData);

void BM_ContentTypeConformance(benchmark::State& state) {
  for (auto _ : state)
    benchmark::DoNotOptimize(
        contentTypeConformsTo(contentTypeForExtension(u"JPG"), u"public.data"));
}
BENCHMARK(BM_ContentTypeConformance);

// --- Peers -----------------------------------------------------------------------------------

struct Times {
  double wall = 0;  // seconds
  double cpu = 0;   // user + system seconds, children included
};

double seconds(const timeval& t) {
  return t.tv_sec + t.tv_usec / 1e6;
}

double cpuSeconds() {
  rusage self{}, children{};
  getrusage(RUSAGE_SELF, &self);
  getrusage(RUSAGE_CHILDREN, &children);
  return seconds(self.ru_utime) + seconds(self.ru_stime) + seconds(children.ru_utime) +
         seconds(children.ru_stime);
}

template <typename Work>
Times timed(Work work) {
  const double cpu = cpuSeconds();
  const auto start = std::chrono::steady_clock::now();
  work();
  return {std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(),
          cpuSeconds() - cpu};
}

bool run(const std::vector<std::string>& arguments) {
  std::vector<char*> argv;
  for (const std::string& argument : arguments)
    argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  const int error = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  if (error != 0 || waitpid(pid, &status, 0) != pid) return false;
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void write(const fs::path& path, const void* bytes, std::size_t length) {
  std::ofstream(path, std::ios::binary)
      .write(static_cast<const char*>(bytes), static_cast<std::streamsize>(length));
}

// A smooth 12-megapixel picture with some grain, as a camera JPEG would hold.
bool makePhoto(const fs::path& path, int seed) {
  VipsImage* bands[3] = {};
  for (int b = 0; b < 3; ++b)
    if (vips_perlin(&bands[b], 4000, 3000, "cell_size", 400, "seed", seed * 3 + b, nullptr) != 0)
      return false;
  VipsImage *joined = nullptr, *scaled = nullptr, *photo = nullptr;
  bool ok = vips_bandjoin(bands, &joined, 3, nullptr) == 0 &&
            vips_linear1(joined, &scaled, 110, 128, "uchar", TRUE, nullptr) == 0;
  if (ok) {
    scaled->Type = VIPS_INTERPRETATION_sRGB;
    ok = vips_copy(scaled, &photo, nullptr) == 0 &&
         vips_jpegsave(photo, path.c_str(), "Q", 90, nullptr) == 0;
  }
  for (VipsImage* image : {bands[0], bands[1], bands[2], joined, scaled, photo})
    if (image) g_object_unref(image);
  return ok;
}

bool addEmbeddedThumbnail(const fs::path& from, const fs::path& to) {
  VipsImage* small = nullptr;
  void* thumbnail = nullptr;
  std::size_t length = 0;
  if (vips_thumbnail(from.c_str(), &small, 160, "height", 160, nullptr) != 0 ||
      vips_jpegsave_buffer(small, &thumbnail, &length, "Q", 80, nullptr) != 0)
    return false;
  g_object_unref(small);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  fs::copy_file(from, to, fs::copy_options::overwrite_existing);
  Exiv2::Image::AutoPtr image = Exiv2::ImageFactory::open(to.string());
  image->readMetadata();
  Exiv2::ExifThumb(image->exifData())
      .setJpegThumbnail(static_cast<const Exiv2::byte*>(thumbnail), static_cast<long>(length));
  image->writeMetadata();
#pragma GCC diagnostic pop
  g_free(thumbnail);
  return true;
}

std::string drawing(int seed) {
  std::string eps =
      "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 0 0 400 300\n%%EndComments\n"
      "/Helvetica findfont 14 scalefont setfont\n";
  for (int i = 0; i < 300; ++i) {
    const int x = (i * 37 + seed * 11) % 380, y = (i * 53 + seed * 7) % 280;
    eps += std::to_string((i % 7) / 7.0) + " " + std::to_string((i % 5) / 5.0) +
           " 0.5 setrgbcolor newpath " + std::to_string(x) + " " + std::to_string(y) + " moveto " +
           std::to_string(20 + i % 30) + " " + std::to_string(10 + i % 20) + " rlineto stroke\n";
  }
  eps += "0 setgray 20 20 moveto (Ferncast drawing " + std::to_string(seed) +
         ") show\n"
         "showpage\n%%EOF\n";
  return eps;
}

[[noreturn]] void fail(const std::string& message) {
  std::fprintf(stderr, "images_benchmark: %s\n", message.c_str());
  std::exit(1);
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void report(const char* name, const std::vector<Times>& ours, const std::vector<Times>& peer,
            const char* peerName, int files) {
  std::vector<double> ourWall, ourCpu, peerWall, peerCpu;
  for (const Times& t : ours)
    ourWall.push_back(t.wall), ourCpu.push_back(t.cpu);
  for (const Times& t : peer)
    peerWall.push_back(t.wall), peerCpu.push_back(t.cpu);
  const double ow = median(ourWall), oc = median(ourCpu), pw = median(peerWall),
               pc = median(peerCpu);
  std::printf(
      "%-11s ours %7.1f ms/file (cpu %7.1f)   %-14s %7.1f ms/file (cpu %7.1f)   "
      "ours/peer %.3f (cpu %.3f)   peer/ours %.1f\n",
      name, ow * 1000 / files, oc * 1000 / files, peerName, pw * 1000 / files, pc * 1000 / files,
      ow / pw, oc / pc, pw / ow);
}

int comparePeers(int files, int rounds) {
  if (VIPS_INIT("images_benchmark") != 0) return 2;
  const fs::path folder = fs::temp_directory_path() / ("images_peers_" + std::to_string(getpid()));
  fs::create_directories(folder / "out");
  std::vector<std::string> photos, embedded, drawings;
  for (int i = 0; i < files; ++i) {
    const fs::path photo = folder / ("photo" + std::to_string(i) + ".jpg");
    const fs::path withThumbnail = folder / ("embedded" + std::to_string(i) + ".jpg");
    const fs::path eps = folder / ("drawing" + std::to_string(i) + ".eps");
    if (!makePhoto(photo, i) || !addEmbeddedThumbnail(photo, withThumbnail)) {
      std::fprintf(stderr, "could not make the test files: %s\n", vips_error_buffer());
      return 2;
    }
    const std::string text = drawing(i);
    write(eps, text.data(), text.size());
    photos.push_back(photo);
    embedded.push_back(withThumbnail);
    drawings.push_back(eps);
  }

  auto ourThumbnails = [&](const std::vector<std::string>& paths) {
    for (const std::string& path : paths) {
      std::optional<Dictionary> properties;
      auto image = Image::thumbnailForFile(utf8ToUtf16(path), 256, false, true, &properties);
      std::optional<Data> tiff = image ? image->TIFFRepresentation() : std::nullopt;
      if (!tiff) fail("no thumbnail of " + path);
      write(folder / "out" / (fs::path(path).stem().string() + ".ours.tif"), tiff->data(),
            tiff->size());
    }
  };
  auto vipsthumbnail = [&](const std::vector<std::string>& paths) {
    std::vector<std::string> command{"vipsthumbnail", "-s", "256", "-o",
                                     (folder / "out" / "%s.tif").string()};
    command.insert(command.end(), paths.begin(), paths.end());
    if (!run(command)) fail("vipsthumbnail failed");
  };
  auto ourEPS = [&] {
    for (const std::string& path : drawings) {
      std::ifstream in(path, std::ios::binary);
      const Data eps((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      if (!convertPostScriptToPDF(eps, std::chrono::seconds(60))) fail("no PDF of " + path);
    }
  };
  auto gs = [&] {
    for (const std::string& path : drawings)
      if (!run({"gs", "-q", "-dSAFER", "-dBATCH", "-dNOPAUSE", "-sDEVICE=pdfwrite", "-dEPSCrop",
                "-dAutoRotatePages=/None", "-sOutputFile=" + (folder / "out" / "gs.pdf").string(),
                path}))
        fail("gs failed on " + path);
  };

  // A warm-up of each side, then alternating rounds.
  ourThumbnails(photos);
  vipsthumbnail(photos);
  std::vector<Times> oursFull, peerFull, oursEmbedded, peerEmbedded, oursEps, peerEps;
  for (int round = 0; round < rounds; ++round) {
    oursFull.push_back(timed([&] { ourThumbnails(photos); }));
    peerFull.push_back(timed([&] { vipsthumbnail(photos); }));
    oursEmbedded.push_back(timed([&] { ourThumbnails(embedded); }));
    peerEmbedded.push_back(timed([&] { vipsthumbnail(embedded); }));
    oursEps.push_back(timed(ourEPS));
    peerEps.push_back(timed(gs));
  }
  std::printf("%d files, %d rounds, medians\n", files, rounds);
  report("thumbnails", oursFull, peerFull, "vipsthumbnail", files);
  report("embedded", oursEmbedded, peerEmbedded, "vipsthumbnail", files);
  report("eps", oursEps, peerEps, "gs", files);
  std::error_code ignored;
  fs::remove_all(folder, ignored);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc >= 2 && std::strcmp(argv[1], "--peers") == 0) {
    const int files = argc >= 3 ? std::max(1, std::atoi(argv[2])) : 8;
    const int rounds = argc >= 4 ? std::max(1, std::atoi(argv[3])) : 3;
    return comparePeers(files, rounds);
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
