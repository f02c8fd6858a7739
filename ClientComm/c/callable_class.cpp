#include "ClientComm/c/callable_class.h"

#include <algorithm>
#include <utility>

#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/internal/object_state.h"

namespace clientcomm {
namespace {

std::vector<Method> methodsOf(const std::vector<CallableMethod>& methods) {
  std::vector<Method> all;
  all.reserve(methods.size());
  for (const CallableMethod& method : methods) {
    const auto colons = std::count(method.selector.begin(), method.selector.end(), ':');
    // Carried out by the class's Dispatcher.
    all.push_back({method.selector, static_cast<std::size_t>(colons), nullptr});
  }
  return all;
}

/// Lends a call to the program, by a handle that is valid during this object's life.
class LentCall {
 public:
  explicit LentCall(CallInProgress& call)
      : handle_(static_cast<clientcomm_call*>(Handles::add(call))) {}
  ~LentCall() { Handles::remove(handle_); }
  LentCall(const LentCall&) = delete;
  LentCall& operator=(const LentCall&) = delete;

  clientcomm_call* handle() const noexcept { return handle_; }

 private:
  clientcomm_call* handle_;
};

}  // namespace

/// Methods of C++ classes carry themselves out; those of C have a context and no type.
struct CallableClass::Dispatcher final : ObjectState {
  explicit Dispatcher(CallableClass& receiver) : receiver_(receiver) {}

  OptionalString invoke(Object& /*receiver*/, const Method& method,
                        std::span<const OptionalString> arguments) override {
    return receiver_.carryOut(method, arguments);
  }

 private:
  CallableClass& receiver_;
};

CallableClass::CallableClass(std::string name, std::vector<CallableMethod> methods, void* context,
                             clientcomm_destroy destroy)
    : Handled(kKind),
      methods_(std::move(methods)),
      class_(std::move(name), nullptr, methodsOf(methods_)),
      context_(context, destroy) {
  state_ = std::make_unique<Dispatcher>(*this);
}

CallableClass::~CallableClass() = default;

void CallableClass::setBundleID(const OptionalString& bundleID) {
  TQHPAppEventBase::setBundleID(bundleID);
  caller_ = *bundleID;
}

void CallableClass::bind() {
  if (std::exchange(isBound_, true)) return;
  TQHPAppleEventProcesser::share().setObjectforKeyToMapTable(*this, className());
}

void CallableClass::unbind() {
  if (!std::exchange(isBound_, false)) return;
  TQHPAppleEventProcesser& receiver = TQHPAppleEventProcesser::share();
  if (receiver.objectForKey(className()) == this) {
    receiver.removeObjectforKeyToMapTable(className());
  }
}

OptionalString CallableClass::carryOut(const Method& method,
                                       std::span<const OptionalString> arguments) {
  const InUse use(*this);
  CallInProgress call;
  call.selector = method.selector;
  call.caller = caller_;
  call.arguments = arguments;
  const LentCall lent(call);
  // The selector is the one in the list itself.
  const auto called = std::ranges::find_if(methods_, [&](const auto& candidate) {
    return candidate.selector.data() == method.selector.data();
  });
  called->function(context_.data(), lent.handle());
  return std::move(call.answer);
}

void bindCallableClasses() {
  Handles::forEach(Handled::Kind::kClass, [](Handled& object) {
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-static-cast-downcast): the kind tells the type
    static_cast<CallableClass&>(object).bind();
  });
}

}  // namespace clientcomm
