#pragma once

#include <functional>
#include <string>

#include "ClientComm/TQHPAppEventBase.h"

namespace sample {

/// Base of the classes that hosts call by name: knows who makes the call at hand.
class WireObject : public TQHPAppEventBase {
 public:
  void setBundleID(const clientcomm::OptionalString& bundleID) override;

 protected:
  /// The bundle identifier of the host whose call is being carried out.
  const std::string& caller() const noexcept { return caller_; }

  /// Carries out `action`, which takes something that a host has handed over. When it fails,
  /// nothing was taken; the host hears nothing of that, so the helper notes it.
  static void take(const char* what, const std::function<void()>& action);

  /// A missing argument reads as empty text, which is what a host sends for one that it has not.
  static std::string text(const clientcomm::OptionalString& argument) {
    return argument.value_or("");
  }

 private:
  std::string caller_;
};

}  // namespace sample
