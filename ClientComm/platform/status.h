#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "ClientComm/platform/diagnostic.h"
#include "ClientComm/platform/error.h"
#include "ClientComm/platform/file_manager.h"

namespace clientcomm {

// Domains of a status, beside `kFileErrorDomain`. The codes of all are the system's errno values.
inline constexpr char kLockErrorDomain[] = "LockErrorDomain";
inline constexpr char kProcessErrorDomain[] = "ProcessErrorDomain";

// Keys of the information in the error that a status becomes.
inline constexpr char kErrorPathKey[] = "FilePath";
inline constexpr char kErrorCallKey[] = "FailedCall";

/// Whether an operation on files, folders, locks or processes was done, and if not, what failed: a
/// domain, a code within it, the path, and the call. Costs nothing on success. Nothing here throws:
/// where memory is short, the path is left out.
class [[nodiscard]] Status {
 public:
  /// Success.
  Status() noexcept = default;

  /// A failure; success where `code` is 0. `domain` and `call` are not copied.
  Status(const char* domain, int code, const char* call, std::string_view path = {}) noexcept
      : domain_(domain), call_(call), code_(code) {
    if (code_ != 0) std::move(*this).at(path).ignore();
  }

  /// The same in `kFileErrorDomain`.
  static Status ofFile(int code, const char* call, std::string_view path = {}) noexcept {
    return {kFileErrorDomain, code, call, path};
  }

  Status(Status&&) noexcept = default;
  Status& operator=(Status&&) noexcept = default;
  ~Status() = default;
  Status(const Status&) = delete;
  Status& operator=(const Status&) = delete;

  bool isOk() const noexcept { return code_ == 0; }

  /// An errno value; 0 on success.
  int code() const noexcept { return code_; }

  const char* domain() const noexcept { return domain_; }

  /// Name of the system call, or of the check, that failed.
  const char* call() const noexcept { return call_; }

  /// Empty where the failure is of no file.
  const std::string& path() const noexcept { return path_; }

  /// The same status; a failure that has no path yet gets this one.
  Status&& at(std::string_view path) && noexcept;

  /// The same status; the path of a failure is below `folder`.
  Status&& below(std::string_view folder) && noexcept;

  /// The platform's error object; nothing on success.
  std::optional<Error> error() const;

  /// Reports a failure, of which the caller of the operation does not hear, or not why.
  /// @return `isOk()`, which may be discarded.
  bool report(DiagnosticCause cause) const noexcept;

  /// Discards the status. A comment at the call says why nothing has to be done.
  void ignore() const noexcept {}

 private:
  const char* domain_ = kFileErrorDomain;
  const char* call_ = "";
  int code_ = 0;
  std::string path_;
};

}  // namespace clientcomm
