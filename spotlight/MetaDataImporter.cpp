#include "spotlight/MetaDataImporter.h"

namespace ferncast {

std::optional<Dictionary> MetaDataImporter::metaDataOfFileAtPath(std::u16string_view) {
  return std::nullopt;
}

std::optional<std::u16string> MetaDataImporter::textContentOfFileAtPath(std::u16string_view) {
  return std::nullopt;
}

bool MetaDataImporter::supportsFileAtPath(std::u16string_view) {
  return false;
}

}  // namespace ferncast
