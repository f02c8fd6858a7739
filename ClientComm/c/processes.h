#pragma once

/// @file
/// Which applications and processes run, for C.

#include <stdbool.h>
#include <stdint.h>

#include "ClientComm/c/status_code.h"
#include "ClientComm/c/string_handle.h"
#include "ClientComm/platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

// NOLINTBEGIN(modernize-use-using): for C

/// A running process.
typedef struct clientcomm_process {
  clientcomm_text name;  ///< The bundle's name, else the command's.
  int32_t pid;           ///< Process ID.
  int32_t uid;           ///< Effective user ID.
} clientcomm_process;

/// Is told of a process; `process` is valid during the call.
typedef void (*clientcomm_process_function)(void* context, const clientcomm_process* process);

// NOLINTEND(modernize-use-using)

/// Whether an application with exactly this bundle identifier runs from exactly this bundle path.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_application_is_running(clientcomm_text identifier,
                                                                      clientcomm_text bundle_path,
                                                                      bool* is_running);

/// The text for `key` (CFBundleIdentifier, CFBundleName, BundlePath, …) among what is known of the
/// process; the caller releases it. @return CLIENTCOMM_NO_VALUE when there is none.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_process_info(int32_t pid, clientcomm_text key,
                                                            clientcomm_string** value);

/// Calls `function` with `context` for each running process.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_each_process(clientcomm_process_function function,
                                                            void* context);

#ifdef __cplusplus
}
#endif
