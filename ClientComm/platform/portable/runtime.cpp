#include "ClientComm/platform/runtime.h"

#include <map>
#include <vector>

#include "ClientComm/platform/object_observer.h"
#include "ClientComm/platform/shared_object.h"

namespace clientcomm {
namespace {

using Registry = std::map<std::string, const Class*, std::less<>>;

Registry& registry() {
  static SharedObject<Registry> classes;
  return classes.get();
}

// Never destroyed: objects may outlive every other static variable.
std::vector<ObjectObserver*>& observers() {
  static auto* const all = new std::vector<ObjectObserver*>;
  return *all;
}

}  // namespace

Object::~Object() {
  for (ObjectObserver* const observer : observers()) observer->whenDestroyed_(*this);
}

ObjectObserver::ObjectObserver(Action whenDestroyed) : whenDestroyed_(std::move(whenDestroyed)) {
  observers().push_back(this);
}

ObjectObserver::~ObjectObserver() { std::erase(observers(), this); }

struct CLIENTCOMM_LOCAL Class::State {
  std::string name;
  Factory factory;
  std::vector<Method> methods;
};

Class::Class(std::string name, Factory factory, std::vector<Method> methods)
    : state_(new State{std::move(name), factory, std::move(methods)}) {}

Class::~Class() = default;

const std::string& Class::name() const noexcept { return state_->name; }

std::shared_ptr<Object> Class::makeInstance() const { return state_->factory(); }

const Method* Class::methodForSelector(std::string_view selector) const noexcept {
  for (const Method& candidate : state_->methods) {
    if (candidate.selector == selector) return &candidate;
  }
  return nullptr;
}

void registerClass(const Class& cls) { registry().insert_or_assign(cls.name(), &cls); }

const Class* classNamed(std::string_view name) noexcept {
  const auto found = registry().find(name);
  return found == registry().end() ? nullptr : found->second;
}

}  // namespace clientcomm
