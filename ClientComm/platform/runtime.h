#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "ClientComm/platform/export.h"
#include "ClientComm/platform/types.h"

/// The run-time registry: classes by name, methods by selector. A class is callable by name only
/// when its process has registered it, and a method only when its class lists it.
namespace clientcomm {

class Class;

/// Raised for an argument that the callee cannot take: nil where a value is needed, or more
/// arguments than a selector has.
class CLIENTCOMM_EXPORT InvalidArgumentException : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

/// Root of everything that can be reached by class name.
class CLIENTCOMM_EXPORT Object {
 public:
  Object() = default;
  virtual ~Object();
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  /// The run-time class that the object was made as.
  virtual const Class& isa() const = 0;

  /// Whether the object is a `TQHPAppEventBase`, which overrides this. Calls reach no other object.
  /// Works without the compiler's run-time type information, which a host may have turned off.
  virtual bool takesCalls() const noexcept { return false; }
};

/// One method of a class, as it can be called by selector: only strings in; a string, or nil for
/// every other kind of result, out.
struct Method {
  std::string_view selector;  ///< With a colon for each argument, as callers send it.
  std::size_t argumentCount;  ///< The number of parameters.
  /// Calls the method with exactly `argumentCount` arguments. Lets exceptions through.
  OptionalString (*invoke)(Object& receiver, std::span<const OptionalString> arguments);
};

/// A class that can be found by name: how an instance is made, and its methods.
class CLIENTCOMM_EXPORT Class {
 public:
  /// Makes and initialises an instance; null when the class gives none.
  using Factory = std::shared_ptr<Object> (*)();

  /// A class that others call by `name`; it is callable once `registerClass` has been given it.
  Class(std::string name, Factory factory, std::vector<Method> methods);
  ~Class();
  Class(const Class&) = delete;
  Class& operator=(const Class&) = delete;

  /// The name by which others call it.
  const std::string& name() const noexcept;
  /// A new instance, from the factory; null when the class gives none.
  std::shared_ptr<Object> makeInstance() const;

  /// The method for `selector`; null when instances do not answer it.
  const Method* methodForSelector(std::string_view selector) const noexcept;

 private:
  struct State;
  std::unique_ptr<const State> state_;
};

/// Makes `cls` callable by its name in this process; a later class of the same name takes its
/// place. `cls` must live as long as the process.
CLIENTCOMM_EXPORT void registerClass(const Class& cls);

/// The registered class called `name`; null when there is none.
CLIENTCOMM_EXPORT const Class* classNamed(std::string_view name) noexcept;

namespace runtime_detail {

/// What is known of a function by its type.
template <typename R, typename... Args>
struct Signature {
  using Result = R;
  static constexpr std::size_t kArgumentCount = sizeof...(Args);
  static constexpr bool kTakesOnlyStrings =
      ((std::is_same_v<std::remove_cvref_t<Args>, OptionalString> ||
        std::is_same_v<std::remove_cvref_t<Args>, std::string> ||
        std::is_same_v<std::remove_cvref_t<Args>, std::string_view>)&&...);
  template <std::size_t kIndex>
  using Argument = std::remove_cvref_t<std::tuple_element_t<kIndex, std::tuple<Args...>>>;
};

template <typename Function>
struct Callable;
template <typename R, typename T, typename... Args>
struct Callable<R (T::*)(Args...)> : Signature<R, Args...> {
  using Receiver = T;
};
template <typename R, typename T, typename... Args>
struct Callable<R (T::*)(Args...) const> : Callable<R (T::*)(Args...)> {};
template <typename R, typename T, typename... Args>
struct Callable<R (T::*)(Args...) noexcept> : Callable<R (T::*)(Args...)> {};
template <typename R, typename T, typename... Args>
struct Callable<R (T::*)(Args...) const noexcept> : Callable<R (T::*)(Args...)> {};
template <typename R, typename... Args>
struct Callable<R (*)(Args...)> : Signature<R, Args...> {};
template <typename R, typename... Args>
struct Callable<R (*)(Args...) noexcept> : Callable<R (*)(Args...)> {};

template <typename Result>
inline constexpr bool kIsText = std::is_same_v<std::remove_cvref_t<Result>, OptionalString> ||
                                std::is_same_v<std::remove_cvref_t<Result>, std::string>;

/// The argument as a parameter of the type `Argument` takes it.
template <typename Argument>
const auto& argumentAs(const OptionalString& argument) {
  if constexpr (std::is_same_v<Argument, OptionalString>) {
    return argument;
  } else {
    static const std::string empty;
    return argument ? *argument : empty;
  }
}

template <auto kFunction, std::size_t... kIndex>
OptionalString invoke([[maybe_unused]] Object& receiver,
                      [[maybe_unused]] std::span<const OptionalString> arguments,
                      std::index_sequence<kIndex...> /*indices*/) {
  using Traits = Callable<decltype(kFunction)>;
  const auto call = [&]() -> decltype(auto) {
    if constexpr (std::is_member_function_pointer_v<decltype(kFunction)>) {
      auto& target = static_cast<typename Traits::Receiver&>(receiver);
      return (target.*kFunction)(
          argumentAs<typename Traits::template Argument<kIndex>>(arguments[kIndex])...);
    } else {
      return kFunction(
          argumentAs<typename Traits::template Argument<kIndex>>(arguments[kIndex])...);
    }
  };
  if constexpr (kIsText<typename Traits::Result>) {
    return call();
  } else {
    // A status or a flag is no text; the caller reads such a result as nil.
    static_cast<void>(call());
    return std::nullopt;
  }
}

}  // namespace runtime_detail

/// The table entry that binds `selector` to a function of the class, static or not, whose
/// parameters are all strings: `OptionalString`, or `std::string` or `std::string_view`, which
/// receive "" for nil. The number of arguments and the kind of result come from the function's own
/// type.
template <auto kFunction>
constexpr Method method(std::string_view selector) {
  using Traits = runtime_detail::Callable<decltype(kFunction)>;
  static_assert(Traits::kTakesOnlyStrings, "a callable method takes strings only");
  return Method{selector, Traits::kArgumentCount,
                [](Object& receiver, std::span<const OptionalString> arguments) {
                  return runtime_detail::invoke<kFunction>(
                      receiver, arguments, std::make_index_sequence<Traits::kArgumentCount>{});
                }};
}

/// The factory of a class whose instances are made with `new T`.
template <typename T>
std::shared_ptr<Object> makeShared() {
  return std::make_shared<T>();
}

}  // namespace clientcomm
