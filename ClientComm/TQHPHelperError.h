#pragma once

/// @file
/// Errors that the helper reports.

#include "ClientComm/TQHPTypes.h"
#include "ClientComm/platform/error.h"

/// Domain of the errors that the helper reports.
inline constexpr const char kHelperErrorCodeDomain[] = "HelperCommunicateErrorDomain";
/// Key of the helper's own description in an error's user information.
inline constexpr const char kHelperErrorDescription[] = "HelperCommunicateErrorDescription";

/// Makes the error objects that delegates receive. They are plain platform errors: domain
/// `kHelperErrorCodeDomain`, the helper's code, and its text under `kHelperErrorDescription`.
class CLIENTCOMM_EXPORT TQHPHelperError : public clientcomm::Error {
 public:
  /// @param code the helper's code as text; its leading decimal integer counts, 0 without one.
  /// @param description the helper's text, kept unchanged.
  /// @throws clientcomm::InvalidArgumentException when `description` is nil.
  static clientcomm::Error errorWithCode(const clientcomm::OptionalString& code,
                                         const clientcomm::OptionalString& description);
};
