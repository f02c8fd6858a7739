#pragma once

/// @file
/// Calls to any application, which `application` names by its bundle identifier: a class name, a
/// selector with its colons, and `count` texts, nil as "". The statuses are the send's own;
/// docs/services.md lists classes and selectors.

#include <stddef.h>

#include "ClientComm/c/status_code.h"
#include "ClientComm/c/string_handle.h"
#include "ClientComm/platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/// Calls the application and returns when the call was handed over.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_send(clientcomm_text application,
                                                    clientcomm_text class_name,
                                                    clientcomm_text selector,
                                                    const clientcomm_text* arguments, size_t count);

/// The same for a call with an answer; blocks until the application answers or ends.
/// @param application its bundle identifier.
/// @param class_name the class that the application registers.
/// @param selector the selector, with a colon for each argument.
/// @param arguments the texts; may be NULL where `count` is 0.
/// @param count the number of texts.
/// @param answer receives the answer, which the caller releases; NULL for nil and after a failure.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_ask(clientcomm_text application,
                                                   clientcomm_text class_name,
                                                   clientcomm_text selector,
                                                   const clientcomm_text* arguments, size_t count,
                                                   clientcomm_string** answer);

#ifdef __cplusplus
}
#endif
