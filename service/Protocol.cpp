#include "service/Protocol.h"

namespace ferncast {

bool argumentConforms(const Value& argument, ValueKind kind) {
  bool nil = argument.is<Null>();
  switch (kind) {
    case ValueKind::kString:
      return argument.is<std::u16string>();
    case ValueKind::kOptionalString:
      return nil || argument.is<std::u16string>();
    case ValueKind::kBoolean:
      return argument.is<bool>();
    case ValueKind::kOptionalData:
      return nil || argument.is<Data>();
    case ValueKind::kOptionalDictionary:
      return nil || argument.is<Dictionary>();
  }
  return false;
}

bool resultConforms(const std::optional<Value>& result, ValueKind kind) {
  if (!result) return kind != ValueKind::kString && kind != ValueKind::kBoolean;
  return !result->is<Null>() && argumentConforms(*result, kind);
}

const OperationSignature* Protocol::operation(std::u16string_view selector) const {
  for (const OperationSignature& signature : operations) {
    if (signature.selector == selector) return &signature;
  }
  return nullptr;
}

bool argumentsConform(const Array& arguments, const OperationSignature& signature) {
  if (arguments.size() != signature.arguments.size()) return false;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    if (!argumentConforms(arguments[i], signature.arguments[i])) return false;
  }
  return true;
}

}  // namespace ferncast
