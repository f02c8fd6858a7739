#pragma once

/// @file
/// Texts of the C interface.

#include <stddef.h>
#include <string.h>

#include "ClientComm/c/status_code.h"
#include "ClientComm/platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

// NOLINTBEGIN(modernize-use-using): for C

/// A string that belongs to someone else: nil where `bytes` is NULL and `length` 0. UTF-8 by
/// convention; every byte is carried unchanged, NUL and what is not UTF-8 included. As an argument
/// it is read during the call only.
typedef struct clientcomm_text {
  const char* bytes;  ///< Not terminated.
  size_t length;      ///< In bytes.
} clientcomm_text;

/// The longest text that a function takes, in bytes (64 MiB): CLIENTCOMM_TOO_LARGE beyond it,
/// before a byte is read.
#define CLIENTCOMM_MAXIMUM_LENGTH 67108864U

/// Initialises a clientcomm_text with a string literal.
#define CLIENTCOMM_TEXT(literal) \
  { "" literal, sizeof(literal) - 1 }

/// The text that ends before the first NUL of `characters`; nil for NULL.
static inline clientcomm_text clientcomm_text_of(const char* characters) {
  clientcomm_text text = {characters, 0};
  if (characters) text.length = strlen(characters);
  return text;
}

/// A string that the caller owns and releases.
typedef struct clientcomm_string clientcomm_string;

// NOLINTEND(modernize-use-using)

/// The text of `string`, followed by a NUL; valid until it is released. Nil for NULL, for a string
/// that was released, and on another thread.
CLIENTCOMM_EXPORT clientcomm_text clientcomm_string_text(const clientcomm_string* string);

/// Releases `string`; NULL is no error. @return CLIENTCOMM_STALE_HANDLE when it was released
/// before, CLIENTCOMM_WRONG_THREAD.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_string_release(clientcomm_string* string);

#ifdef __cplusplus
}
#endif
