// The serializer stream and serialized file wrappers on any bytes: whatever is accepted writes
// back to bytes that read as the same objects and the same wrapper.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>

#include "webcontent/documents/FileWrapper.h"
#include "webcontent/documents/Serializer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ferncast;
  if (size > 262144) return 0;
  if (std::optional<SerializedObject> object = deserializeObject({data, size})) {
    Data out;
    serializeObject(*object, out);
    std::optional<SerializedObject> again = deserializeObject(out);
    if (!again || !(*again == *object)) std::abort();
  }
  if (std::optional<FileWrapper> wrapper = fileWrapperWithSerializedRepresentation({data, size})) {
    std::optional<FileWrapper> again =
        fileWrapperWithSerializedRepresentation(serializedRepresentation(*wrapper));
    if (!again || !(*again == *wrapper)) std::abort();
  }
  return 0;
}
