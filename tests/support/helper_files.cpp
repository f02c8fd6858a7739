#include "tests/support/helper_files.h"

#include "tests/support/test_sandbox.h"

namespace support {

std::string installedHelperPath() {
  return sandbox() + "/" + kInstallFolder + "/" + kHelperName + ".app";
}

std::string preferencesPath(const std::string& identifier) {
  return sandbox() + "/config/Preferences/" + identifier + ".plist";
}

clientcomm::PropertyListDictionary hostDefaults() {
  return clientcomm::dictionaryWithContentsOfFile(preferencesPath("com.example.testhost"))
      .value_or(clientcomm::PropertyListDictionary());
}

void writeHelperPreferences(const clientcomm::PropertyListDictionary& values) {
  writeFile(preferencesPath(helperIdentifier()), clientcomm::xmlPropertyList(values));
}

}  // namespace support
