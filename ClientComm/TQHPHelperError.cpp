#include "ClientComm/TQHPHelperError.h"

#include "ClientComm/platform/runtime.h"
#include "ClientComm/platform/text.h"

platform::Error TQHPHelperError::errorWithCode(const OptionalString& code,
                                               const OptionalString& description) {
  if (!description) throw platform::InvalidArgumentException("an error needs a description");
  return {.domain = kHelperErrorCodeDomain,
          .code = platform::intValue(code.value_or(std::string())),
          .userInfo = {{kHelperErrorDescription, *description}}};
}
