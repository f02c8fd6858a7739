#include "ClientComm/TQHPHelperError.h"

#include "ClientComm/platform/runtime.h"
#include "ClientComm/platform/text.h"

using clientcomm::OptionalString;

clientcomm::Error TQHPHelperError::errorWithCode(const OptionalString& code,
                                                 const OptionalString& description) {
  if (!description) throw clientcomm::InvalidArgumentException("an error needs a description");
  return {.domain = kHelperErrorCodeDomain,
          .code = clientcomm::intValue(code.value_or(std::string())),
          .userInfo = {{kHelperErrorDescription, *description}}};
}
