#pragma once

#include <chrono>
#include <list>
#include <string>
#include <string_view>

#include "ClientComm/platform/diagnostic.h"
#include "ClientComm/platform/types.h"

/// How the library tells a diagnostic handler of its failures. Nothing here throws or changes
/// `errno`. Without a handler a report is one relaxed load.
namespace clientcomm {

using Reporter = void (*)(void* context, const Diagnostic& diagnostic);

/// For how long an equal record is left out after the last of them.
inline constexpr std::chrono::seconds kReportPause{20};

/// Null for none. All records count as new again. `destroy`, unless null, is called with `context`
/// once `reporter` has been replaced and runs no more.
/// @return false where memory is short, and nothing was changed.
bool setReporter(Reporter reporter, void* context, void (*destroy)(void* context)) noexcept;

/// Whether there is one: whether it is worth while to find a reason out.
bool isReporting() noexcept;

/// Reports a failure without a code.
void report(DiagnosticCause cause, std::string_view subject, std::string_view detail = {}) noexcept;

/// Reports the failure of `call` with a code.
void report(DiagnosticCause cause, std::string_view subject, const char* call, int code,
            DiagnosticCodeKind kind = DiagnosticCodeKind::kErrno) noexcept;

/// Reports a failure that its caller sees as `status`.
inline void reportStatus(DiagnosticCause cause, std::string_view subject, const char* call,
                         OSErr status) noexcept {
  report(cause, subject, call, status, DiagnosticCodeKind::kStatus);
}

/// Reports a failure with the process at the other end of a connection; 0 where it is not seen.
inline void reportProcess(DiagnosticCause cause, int process) noexcept {
  report(cause, {}, "", process, DiagnosticCodeKind::kProcess);
}

/// Reports the exception that is being handled.
void reportException() noexcept;

/// Keeps the reports of a thread that must not run the handler.
class KeptReports {
 public:
  KeptReports() = default;
  ~KeptReports();
  KeptReports(const KeptReports&) = delete;
  KeptReports& operator=(const KeptReports&) = delete;

  /// Keeps those of the calling thread while it lives.
  class Scope {
   public:
    explicit Scope(KeptReports& reports) noexcept;
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    KeptReports* previous_;
  };

  void keep(const Diagnostic& diagnostic) noexcept;
  /// Reports on the calling thread what has been kept.
  void deliver() noexcept;

 private:
  struct Record {
    Diagnostic diagnostic;
    std::string texts;  ///< Subject and detail.
  };
  std::list<Record> records_;
};

}  // namespace clientcomm
