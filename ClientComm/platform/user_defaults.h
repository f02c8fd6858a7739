#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "ClientComm/platform/export.h"
#include "ClientComm/platform/property_list.h"
#include "ClientComm/platform/types.h"

namespace clientcomm {

/// The user's settings of one application: one XML property list per bundle identifier in the
/// folder "Preferences" under the user's configuration directory.
class CLIENTCOMM_EXPORT UserDefaults {
 public:
  /// The settings of the running application, by its bundle identifier (by the executable's name
  /// where it has none). Made on first use, never destroyed.
  static UserDefaults& standardUserDefaults();

  /// The settings of the application with the bundle identifier `domain`.
  explicit UserDefaults(std::string domain);
  ~UserDefaults();
  UserDefaults(const UserDefaults&) = delete;
  UserDefaults& operator=(const UserDefaults&) = delete;

  /// The value for `key`: what was set here, else what the file holds; nothing when absent.
  std::optional<PropertyListValue> objectForKey(std::string_view key);
  /// The string for `key`; nil when absent or not a string.
  OptionalString stringForKey(std::string_view key);

  /// Sets the value for `key`; nothing removes it. Written by `synchronize`, or by the run loop
  /// within a second, or when the process ends, whichever comes first.
  void setObject(std::optional<PropertyListValue> value, std::string_view key);

  /// Merges what was set into the file as it is now: keys that another process wrote meanwhile
  /// are kept. The file is replaced by a rename, unless that would change more than its content. A
  /// corrupt file is kept aside (".corrupt-" and a number), not lost.
  /// @return false when it could not be written, as where the file is read-only, or is too large or
  ///         nested too deep to be read again; what was set stays pending then.
  bool synchronize();

  /// All values of another application's settings, as its file holds them now; nothing when there
  /// is no such file, or it is malformed. Costs one stat when the file has not changed for 2 s.
  std::optional<PropertyListDictionary> persistentDomainForName(const std::string& domain);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace clientcomm
