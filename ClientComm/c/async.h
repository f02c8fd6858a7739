#pragma once

/// @file
/// The start-up and the queries without blocking. Each function returns at once; the outcome comes
/// by a call-back from the event loop, once, never from inside the function itself. Where it
/// returns CLIENTCOMM_OK, `destroy`, if not NULL, is called with `context` once, after the
/// call-back or when the query is given up; else neither is called.

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "ClientComm/c/call_back.h"
#include "ClientComm/c/status_code.h"
#include "ClientComm/c/string_handle.h"
#include "ClientComm/platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

// NOLINTBEGIN(modernize-use-using): for C

/// The start-up is over: CLIENTCOMM_OK when the helper has been started, or
/// CLIENTCOMM_HELPER_NOT_LAUNCHED when it could not be; the ticks try again.
typedef void (*clientcomm_started)(void* context, clientcomm_status status);

/// The outcome of a query: CLIENTCOMM_OK; CLIENTCOMM_NO_VALUE for an answer without a value;
/// CLIENTCOMM_TIMED_OUT after the limit; CLIENTCOMM_NOT_RUNNING; CLIENTCOMM_CONNECTION_LOST when
/// the application ended before it had answered. `text` is valid during the call, and nil unless
/// the status is CLIENTCOMM_OK.
typedef void (*clientcomm_text_answer)(void* context, clientcomm_status status,
                                       clientcomm_text text);
/// The same for a flag, which is false unless the status is CLIENTCOMM_OK.
typedef void (*clientcomm_flag_answer)(void* context, clientcomm_status status, bool flag);
/// The same for the suite page. `width` and `height` are in points.
typedef void (*clientcomm_suite_answer)(void* context, clientcomm_status status,
                                        clientcomm_text url, int32_t width, int32_t height);

/// A query that is under way.
typedef struct clientcomm_query clientcomm_query;

// NOLINTEND(modernize-use-using)

/// No time limit; every other `limit` is in milliseconds. One that is 0 has passed when the event
/// loop runs next. A negative one is refused.
#define CLIENTCOMM_NO_LIMIT INT64_MAX

/// `clientcomm_start` without blocking. From then on no tick and no command waits for the helper:
/// a command that it cannot take at once returns CLIENTCOMM_TIMED_OUT, or CLIENTCOMM_NOT_RUNNING
/// while it starts.
/// @param started may be NULL.
/// @param context is passed to `started` and `destroy`.
/// @param destroy may be NULL.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_start_async(clientcomm_started started,
                                                           void* context,
                                                           clientcomm_destroy destroy);

// Each of these sends its query, and stores a handle in `query`, which the caller releases; `query`
// may be NULL for a query that is never given up.

/// `clientcomm_ask_client_id` without blocking.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_ask_client_id_async(int64_t limit,
                                                                   clientcomm_text_answer answer,
                                                                   void* context,
                                                                   clientcomm_destroy destroy,
                                                                   clientcomm_query** query);
/// `clientcomm_collect_status` without blocking.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_collect_status_async(int64_t limit,
                                                                    clientcomm_flag_answer answer,
                                                                    void* context,
                                                                    clientcomm_destroy destroy,
                                                                    clientcomm_query** query);
/// `clientcomm_register_suite` without blocking.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_register_suite_async(int64_t limit,
                                                                    clientcomm_suite_answer answer,
                                                                    void* context,
                                                                    clientcomm_destroy destroy,
                                                                    clientcomm_query** query);
/// `clientcomm_unregister_suite` without blocking.
CLIENTCOMM_EXPORT clientcomm_status
clientcomm_unregister_suite_async(int64_t limit, clientcomm_suite_answer answer, void* context,
                                  clientcomm_destroy destroy, clientcomm_query** query);
/// `clientcomm_network_error_page` without blocking.
CLIENTCOMM_EXPORT clientcomm_status
clientcomm_network_error_page_async(int64_t limit, clientcomm_text_answer answer, void* context,
                                    clientcomm_destroy destroy, clientcomm_query** query);
/// `clientcomm_ask` without blocking, which needs no `clientcomm_start`.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_ask_async(
    clientcomm_text application, clientcomm_text class_name, clientcomm_text selector,
    const clientcomm_text* arguments, size_t count, int64_t limit, clientcomm_text_answer answer,
    void* context, clientcomm_destroy destroy, clientcomm_query** query);

/// Releases the handle. A query that is still under way is given up: its call-back is not called,
/// though the helper may carry it out. May be called from the call-back itself. NULL is no error.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_query_release(clientcomm_query* query);

#ifdef __cplusplus
}
#endif
