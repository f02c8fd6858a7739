#pragma once

#include <stdint.h>

#include "ClientComm/c/call_back.h"
#include "ClientComm/c/status_code.h"
#include "ClientComm/c/string_handle.h"
#include "ClientComm/platform/diagnostic_causes.h"
#include "ClientComm/platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

// NOLINTBEGIN(modernize-use-using): for C

/// Why the library gives up, ignores something or falls back: CLIENTCOMM_CAUSE_INFO_KEY_MISSING and
/// the others of ClientComm/platform/diagnostic_causes.h. Later versions add causes.
enum {
#define CLIENTCOMM_CAUSE(IN_C, InCpp, name, number, sentence) CLIENTCOMM_CAUSE_##IN_C = (number),
  CLIENTCOMM_DIAGNOSTIC_CAUSES(CLIENTCOMM_CAUSE)
#undef CLIENTCOMM_CAUSE
};

/// What the code of a record is.
typedef enum clientcomm_code_kind {
  CLIENTCOMM_CODE_NONE,         ///< There is none; it is 0.
  CLIENTCOMM_CODE_ERRNO,        ///< The system's error number.
  CLIENTCOMM_CODE_STATUS,       ///< A status, as the calls of the library return it.
  CLIENTCOMM_CODE_EXIT_STATUS,  ///< The exit status of a process.
  CLIENTCOMM_CODE_SIGNAL,       ///< The signal that ended a process.
  CLIENTCOMM_CODE_PROCESS       ///< The ID of a process; 0 for one that is not seen from here.
} clientcomm_code_kind;

/// One failure. Valid while the handler runs. Later versions may add members at the end.
typedef struct clientcomm_diagnostic {
  int32_t cause;            ///< CLIENTCOMM_CAUSE_…, or that of a later version.
  int32_t code_kind;        ///< A `clientcomm_code_kind`: what `code` is.
  int32_t code;             ///< The error number, status, signal or process; 0 for none.
  clientcomm_text call;     ///< The system call, or the check, that failed; may be "".
  clientcomm_text subject;  ///< The path, identifier or key that it was about; may be "".
  clientcomm_text detail;   ///< What else the cause says; else "".
} clientcomm_diagnostic;

/// Is told of one failure, and what `clientcomm_set_diagnostic_handler` was given as `context`.
typedef void (*clientcomm_diagnostic_handler)(void* context,
                                              const clientcomm_diagnostic* diagnostic);

// NOLINTEND(modernize-use-using)

/// Has `handler` called for each failure from now on, as `setDiagnosticHandler` of
/// ClientComm/diagnostics.h; NULL ends that. Call it before `clientcomm_start`, whose failures are
/// then covered. It is called on this thread, and before the function that fails returns. It may
/// call the library, but neither releases a handle nor runs the event loop.
/// Where it succeeds, `destroy`, if not NULL, is called with `context` once, when the handler has
/// been replaced and runs no more.
/// @return CLIENTCOMM_OK, CLIENTCOMM_OUT_OF_RESOURCES, CLIENTCOMM_WRONG_THREAD.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_set_diagnostic_handler(
    clientcomm_diagnostic_handler handler, void* context, clientcomm_destroy destroy);

/// The stable name of a cause, as "info-key-missing"; "" for one of a later version.
static inline const char* clientcomm_cause_name(int32_t cause) {
  switch (cause) {
#define CLIENTCOMM_CAUSE(IN_C, InCpp, name, number, sentence) \
  case (number):                                              \
    return name;
    CLIENTCOMM_DIAGNOSTIC_CAUSES(CLIENTCOMM_CAUSE)
#undef CLIENTCOMM_CAUSE
    default:
      return "";
  }
}

/// What happened and what the library does now; "" for a cause of a later version.
static inline const char* clientcomm_cause_sentence(int32_t cause) {
  switch (cause) {
#define CLIENTCOMM_CAUSE(IN_C, InCpp, name, number, sentence) \
  case (number):                                              \
    return sentence;
    CLIENTCOMM_DIAGNOSTIC_CAUSES(CLIENTCOMM_CAUSE)
#undef CLIENTCOMM_CAUSE
    default:
      return "";
  }
}

/// What is attempted where the cause comes up, as "launch the helper".
static inline const char* clientcomm_cause_attempt(int32_t cause) {
  switch (cause / 100) {
#define CLIENTCOMM_ATTEMPT(group, text) \
  case (group):                         \
    return text;
    CLIENTCOMM_DIAGNOSTIC_ATTEMPTS(CLIENTCOMM_ATTEMPT)
#undef CLIENTCOMM_ATTEMPT
    default:
      return "";
  }
}

#ifdef __cplusplus
}
#endif
