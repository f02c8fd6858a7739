#include "ClientComm/platform/user_defaults.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <map>
#include <tuple>
#include <utility>
#include <vector>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/dictionary.h"
#include "ClientComm/platform/digest.h"
#include "ClientComm/platform/file_lock.h"
#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/native_file.h"
#include "ClientComm/platform/own_process.h"
#include "ClientComm/platform/owner_thread.h"
#include "ClientComm/platform/path.h"
#include "ClientComm/platform/posix/file_signature.h"
#include "ClientComm/platform/posix/io.h"
#include "ClientComm/platform/posix/partial_name.h"
#include "ClientComm/platform/posix/preferences_folder.h"
#include "ClientComm/platform/posix/preferences_format.h"
#include "ClientComm/platform/posix/property_list_file.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/posix/settings_file.h"
#include "ClientComm/platform/reporter.h"
#include "ClientComm/platform/timer.h"

namespace clientcomm {
namespace {

constexpr std::chrono::milliseconds kWriteDelay{500};
constexpr std::chrono::milliseconds kRetryDelay{2'000};
// How long a write waits for other processes. The run loop repeats it; at the end of the process
// nothing does.
constexpr std::chrono::milliseconds kLockLimit{100};
constexpr std::chrono::seconds kLockLimitAtExit{2};

// The file name of a domain, without extension. A name that is no plain file name is encoded, so
// that no identifier leads out of the folder, hides its file or shares another's.
std::string fileNameOf(std::string_view domain) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string name;
  for (const char c : domain) {
    if (c == '/' || c == kDomainEscape || c == '\0' || (c == '.' && name.empty())) {
      const auto byte = static_cast<unsigned char>(c);
      name.append({kDomainEscape, kDigits[byte >> 4U], kDigits[byte & 0x0FU]});
    } else {
      name += c;
    }
  }
  if (name.empty()) return {kDomainEscape};
  if (name.size() <= kLongestDomainName) return name;
  return name.substr(0, kKeptOfLongDomain) + kDomainEscape + digestOf(name);
}

std::string pathOfDomain(std::string_view domain) {
  return stringByAppendingPathComponent(preferencesFolder(),
                                        fileNameOf(domain) + kPreferencesExtension);
}

std::string ownDomain() {
  OptionalString identifier = Bundle::mainBundle().bundleIdentifier();
  if (identifier && !identifier->empty()) return *identifier;
  return lastPathComponent(ownExecutablePath());
}

// The values of one settings file, read again only when the file has changed.
class CachedFile {
 public:
  explicit CachedFile(std::string path) : path_(std::move(path)) {}

  /// Nothing when there is no such file, or it is malformed.
  const std::optional<PropertyListDictionary>& contents() {
    const auto current = FileSignature::ofFile(path_);
    if (current && signature_ && signature_->isSettled() && *current == *signature_) {
      return contents_;
    }
    signature_ = current;
    contents_ = current ? dictionaryWithContentsOfFile(path_) : std::nullopt;
    return contents_;
  }

 private:
  std::string path_;
  std::optional<FileSignature> signature_;
  std::optional<PropertyListDictionary> contents_;
};

// Puts a file that cannot be read as settings out of the way, under the first free name.
Status keepAside(const std::string& path) {
  constexpr int kMostKept = 10'000;
  for (int number = 1; number <= kMostKept; ++number) {
    const std::string aside = path + kCorruptInfix + std::to_string(number);
    Status moved = renameWithoutReplacing(AT_FDCWD, path.c_str(), aside.c_str());
    if (moved.isOk()) report(DiagnosticCause::kDefaultsDamaged, aside);
    if (moved.code() != EEXIST) return moved;
  }
  return Status::ofFile(EEXIST, "keepAside", path);
}

// Reads the settings for writing over them. What is no settings file is kept aside.
// @return the failure when the file can neither be read nor be moved.
Status readToWriteOver(const std::string& path, PropertyListDictionary& settings) {
  settings.clear();
  std::string bytes;
  Status read = readSettingsFile(path, bytes);
  if (read.code() == ENOENT || (read.isOk() && bytes.empty())) return {};
  if (!read.isOk() && read.code() != EFBIG) return read;
  auto value = read.isOk() ? propertyListFromBytes(bytes) : std::nullopt;
  if (!value || value->dictionary() == nullptr) return keepAside(path);
  settings = std::move(*value->dictionary());
  return {};
}

using Changes = std::map<std::string, std::optional<PropertyListValue>, std::less<>>;

// @return whether anything differs now.
bool apply(const Changes& changes, PropertyListDictionary& settings) {
  bool isChanged = false;
  for (const auto& [key, value] : changes) {
    const auto found = settings.find(key);
    if (!value) {
      if (found == settings.end()) continue;
      settings.erase(found);
    } else if (found == settings.end()) {
      settings.emplace(key, *value);
    } else {
      if (found->second == *value) continue;
      found->second = *value;
    }
    isChanged = true;
  }
  return isChanged;
}

// Writes where no caller takes a status. Even memory may run out; what was set stays pending then.
void writeQuietly(UserDefaults& defaults) noexcept {
  try {
    std::ignore = defaults.synchronize();  // what is not written stays pending
  } catch (...) {
    reportException();
  }
}

// The settings with something to write when the process ends. A process forked from it without a
// program of its own is not the one to write.
class ExitWriter {
 public:
  static void add(UserDefaults& defaults) {
    if (process_ == 0) std::atexit(&writeAll);
    process_ = getpid();
    auto& all = members();
    if (std::ranges::find(all, &defaults) == all.end()) all.push_back(&defaults);
  }
  static void remove(UserDefaults& defaults) noexcept { std::erase(members(), &defaults); }
  static bool isWriting() noexcept { return isWriting_; }

