#include "ClientComm/platform/user_defaults.h"

#include <map>
#include <utility>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/dictionary.h"
#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/own_process.h"
#include "ClientComm/platform/path.h"
#include "ClientComm/platform/shared_object.h"
#include "ClientComm/platform/timer.h"
#include "tests/support/memory/memory_system.h"
#include "tests/support/test_sandbox.h"

namespace clientcomm {
namespace {

constexpr std::chrono::milliseconds kWriteDelay{500};

std::string folderOfSettings() { return support::sandbox() + "/config/Preferences"; }

std::string pathOfDomain(const std::string& domain) {
  return stringByAppendingPathComponent(folderOfSettings(), domain + ".plist");
}

std::string ownDomain() {
  OptionalString identifier = Bundle::mainBundle().bundleIdentifier();
  if (identifier && !identifier->empty()) return *std::move(identifier);
  return lastPathComponent(ownExecutablePath());
}

// Moves a file that holds no settings out of the way.
void keepAside(const std::string& path) {
  auto& files = support::MemorySystem::current().files;
  int number = 1;
  while (files.move(path, path + ".corrupt-" + std::to_string(number)) != 0) ++number;
}

}  // namespace

struct UserDefaults::State {
  std::string domain;
  std::map<std::string, std::optional<PropertyListValue>, std::less<>> pending;
  std::unique_ptr<Timer> writeTimer;
};

UserDefaults& UserDefaults::standardUserDefaults() {
  static SharedObject<UserDefaults> defaults;
  return defaults.get([] { return new UserDefaults(ownDomain()); });
}

UserDefaults::UserDefaults(std::string domain) : state_(std::make_unique<State>()) {
  state_->domain = std::move(domain);
}

UserDefaults::~UserDefaults() { synchronize(); }

std::optional<PropertyListValue> UserDefaults::objectForKey(std::string_view key) {
  const auto change = state_->pending.find(key);
  if (change != state_->pending.end()) return change->second;
  const auto settings = persistentDomainForName(state_->domain);
  const auto* const value = settings ? valueFor(*settings, key) : nullptr;
  return value != nullptr ? std::optional(*value) : std::nullopt;
}

OptionalString UserDefaults::stringForKey(std::string_view key) {
  const auto value = objectForKey(key);
  return value ? value->stringValue() : std::nullopt;
}

void UserDefaults::setObject(std::optional<PropertyListValue> value, std::string_view key) {
  state_->pending.insert_or_assign(std::string(key), std::move(value));
  if (state_->writeTimer) return;
  state_->writeTimer = Timer::scheduledTimer(kWriteDelay, [this](Timer&) { synchronize(); });
}

bool UserDefaults::synchronize() {
  state_->writeTimer.reset();
  const std::string path = pathOfDomain(state_->domain);
  auto settings = dictionaryWithContentsOfFile(path);
  if (!settings && fileExistsAtPath(path)) keepAside(path);
  PropertyListDictionary changed = settings.value_or(PropertyListDictionary());
  for (const auto& [key, value] : state_->pending) {
    if (value) {
      changed.insert_or_assign(key, *value);
    } else {
      changed.erase(key);
    }
  }
  if (changed != settings.value_or(PropertyListDictionary())) {
    support::MemorySystem::current().files.makeFolder(folderOfSettings());
    if (!writeDictionaryToFile(changed, path)) return false;
  }
  state_->pending.clear();
  return true;
}

std::optional<PropertyListDictionary> UserDefaults::persistentDomainForName(
    const std::string& domain) {
  return dictionaryWithContentsOfFile(pathOfDomain(domain));
}

}  // namespace clientcomm
