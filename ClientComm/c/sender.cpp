#include "ClientComm/c/sender.h"

#include <string>
#include <utility>
#include <vector>

#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/c/border.h"
#include "ClientComm/c/string_value.h"

using clientcomm::OptionalString;

namespace {

constexpr std::size_t kMaximumCount = 262144;  // What one call carries; see the wire format.

std::vector<std::string> stringsOf(const clientcomm_text* texts, std::size_t count) {
  if (count > kMaximumCount) throw clientcomm::Refusal{CLIENTCOMM_TOO_LARGE};
  if (count != 0) clientcomm::required(texts);
  std::vector<std::string> strings;
  strings.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    strings.push_back(clientcomm::stringOf(texts[i]).value_or(std::string()));
  }
  return strings;
}

/// @param answer null for a call without an answer.
OSErr call(clientcomm_text application, clientcomm_text className, clientcomm_text selector,
           const clientcomm_text* texts, std::size_t count, OptionalString* answer) {
  const OptionalString target = clientcomm::requiredString(application);
  const std::string name = clientcomm::requiredString(className);
  const std::string method = clientcomm::requiredString(selector);
  const std::vector<std::string> arguments = stringsOf(texts, count);
  TQHPAppleEventSender& sender = TQHPAppleEventSender::share();
  return answer == nullptr ? sender.sendEvnet(target, name, method, arguments)
                           : sender.sendEvnet(target, name, method, arguments, answer);
}

}  // namespace

clientcomm_status clientcomm_send(clientcomm_text application, clientcomm_text class_name,
                                  clientcomm_text selector, const clientcomm_text* arguments,
                                  size_t count) {
  return clientcomm::atBorder(
      [&] { return call(application, class_name, selector, arguments, count, nullptr); });
}

clientcomm_status clientcomm_ask(clientcomm_text application, clientcomm_text class_name,
                                 clientcomm_text selector, const clientcomm_text* arguments,
                                 size_t count, clientcomm_string** answer) {
  if (answer != nullptr) *answer = nullptr;
  return clientcomm::atBorder([&] {
    clientcomm_string*& result = clientcomm::required(answer);
    OptionalString text;
    const OSErr status = call(application, class_name, selector, arguments, count, &text);
    result = clientcomm::newString(std::move(text));
    return status;
  });
}
