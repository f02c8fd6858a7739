#include "ClientComm/platform/status.h"

#include "ClientComm/platform/path.h"
#include "ClientComm/platform/reporter.h"

namespace clientcomm {

Status&& Status::at(std::string_view path) && noexcept {
  try {
    if (code_ != 0 && path_.empty()) path_ = path;
  } catch (...) {
    // Out of memory: the code and the call remain.
  }
  return std::move(*this);
}

Status&& Status::below(std::string_view folder) && noexcept {
  try {
    if (code_ != 0) path_ = stringByAppendingPathComponent(folder, path_);
  } catch (...) {
    // Out of memory: the path within the folder remains.
  }
  return std::move(*this);
}

std::optional<Error> Status::error() const {
  if (isOk()) return std::nullopt;
  return Error{domain_, code_, {{kErrorPathKey, path_}, {kErrorCallKey, call_}}};
}

bool Status::report(DiagnosticCause cause) const noexcept {
  if (code_ != 0) clientcomm::report(cause, path_, call_, code_);
  return code_ == 0;
}

}  // namespace clientcomm
