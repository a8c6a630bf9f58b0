// What both ends of a helper connection agree on besides the wire: the declared types of a
// protocol's operations, the root object as the connection sees it, and the exception that
// crosses the connection.
#pragma once

#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "Classes/PropertyList.h"

namespace ferncast {

// Types of arguments and results. "Optional" kinds admit nil: Null in an argument list, an
// absent result.
enum class ValueKind { kString, kOptionalString, kBoolean, kOptionalData, kOptionalDictionary };

// Whether an argument (Null for nil) is of `kind`.
bool argumentConforms(const Value& argument, ValueKind kind);
// Whether a result (nullopt for nil) is of `kind`.
bool resultConforms(const std::optional<Value>& result, ValueKind kind);

struct OperationSignature {
  std::u16string_view selector;  // the full selector text, such as u"supportsFile:"
  std::span<const ValueKind> arguments;
  ValueKind result;
};

// A protocol declared once and set on proxies, so that a call's types are known without asking
// the other side. Static data; any thread may read it.
struct Protocol {
  std::u16string_view name;
  std::span<const OperationSignature> operations;

  // The operation with that selector, or null.
  const OperationSignature* operation(std::u16string_view selector) const;
};

// Whether `arguments` match the signature in number and kinds.
bool argumentsConform(const Array& arguments, const OperationSignature& signature);

// The root object of a connection, as the connection sees it. Called on the thread that runs the
// connection's run loop, one request at a time.
class RemoteObject {
 public:
  virtual ~RemoteObject() = default;
  // Whether `invoke` knows the selector; the connection answers "does not respond" otherwise.
  virtual bool respondsToSelector(std::u16string_view selector) const = 0;
  // The result of an operation (nullopt for nil). Any exception thrown here goes back to the
  // caller as an exception reply.
  virtual std::optional<Value> invoke(std::u16string_view selector, Array arguments) = 0;
};

// An exception with the platform's two texts: a name (such as "NSInvalidArgumentException") and
// a reason, both UTF-8. Thrown by an operation, it reaches the caller with the same name and
// reason; the proxy throws it for exception replies and for operations the object does not
// respond to.
class RemoteException : public std::runtime_error {
 public:
  RemoteException(std::string name, std::string reason)
      : std::runtime_error(name + ": " + reason),
        name_(std::move(name)),
        reason_(std::move(reason)) {}
  const std::string& name() const { return name_; }
  const std::string& reason() const { return reason_; }

 private:
  std::string name_;
  std::string reason_;
};

}  // namespace ferncast
