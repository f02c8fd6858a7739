#include "ClientComm/c/sender.h"

#include <utility>

#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/c/call_description.h"
#include "ClientComm/c/string_value.h"

using clientcomm::atBorder;
using clientcomm::CallDescription;
using clientcomm::describeCall;
using clientcomm::OptionalString;

clientcomm_status clientcomm_send(clientcomm_text application, clientcomm_text class_name,
                                  clientcomm_text selector, const clientcomm_text* arguments,
                                  size_t count) {
  return atBorder([&] {
    const CallDescription call = describeCall(application, class_name, selector, arguments, count);
    return TQHPAppleEventSender::share().sendEvnet(call.application, call.className, call.selector,
                                                   call.arguments);
  });
}

clientcomm_status clientcomm_ask(clientcomm_text application, clientcomm_text class_name,
                                 clientcomm_text selector, const clientcomm_text* arguments,
                                 size_t count, clientcomm_string** answer) {
  if (answer != nullptr) *answer = nullptr;
  return atBorder([&] {
    clientcomm_string*& result = clientcomm::required(answer);
    const CallDescription call = describeCall(application, class_name, selector, arguments, count);
    OptionalString text;
    const OSErr status = TQHPAppleEventSender::share().sendEvnet(
        call.application, call.className, call.selector, call.arguments, &text);
    result = clientcomm::newString(std::move(text));
    return status;
  });
}
