#pragma once

/// @file
/// The methods of a class of the C interface.

#include "ClientComm/c/string_handle.h"

#ifdef __cplusplus
extern "C" {
#endif

// NOLINTBEGIN(modernize-use-using): for C

/// A call that is being carried out; valid until the method returns, CLIENTCOMM_STALE_HANDLE and
/// nil after it.
typedef struct clientcomm_call clientcomm_call;

/// Carries out a call. `context` is the one that the class was registered with.
typedef void (*clientcomm_method_function)(void* context, clientcomm_call* call);

/// One method of a class.
typedef struct clientcomm_method {
  /// With a colon for each argument, letter for letter as callers send it. A call with more
  /// arguments is not carried out; those that are missing are nil.
  clientcomm_text selector;
  clientcomm_method_function function;  ///< Carries the call out.
} clientcomm_method;

// NOLINTEND(modernize-use-using)

#ifdef __cplusplus
}
#endif
