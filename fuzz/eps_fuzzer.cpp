// PostScript bytes: the program and bounding box reader, and the conversion to PDF under a tiny
// time limit and a small memory limit (a program that loops or eats memory must be stopped).
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "imaging/ImageRep.h"
#include "imaging/PostScript.h"

using namespace ferncast;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  if (size > 64 * 1024) return 0;
  const Data data(bytes, bytes + size);
  const std::optional<PostScriptProgram> program = readPostScriptProgram(data);
  if (!program) return 0;
  if (program->boundingBox &&
      !(program->boundingBox->size.width > 0 && program->boundingBox->size.height > 0))
    __builtin_trap();
  const auto start = std::chrono::steady_clock::now();
  if (std::optional<Data> pdf =
          convertPostScriptToPDF(program->text, std::chrono::milliseconds(300), 256 << 20)) {
    if (pdf->size() < 5 || pdf->front() != '%') __builtin_trap();
  }
  if (std::chrono::steady_clock::now() - start > std::chrono::seconds(5)) __builtin_trap();
  if (auto eps = EPSImageRep::imageRepWithData(data))
    if (eps->PDFImageRep()) __builtin_trap();  // nothing converts before it is asked to
  return 0;
}
