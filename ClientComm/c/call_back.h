#pragma once

/// @file
/// Call-backs of the C interface.

#ifdef __cplusplus
extern "C" {
#endif

/// Tells the program that the library has no more use for `context`. A call-back returns to the
/// library: it neither jumps out by longjmp nor ends its thread.
typedef void (*clientcomm_destroy)(void* context);  // NOLINT(modernize-use-using): for C

#ifdef __cplusplus
}
#endif