 private:
  static std::vector<UserDefaults*>& members() {
    static auto* const all = new std::vector<UserDefaults*>;
    return *all;
  }
  static void writeAll() {
    if (process_ != getpid()) return;
    isWriting_ = true;
    for (UserDefaults* defaults : members()) writeQuietly(*defaults);
  }

  static inline pid_t process_ = 0;
  static inline bool isWriting_ = false;
};

}  // namespace

struct CLIENTCOMM_LOCAL UserDefaults::State {
  std::string domain;
  Changes pending;
  std::map<std::string, CachedFile, std::less<>> files;
  std::unique_ptr<Timer> writeTimer;
  bool isCleared = false;

  // Removes what a process that was killed during a write left beside the file. A write does so
  // too, but there may be nothing to write.
  void clearPartials() {
    if (std::exchange(isCleared, true)) return;
    const ScopedFd folder(open(preferencesFolder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.isValid()) {
      removeAbandonedPartialFiles(folder.get(), lastPathComponent(pathOfDomain(domain)));
    }
  }

  CachedFile& file(const std::string& name) {
    const auto found = files.find(name);
    if (found != files.end()) return found->second;
    return files.emplace(name, CachedFile(pathOfDomain(name))).first->second;
  }

  void writeLater(UserDefaults& defaults, std::chrono::milliseconds delay) {
    // Fires once: a write ends the timer, whatever becomes of it.
    writeTimer = Timer::scheduledTimer(delay, [&defaults](Timer&) { writeQuietly(defaults); });
  }

  Status writePending() const {
    if (Status made = makePreferencesFolder(); !made.isOk()) return made;
    DirectoryLock lock(preferencesFolder(),
                       ExitWriter::isWriting() ? kLockLimitAtExit : kLockLimit);
    if (!lock.isHeld()) return lock.takeStatus();
    const std::string path = pathOfDomain(domain);
    PropertyListDictionary settings;
    if (Status read = readToWriteOver(path, settings); !read.isOk()) return read;
    if (!apply(pending, settings)) return {};
    return writeDictionaryFile(settings, path, WriteForm::kByRename, 0600);
  }

  // Whether the file holds already what was set, so that nothing needs to be made or locked.
  bool isWritten() {
    const auto& contents = file(domain).contents();
    if (!contents) {
      return !fileExistsAtPath(pathOfDomain(domain)) &&
             std::ranges::none_of(pending,
                                  [](const auto& change) { return change.second.has_value(); });
    }
    return std::ranges::all_of(pending, [&contents](const auto& change) {
      const PropertyListValue* const value = valueFor(*contents, change.first);
      return value != nullptr ? change.second == *value : !change.second.has_value();
    });
  }
};

UserDefaults& UserDefaults::standardUserDefaults() {
  requireOwnerThread();
  static auto* const defaults = new UserDefaults(ownDomain());
  return *defaults;
}

UserDefaults::UserDefaults(std::string domain) : state_(std::make_unique<State>()) {
  state_->domain = std::move(domain);
}

UserDefaults::~UserDefaults() {
  writeQuietly(*this);
  ExitWriter::remove(*this);
}

std::optional<PropertyListValue> UserDefaults::objectForKey(std::string_view key) {
  const auto change = state_->pending.find(key);
  if (change != state_->pending.end()) return change->second;
  const auto& contents = state_->file(state_->domain).contents();
  if (!contents) return std::nullopt;
  const PropertyListValue* const value = valueFor(*contents, key);
  return value != nullptr ? std::optional(*value) : std::nullopt;
}

OptionalString UserDefaults::stringForKey(std::string_view key) {
  const auto value = objectForKey(key);
  return value ? value->stringValue() : std::nullopt;
}

void UserDefaults::setObject(std::optional<PropertyListValue> value, std::string_view key) {
  state_->pending.insert_or_assign(std::string(key), std::move(value));
  ExitWriter::add(*this);
  if (!state_->writeTimer) state_->writeLater(*this, kWriteDelay);
}

bool UserDefaults::synchronize() {
  state_->writeTimer.reset();
  if (state_->pending.empty()) return true;
  state_->clearPartials();
  if (state_->isWritten() || state_->writePending().report(DiagnosticCause::kDefaultsNotWritten)) {
    state_->pending.clear();
    return true;
  }
  state_->writeLater(*this, kRetryDelay);
  return false;
}

std::optional<PropertyListDictionary> UserDefaults::persistentDomainForName(
    const std::string& domain) {
  return state_->file(domain).contents();
}

}  // namespace clientcomm
