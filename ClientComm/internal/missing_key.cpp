#include "ClientComm/internal/missing_key.h"

#include <string>

#include "ClientComm/internal/guard.h"
#include "ClientComm/internal/misspelling.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/bundle_layout.h"
#include "ClientComm/platform/reporter.h"

namespace clientcomm {

void reportMissingKey(const char* key, const char* otherKey) noexcept {
  if (!isReporting()) return;
  guarded([&] {
    const Bundle& host = Bundle::mainBundle();
    if (!isApplicationPath(host.bundlePath())) {
      report(DiagnosticCause::kHostWithoutBundle, host.bundlePath());
      return;
    }
    const char* const keys[] = {key, *otherKey != '\0' ? otherKey : key};
    if (const std::string* found = misspellingOf(keys, host.infoDictionary())) {
      report(DiagnosticCause::kInfoKeyMisspelt, *found, key);
    } else {
      report(DiagnosticCause::kInfoKeyMissing, key);
    }
  });
}

}  // namespace clientcomm
