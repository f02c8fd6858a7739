#pragma once

#include <cstdint>
#include <string_view>

#include "ClientComm/platform/diagnostic_causes.h"

/// What a diagnostic handler is told; see ClientComm/diagnostics.h.
namespace clientcomm {

/// Why the library gives up, ignores something or falls back. Later versions add causes.
enum class DiagnosticCause : std::int32_t {
#define CLIENTCOMM_CAUSE(IN_C, InCpp, name, number, sentence) k##InCpp = (number),
  CLIENTCOMM_DIAGNOSTIC_CAUSES(CLIENTCOMM_CAUSE)
#undef CLIENTCOMM_CAUSE
};

/// What the code of a record is.
enum class DiagnosticCodeKind : std::int32_t {
  kNone,        ///< There is none; it is 0.
  kErrno,       ///< The system's error number.
  kStatus,      ///< A status, as the calls of the library return it.
  kExitStatus,  ///< The exit status of a process.
  kSignal,      ///< The signal that ended a process.
  kProcess,     ///< The ID of a process; 0 for one that is not seen from here.
};

/// A cause in words.
struct DiagnosticTexts {
  /// Of which cause they are.
  DiagnosticCause cause;
  /// Its stable name, as "info-key-missing"; `clientcomm check` says the same.
  const char* name;
  /// What is attempted where it comes up, as "launch the helper".
  const char* attempt;
  /// What happened and what the library does.
  const char* sentence;
};

/// What is attempted where `cause` comes up; "" for a cause of an unknown group.
constexpr const char* attemptOf(DiagnosticCause cause) noexcept {
  constexpr int kCausesPerAttempt = 100;
  switch (static_cast<int>(cause) / kCausesPerAttempt) {
#define CLIENTCOMM_ATTEMPT(group, text) \
  case group:                           \
    return text;
    CLIENTCOMM_DIAGNOSTIC_ATTEMPTS(CLIENTCOMM_ATTEMPT)
#undef CLIENTCOMM_ATTEMPT
    default:
      return "";
  }
}

/// All causes in words.
inline constexpr DiagnosticTexts kDiagnosticTexts[] = {
#define CLIENTCOMM_CAUSE(IN_C, InCpp, name, number, sentence) \
  {DiagnosticCause::k##InCpp, name, attemptOf(DiagnosticCause::k##InCpp), sentence},
    CLIENTCOMM_DIAGNOSTIC_CAUSES(CLIENTCOMM_CAUSE)
#undef CLIENTCOMM_CAUSE
};

/// `cause` in words; empty ones for a cause of a later version.
constexpr DiagnosticTexts textsOf(DiagnosticCause cause) noexcept {
  for (const DiagnosticTexts& texts : kDiagnosticTexts) {
    if (texts.cause == cause) return texts;
  }
  return {cause, "", attemptOf(cause), ""};
}

/// One failure. Valid while the handler runs; copy what is kept. Later versions may add members at
/// the end.
struct Diagnostic {
  /// Why the library gives up, ignores something or falls back.
  DiagnosticCause cause;
  /// What `code` is.
  DiagnosticCodeKind codeKind;
  /// The error number, status, signal or process; 0 for none.
  std::int32_t code;
  /// Name of the system call, or of the check, that failed; may be empty.
  const char* call;
  /// The path, identifier or key that the attempt was about; may be empty.
  std::string_view subject;
  /// What else the cause says; else empty.
  std::string_view detail;

  /// The stable name of the cause.
  constexpr const char* name() const noexcept { return textsOf(cause).name; }
  /// What was attempted, as "launch the helper".
  constexpr const char* attempt() const noexcept { return textsOf(cause).attempt; }
  /// What happened and what the library does now.
  constexpr const char* sentence() const noexcept { return textsOf(cause).sentence; }
};

}  // namespace clientcomm
