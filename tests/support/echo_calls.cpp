#include "tests/support/echo_calls.h"

#include "ClientComm/TQHPAppleEventSender.h"

namespace support {

using clientcomm::OptionalString;
using clientcomm::OSErr;

OSErr send(const std::string& selector, const std::vector<std::string>& arguments,
           const std::string& target) {
  return TQHPAppleEventSender::share().sendEvnet(OptionalString(target), "Echo", selector,
                                                 arguments);
}

OptionalString ask(const std::string& selector, const std::vector<std::string>& arguments,
                   OSErr* status, const std::string& target) {
  OptionalString result;
  const OSErr sent = TQHPAppleEventSender::share().sendEvnet(OptionalString(target), "Echo",
                                                             selector, arguments, &result);
  if (status != nullptr) *status = sent;
  return result;
}

}  // namespace support
