#include "ClientComm/c/receiver.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/c/callable_class.h"
#include "ClientComm/platform/user_defaults.h"

namespace {

using clientcomm::atBorder;
using clientcomm::CallableClass;
using clientcomm::CallableMethod;
using clientcomm::CallInProgress;
using clientcomm::handled;
using clientcomm::Handles;
using clientcomm::OptionalString;
using clientcomm::Refusal;

constexpr std::size_t kMaximumMethods = 4096;

std::vector<CallableMethod> methodsOf(const clientcomm_method* methods, std::size_t count) {
  if (count > kMaximumMethods) throw Refusal{CLIENTCOMM_TOO_LARGE};
  std::vector<CallableMethod> all;
  all.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    const clientcomm_method& method = clientcomm::required(methods + i);
    clientcomm::required(method.function);
    all.push_back({clientcomm::requiredString(method.selector), method.function});
  }
  return all;
}

/// The text that `read` takes from the call; nil for a stale one.
clientcomm_text textOfCall(const clientcomm_call* call,
                           clientcomm_text (*read)(const CallInProgress& made, std::size_t index),
                           std::size_t index = 0) noexcept {
  clientcomm_text text = {nullptr, 0};
  atBorder([&] { text = read(handled<CallInProgress>(call), index); });
  return text;
}

}  // namespace

clientcomm_status clientcomm_register_class(clientcomm_text name, const clientcomm_method* methods,
                                            size_t count, void* context, clientcomm_destroy destroy,
                                            clientcomm_class** registered) {
  if (registered != nullptr) *registered = nullptr;
  return atBorder([=] {
    if (count != 0) clientcomm::required(methods);
    auto made = std::make_unique<CallableClass>(clientcomm::requiredString(name),
                                                methodsOf(methods, count), context, destroy);
    if (processer != nullptr) made->bind();
    auto* const handle = static_cast<clientcomm_class*>(Handles::add(*made));
    made.release()->takeOverContext();
    if (registered != nullptr) *registered = handle;
  });
}

clientcomm_status clientcomm_class_release(clientcomm_class* registered) {
  return atBorder([=] {
    if (registered == nullptr) return;
    handled<CallableClass>(registered).unbind();
    Handles::release(registered, CallableClass::kKind);
  });
}

clientcomm_status clientcomm_open_to_calls() {
  return atBorder([] {
    const bool isKnown = processer != nullptr;
    TQHPAppleEventProcesser& receiver = TQHPAppleEventProcesser::share();
    clientcomm::bindCallableClasses();
    if (isKnown) receiver.regist();
  });
}

clientcomm_status clientcomm_close_to_calls() {
  return atBorder([] {
    if (processer != nullptr) processer->unRegist();
  });
}

clientcomm_status clientcomm_set_server_open(bool is_open) {
  return atBorder([=] {
    auto& defaults = clientcomm::UserDefaults::standardUserDefaults();
    defaults.setObject(clientcomm::PropertyListValue(!is_open), TQHPServerClosed);
    return defaults.synchronize() ? CLIENTCOMM_OK : CLIENTCOMM_NOT_WRITTEN;
  });
}

size_t clientcomm_call_count(const clientcomm_call* call) {
  std::size_t count = 0;
  atBorder([&] { count = handled<CallInProgress>(call).arguments.size(); });
  return count;
}

clientcomm_text clientcomm_call_argument(const clientcomm_call* call, size_t index) {
  const auto read = [](const CallInProgress& made, std::size_t wanted) {
    const bool isThere = wanted < made.arguments.size() && made.arguments[wanted];
    return isThere ? clientcomm::textOf(*made.arguments[wanted]) : clientcomm_text{nullptr, 0};
  };
  return textOfCall(call, read, index);
}

clientcomm_text clientcomm_call_caller(const clientcomm_call* call) {
  return textOfCall(call, [](const CallInProgress& made, std::size_t /*index*/) {
    return clientcomm::textOf(made.caller);
  });
}

clientcomm_text clientcomm_call_selector(const clientcomm_call* call) {
  return textOfCall(call, [](const CallInProgress& made, std::size_t /*index*/) {
    return clientcomm::textOf(made.selector);
  });
}

clientcomm_status clientcomm_call_answer(clientcomm_call* call, clientcomm_text answer) {
  return atBorder([=] { handled<CallInProgress>(call).answer = clientcomm::stringOf(answer); });
}
