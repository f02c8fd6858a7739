#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/c/context.h"
#include "ClientComm/c/handles.h"
#include "ClientComm/c/method.h"
#include "ClientComm/platform/runtime.h"

namespace clientcomm {

/// A call while a method in C carries it out.
struct CallInProgress final : Handled {
  static constexpr Kind kKind = Kind::kCall;
  CallInProgress() noexcept : Handled(kKind) {}

  std::string_view selector;
  std::string caller;
  std::span<const OptionalString> arguments;
  OptionalString answer;
};

/// A method with a selector of its own.
struct CallableMethod {
  std::string selector;
  clientcomm_method_function function;
};

/// The object that receives the calls for a class in C, and the class itself.
class CallableClass final : public Handled, public TQHPAppEventBase {
 public:
  static constexpr Kind kKind = Kind::kClass;

  CallableClass(std::string name, std::vector<CallableMethod> methods, void* context,
                clientcomm_destroy destroy);
  ~CallableClass() override;

  const Class& isa() const override { return class_; }
  void setBundleID(const OptionalString& bundleID) override;

  /// Makes it receive the calls for its class, in place of another; once.
  void bind();
  /// Ends that.
  void unbind();

  void takeOverContext() noexcept { context_.takeOver(); }

 private:
  struct Dispatcher;

  OptionalString carryOut(const Method& method, std::span<const OptionalString> arguments);

  const std::vector<CallableMethod> methods_;
  Class class_;
  Context context_;
  std::string caller_;
  bool isBound_ = false;
};

/// Binds all classes that were registered before the process was open to calls.
void bindCallableClasses();

}  // namespace clientcomm
