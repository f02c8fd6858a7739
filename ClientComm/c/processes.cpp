#include "ClientComm/c/processes.h"

#include <string>

#include "ClientComm/TQHPProcessList.h"
#include "ClientComm/c/border.h"
#include "ClientComm/c/string_value.h"
#include "ClientComm/platform/dictionary.h"
#include "ClientComm/platform/text.h"

using clientcomm::atBorder;
using clientcomm::OptionalString;
using clientcomm::required;

clientcomm_status clientcomm_application_is_running(clientcomm_text identifier,
                                                    clientcomm_text bundle_path, bool* is_running) {
  return atBorder([=] {
    bool& result = required(is_running);
    result = TQHPProcessList::share().applicationIsRunning(clientcomm::requiredString(identifier),
                                                           clientcomm::requiredString(bundle_path));
  });
}

clientcomm_status clientcomm_process_info(int32_t pid, clientcomm_text key,
                                          clientcomm_string** value) {
  if (value != nullptr) *value = nullptr;
  return atBorder([=] {
    clientcomm_string*& result = required(value);
    const std::string name = clientcomm::requiredString(key);
    const auto information = TQHPProcessList::share().infoForPID(pid);
    if (information) result = clientcomm::newString(clientcomm::stringFor(*information, name));
    return result == nullptr ? CLIENTCOMM_NO_VALUE : CLIENTCOMM_OK;
  });
}

clientcomm_status clientcomm_each_process(clientcomm_process_function function, void* context) {
  return atBorder([=] {
    required(function);
    for (const auto& record : TQHPProcessList::share().getBSDProcessList()) {
      const clientcomm_process process = {clientcomm::textOf(record.at("pname")),
                                          clientcomm::intValue(record.at("pid")),
                                          clientcomm::intValue(record.at("uid"))};
      function(context, &process);
    }
  });
}
