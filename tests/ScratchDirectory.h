// A temporary folder for one test, removed with everything in it when the object goes.
#pragma once

#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace ferncast::testing {

class ScratchDirectory {
 public:
  explicit ScratchDirectory(std::string_view tag = "scratch") {
    static std::atomic<int> serial{0};
    path_ = std::filesystem::temp_directory_path() /
            (std::string(tag) + "_" + std::to_string(getpid()) + "_" + std::to_string(serial++));
    std::filesystem::create_directories(path_);
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(std::string_view name) const { return path_ / name; }

  // Writes `bytes` to the named file (made or replaced) and returns its path.
  std::filesystem::path write(std::string_view name, std::string_view bytes) const {
    const std::filesystem::path file = path_ / name;
    std::ofstream(file, std::ios::binary)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return file;
  }

  static std::string read(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }

 private:
  std::filesystem::path path_;
};

}  // namespace ferncast::testing
