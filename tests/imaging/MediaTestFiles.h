// Test files for the PDF, movie and preview tests, made at test time with Ghostscript, groff,
// qpdf and ffmpeg (scripts/packages.txt), or written by hand.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/ScratchDirectory.h"

extern char** environ;

namespace ferncast::media_test {

namespace fs = std::filesystem;

// Runs a program found on PATH with its output thrown away; true when it exits with 0 within
// two minutes.
inline bool runTool(const std::vector<std::string>& arguments) {
  std::vector<char*> argv;
  for (const std::string& argument : arguments)
    argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  const int error = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) return false;
  // A tool that hangs fails the test instead of holding it.
  int status = 0;
  for (int waited = 0;; ++waited) {
    const pid_t done = waitpid(pid, &status, WNOHANG);
    if (done == pid) break;
    if (done < 0 && errno != EINTR) return false;
    if (waited == 12000) {  // two minutes of 10 ms naps
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      return false;
    }
    usleep(10000);
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

inline std::string readFile(const fs::path& path) {
  return testing::ScratchDirectory::read(path);
}

inline void writeFile(const fs::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

inline std::vector<std::uint8_t> bytesOf(const std::string& text) {
  return std::vector<std::uint8_t>(text.begin(), text.end());
}

// A folder for the files of one test program, removed when the program ends; files made once are
// reused by later tests.
inline const fs::path& testFolder() {
  static const testing::ScratchDirectory folder("ferncast_media");
  return folder.path();
}

// A PDF made by Ghostscript's pdfwrite from PostScript text; empty when gs failed.
inline fs::path ghostscriptPDF(const std::string& name, const std::string& postScript) {
  const fs::path source = testFolder() / (name + ".ps"), pdf = testFolder() / (name + ".pdf");
  if (fs::exists(pdf)) return pdf;
  writeFile(source, postScript);
  if (!runTool({"gs", "-q", "-dSAFER", "-dNOPAUSE", "-dBATCH", "-sDEVICE=pdfwrite",
                "-sOutputFile=" + pdf.string(), source.string()})) {
    return {};
  }
  return pdf;
}

// A PDF made by groff (producer "gropdf …") from troff input; empty when groff failed.
inline fs::path groffPDF(const std::string& name, const std::string& troff) {
  const fs::path source = testFolder() / (name + ".tr"), pdf = testFolder() / (name + ".pdf");
  if (fs::exists(pdf)) return pdf;
  writeFile(source, troff);
  if (!runTool({"sh", "-c", "groff -Tpdf '" + source.string() + "' > '" + pdf.string() + "'"})) {
    return {};
  }
  return pdf;
}

// A PDF file written object by object: `objects[i]` becomes object i + 1, and the cross-reference
// table and trailer (`trailer` inside << >>) are computed.
inline std::string handmadePDF(const std::vector<std::string>& objects,
                               const std::string& trailer = "/Root 1 0 R") {
  std::string pdf = "%PDF-1.4\n";
  std::vector<std::size_t> offsets;
  for (std::size_t i = 0; i < objects.size(); ++i) {
    offsets.push_back(pdf.size());
    pdf += std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
  }
  const std::size_t xref = pdf.size();
  pdf += "xref\n0 " + std::to_string(objects.size() + 1) + "\n0000000000 65535 f \n";
  for (std::size_t offset : offsets) {
    char line[24];
    std::snprintf(line, sizeof line, "%010zu 00000 n \n", offset);
    pdf += line;
  }
  pdf += "trailer\n<< /Size " + std::to_string(objects.size() + 1) + " " + trailer +
         " >>\nstartxref\n" + std::to_string(xref) + "\n%%EOF\n";
  return pdf;
}

// A stream object with its /Length.
inline std::string streamObject(const std::string& content, const std::string& extra = "") {
  return "<< /Length " + std::to_string(content.size()) + extra + " >>\nstream\n" + content +
         "\nendstream";
}

// A file made by ffmpeg from the arguments between its input and output options (quiet, and
// overwriting); made once per test program, empty when ffmpeg failed.
inline fs::path ffmpegFile(const std::string& name, const std::vector<std::string>& arguments) {
  const fs::path out = testFolder() / name;
  if (fs::exists(out)) return out;
  std::vector<std::string> command = {"ffmpeg", "-nostdin", "-v", "error", "-y"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  command.push_back(out.string());
  if (!runTool(command)) return {};
  return out;
}

// An MPEG-4 clip of 64 × 48 pixels at 5 frames a second whose red level is 6 × the time in
// seconds: the frame at t has red ≈ 6t (0 … 240 for clips up to 40 s).
inline fs::path rampClip(double seconds) {
  char name[32];
  std::snprintf(name, sizeof name, "ramp_%g.mp4", seconds);
  return ffmpegFile(name, {"-f", "lavfi", "-i",
                           "nullsrc=s=64x48:r=5:d=" + std::to_string(seconds) +
                               ",geq=r='6*T':g=128:b=128,format=yuv420p",
                           "-c:v", "mpeg4", "-q:v", "2", "-g", "25"});
}

}  // namespace ferncast::media_test
