// MetaDataImporter: metadata and text of files through importer plug-ins.
//
// For now no importers are loaded: every query answers nil or NO. The helper owns one private
// instance (FerncastHelper's `_mdimporter`); an instance is used by one thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Classes/PropertyList.h"

namespace ferncast {

class MetaDataImporter {
 public:
  // The attribute dictionary an importer writes for the file (keys such as
  // "kMDItemTextContent"; values may be Null); nullopt when no importer claims the file.
  std::optional<Dictionary> metaDataOfFileAtPath(std::u16string_view path);
  // The text content an importer finds in the file; nullopt when there is none.
  std::optional<std::u16string> textContentOfFileAtPath(std::u16string_view path);
  // Whether an importer claims the file.
  bool supportsFileAtPath(std::u16string_view path);
};

}  // namespace ferncast
