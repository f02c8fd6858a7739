#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "ClientComm/c/border.h"

namespace clientcomm {

/// A call as a program in C describes it.
struct CallDescription {
  std::string application;
  std::string className;
  std::string selector;
  std::vector<std::string> arguments;
};

/// Refuses a name that is nil or "", and more arguments than one call carries; reads nil as "".
CallDescription describeCall(clientcomm_text application, clientcomm_text className,
                             clientcomm_text selector, const clientcomm_text* arguments,
                             std::size_t count);

}  // namespace clientcomm
