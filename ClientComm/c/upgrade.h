#pragma once

/// @file
/// Upgrades of the product, for C.

#include <stdbool.h>
#include <stdint.h>

#include "ClientComm/c/call_back.h"
#include "ClientComm/c/status_code.h"
#include "ClientComm/c/string_handle.h"
#include "ClientComm/platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

// NOLINTBEGIN(modernize-use-using): for C

/// What the helper reported in place of an upgrade.
typedef struct clientcomm_error {
  int64_t code;                 ///< The helper's own.
  clientcomm_text domain;       ///< "HelperCommunicateErrorDomain".
  clientcomm_text description;  ///< The helper's own words.
} clientcomm_error;

/// The helper is about to upgrade the product, or, where `error` is not NULL, has failed to. Answer
/// each call by `clientcomm_ready_to_upgrade`, at once or later. `error` is valid during the call.
typedef void (*clientcomm_will_upgrade)(void* context, const clientcomm_error* error);

/// The host's listener for upgrades.
typedef struct clientcomm_upgrade_delegate clientcomm_upgrade_delegate;

// NOLINTEND(modernize-use-using)

/// Asks the helper to look for an upgrade and carry it out; makes sure first that it runs.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_upgrade_product(void);

/// Answers `clientcomm_will_upgrade`.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_ready_to_upgrade(bool is_ready);

/// Makes `will_upgrade` the host's listener, in place of an earlier one, which is told no more and
/// is still to be released. Where it succeeds, `destroy`, if not NULL, is called with `context`
/// once, after the delegate was released and no call of it runs; else never.
/// @param will_upgrade must not be NULL.
/// @param context is passed to `will_upgrade` and `destroy`.
/// @param destroy may be NULL.
/// @param delegate receives the handle; NULL where the status is not CLIENTCOMM_OK.
CLIENTCOMM_EXPORT clientcomm_status
clientcomm_set_upgrade_delegate(clientcomm_will_upgrade will_upgrade, void* context,
                                clientcomm_destroy destroy, clientcomm_upgrade_delegate** delegate);

/// Ends the delegate: it is told no more. It may release itself while it is told; `destroy` follows
/// when it returns. NULL is no error.
CLIENTCOMM_EXPORT clientcomm_status
clientcomm_upgrade_delegate_release(clientcomm_upgrade_delegate* delegate);

#ifdef __cplusplus
}
#endif
