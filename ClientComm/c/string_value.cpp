#include "ClientComm/c/string_value.h"

#include <memory>
#include <string>
#include <utility>

#include "ClientComm/c/handles.h"

namespace clientcomm {
namespace {

struct StringValue final : Handled {
  static constexpr Kind kKind = Kind::kString;
  explicit StringValue(std::string value) noexcept : Handled(kKind), text(std::move(value)) {}
  const std::string text;
};

}  // namespace

clientcomm_string* newString(OptionalString value) {
  if (!value) return nullptr;
  auto made = std::make_unique<StringValue>(*std::move(value));
  auto* const handle = static_cast<clientcomm_string*>(Handles::add(*made));
  static_cast<void>(made.release());  // the table has it
  return handle;
}

}  // namespace clientcomm

using clientcomm::StringValue;

clientcomm_text clientcomm_string_text(const clientcomm_string* string) {
  clientcomm_text text = {nullptr, 0};
  clientcomm::atBorder(
      [&] { text = clientcomm::textOf(clientcomm::handled<StringValue>(string).text); });
  return text;
}

clientcomm_status clientcomm_string_release(clientcomm_string* string) {
  return clientcomm::atBorder([string] {
    if (string != nullptr) clientcomm::Handles::release(string, StringValue::kKind);
  });
}
