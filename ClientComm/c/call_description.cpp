#include "ClientComm/c/call_description.h"

namespace clientcomm {
namespace {

constexpr std::size_t kMaximumCount = 262144;  // What one call carries; see the wire format.

std::vector<std::string> stringsOf(const clientcomm_text* texts, std::size_t count) {
  if (count > kMaximumCount) throw Refusal{CLIENTCOMM_TOO_LARGE};
  if (count != 0) required(texts);
  std::vector<std::string> strings;
  strings.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    strings.push_back(stringOf(texts[i]).value_or(std::string()));
  }
  return strings;
}

}  // namespace

CallDescription describeCall(clientcomm_text application, clientcomm_text className,
                             clientcomm_text selector, const clientcomm_text* arguments,
                             std::size_t count) {
  return {requiredString(application), requiredString(className), requiredString(selector),
          stringsOf(arguments, count)};
}

}  // namespace clientcomm
