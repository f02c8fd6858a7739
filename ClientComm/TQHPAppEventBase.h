#pragma once

#include <functional>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <string_view>

#include "ClientComm/TQHPTypes.h"
#include "ClientComm/platform/runtime.h"

namespace clientcomm {
class CallableClass;
struct ObjectState;
}  // namespace clientcomm

/// Base of every object that another application can call by class name: invokes a method by its
/// selector, and remembers who has called.
class CLIENTCOMM_EXPORT TQHPAppEventBase : public clientcomm::Object {
 public:
  ~TQHPAppEventBase() override;

  bool takesCalls() const noexcept final { return true; }

  /// The class name under which calls reach the object, and which its own calls carry.
  const std::string& className() const noexcept;

  /// Invokes the method for `selector` with `objects` as its arguments; missing ones are nil.
  /// @return the method's text; nil when it yields none, or the object does not answer `selector`.
  /// @throws clientcomm::InvalidArgumentException when there are more objects than parameters;
  ///         nothing is invoked then. What the method throws passes through.
  clientcomm::OptionalString performSelector(std::string_view selector,
                                             std::span<const clientcomm::OptionalString> objects);

  /// Notes the bundle identifier of the caller of the invocation that follows.
  /// @throws clientcomm::InvalidArgumentException for nil: a caller without identity is not served.
  virtual void setBundleID(const clientcomm::OptionalString& bundleID);

 protected:
  /// Bundle identifiers.
  using BundleIDSet = std::set<std::string, std::less<>>;

  /// An object that has not been called yet.
  TQHPAppEventBase();

  /// The bundle identifiers of all who have ever called an object of this family; only grows.
  static const BundleIDSet& bundleIDSet();

 private:
  friend class clientcomm::CallableClass;
  friend class TQHPHelperControl;
  friend class TQHPUpgradeByHelper;

  /// What the library's own classes keep; null for a class that keeps nothing. Behind a pointer, so
  /// that later releases can keep more and the layout of users' classes stays the same.
  std::unique_ptr<clientcomm::ObjectState> state_;
};
