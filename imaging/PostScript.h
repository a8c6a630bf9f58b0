// PostScript programs: their bounding box, and their conversion to PDF through Ghostscript.
//
// The conversion runs in a child process (fork, then the Ghostscript API in the child), so that
// a program that loops, eats memory or crashes the interpreter costs only that conversion: the
// child is killed when it outlives its time limit or grows past its memory limit. Safe on any
// thread; conversions do not share state.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>

#include "Classes/PropertyList.h"
#include "imaging/ImageGeometry.h"

namespace ferncast {

struct PostScriptProgram {
  // The program text: the bytes themselves, or the PostScript section of a DOS EPS file.
  Data text;
  // From "%%HiResBoundingBox:" or else "%%BoundingBox:" in the header comments (or at the end
  // when the header says "(atend)"); nullopt when there is none with a positive size.
  std::optional<Rect> boundingBox;
};

// The program in PostScript bytes: they start with "%!PS" (after an optional ^D) or with the
// binary header of a DOS EPS file whose PostScript section does. nullopt otherwise.
[[nodiscard]] std::optional<PostScriptProgram> readPostScriptProgram(const Data& bytes);

inline constexpr std::size_t kPostScriptMemoryLimit = std::size_t{1} << 30;

// The PDF of a PostScript program, converted by Ghostscript's pdfwrite device with -dEPSCrop
// (an EPS file's page is its bounding box) and without automatic page rotation. nullopt when
// Ghostscript fails, produces no PDF, runs longer than `timeLimit` or its process grows beyond
// `memoryLimit` bytes of resident memory.
[[nodiscard]] std::optional<Data> convertPostScriptToPDF(
    const Data& postScript, std::chrono::milliseconds timeLimit,
    std::size_t memoryLimit = kPostScriptMemoryLimit);

}  // namespace ferncast
