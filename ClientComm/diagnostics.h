#pragma once

#include <functional>
#include <new>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "ClientComm/platform/diagnostic.h"
#include "ClientComm/platform/export.h"

/// Why something does not work. The library writes nothing anywhere; a host or a helper that wants
/// to know sets a handler:
///
///     clientcomm::setDiagnosticHandler([](const clientcomm::Diagnostic& diagnostic) {
///       std::fprintf(stderr, "%s\n", clientcomm::descriptionOf(diagnostic).c_str());
///     });
///
/// Without a handler a failure costs the look whether there is one, and a success nothing.

namespace clientcomm {

/// Is told of one failure.
using DiagnosticHandler = std::function<void(const Diagnostic& diagnostic)>;

/// How long a failure must not have recurred before it is reported again, in seconds.
inline constexpr int kDiagnosticPause = 20;

/// The same as a function, and what `setDiagnosticFunction` was given as `context`.
using DiagnosticFunction = void (*)(void* context, const Diagnostic& diagnostic);

/// `setDiagnosticHandler` for a function and what it is called with; NULL ends the reports.
/// @param function called for each failure, as the handler of `setDiagnosticHandler`.
/// @param context handed to both functions as it is.
/// @param destroy called with `context` once the function is called no more; may be NULL.
/// @return false where memory is short: the former handler stays, and `destroy` is not called.
CLIENTCOMM_EXPORT bool setDiagnosticFunction(DiagnosticFunction function, void* context,
                                             void (*destroy)(void* context)) noexcept;

/// Has `handler` called for each failure from now on; an empty one ends that. Set it before the
/// first `share()`, whose start-up is then covered.
///
/// It is called on the thread that called the library, or that runs the main loop, before the
/// failed operation returns; never from a signal handler, nor on a thread or in a process that the
/// library makes. It may be called from `exit()`. It may call the library, whose failures are not
/// reported meanwhile, replace itself, and throw: the exception ends there. It neither destroys an
/// object of the library nor runs a main loop: the library is in the midst of an operation.
///
/// A record equal to an earlier one is left out as long as the failure recurs within
/// `kDiagnosticPause`: a cause that persists is reported once.
///
/// While a handler is set, a process of the library watches each launched helper for 5 seconds, and
/// how the helper has ended within them is reported from the main loop.
///
/// May be called on any thread. A call of the former handler on another thread may still go on when
/// this returns.
/// @return false where memory is short: the former handler stays.
inline bool setDiagnosticHandler(DiagnosticHandler handler) noexcept {
  if (!handler) return setDiagnosticFunction(nullptr, nullptr, nullptr);
  auto* const held = new (std::nothrow) DiagnosticHandler(std::move(handler));
  const auto call = [](void* context, const Diagnostic& diagnostic) {
    (*static_cast<const DiagnosticHandler*>(context))(diagnostic);
  };
  const auto destroy = [](void* context) { delete static_cast<DiagnosticHandler*>(context); };
  if (held != nullptr && setDiagnosticFunction(call, held, destroy)) return true;
  delete held;
  return false;
}

/// The code of a record in words, as "status -600"; empty where there is none.
inline std::string codeTextOf(const Diagnostic& diagnostic) {
  const std::string code = std::to_string(diagnostic.code);
  switch (diagnostic.codeKind) {
    case DiagnosticCodeKind::kErrno:
      return std::generic_category().message(diagnostic.code) + " (errno " + code + ")";
    case DiagnosticCodeKind::kStatus:
      return "status " + code;
    case DiagnosticCodeKind::kExitStatus:
      return "exit status " + code;
    case DiagnosticCodeKind::kSignal:
      return "signal " + code;
    case DiagnosticCodeKind::kProcess:
      return "process " + code;
    case DiagnosticCodeKind::kNone:
      break;
  }
  return {};
}

/// One line of text with everything that the record says, in English.
inline std::string descriptionOf(const Diagnostic& diagnostic) {
  const DiagnosticTexts texts = textsOf(diagnostic.cause);
  std::string line(texts.attempt);
  const auto append = [&line](const char* separator, std::string_view text) {
    if (!text.empty()) line.append(separator).append(text);
  };
  append(": ", diagnostic.subject);
  append(", ", diagnostic.detail);
  append(": ", diagnostic.call);
  append(": ", codeTextOf(diagnostic));
  append(": ", texts.sentence);
  append(" ", "(" + std::string(texts.name) + ")");
  return line;
}

}  // namespace clientcomm
