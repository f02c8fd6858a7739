#include <sys/stat.h>
#include <unistd.h>

#include <span>
#include <string>
#include <string_view>

#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/TQHPTypes.h"
#include "ClientComm/internal/misspelling.h"
#include "ClientComm/internal/settings_keys.h"
#include "ClientComm/platform/bundle_layout.h"
#include "ClientComm/platform/dictionary.h"
#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/linux/bundle_identities.h"
#include "ClientComm/platform/path.h"
#include "ClientComm/platform/posix/recovery_copy_format.h"
#include "tools/clientcomm/check/examination.h"
#include "tools/clientcomm/check/info_file.h"
#include "tools/clientcomm/check/program.h"

// The host's bundle and what its Info.plist says.

namespace clientcomm::tool {
namespace {

constexpr const char* kNameKeys[] = {kHelperAppName, "Helper App name"};
constexpr const char* kFolderKeys[] = {kHelperDefaultInstallPath, "Helper location path"};
constexpr const char* kHelperIdentifierKeys[] = {kHelperBundleId};
constexpr const char* kIdentifierKeys[] = {kCFBundleIdentifierKey};
constexpr const char* kVersionKeys[] = {kCFBundleVersionKey};
constexpr const char* kProductKeys[] = {kPIDKey};

std::string quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

std::string infoPath(const Examination& examination) {
  return stringByAppendingPathComponent(examination.host.bundlePath(), kInfoFile);
}

// Adds the finding for a key that is not there.
void addMissing(std::span<const char* const> keys, Cause cause, const char* consequence,
                Examination& examination) {
  if (const auto* wrong = misspellingOf(keys, examination.host.infoDictionary())) {
    examination.findings.add(Cause::kInfoKeyMisspelt, infoPath(examination),
                             "The key " + quoted(*wrong) + " is not read; the key is " +
                                 quoted(keys[0]) + ", letter for letter. " + consequence,
                             "Write " + quoted(keys[0]) + " in place of " + quoted(*wrong) + ".");
    return;
  }
  examination.findings.add(cause, infoPath(examination),
                           "The key " + quoted(keys[0]) + " is missing. " + consequence,
                           "Add it; it is spelled exactly so.");
}

// The text under the first of `keys` that has one; where none has, adds a finding.
OptionalString textOf(std::span<const char* const> keys, Cause cause, const char* consequence,
                      Examination& examination) {
  const PropertyListDictionary& info = examination.host.infoDictionary();
  for (const char* const key : keys) {
    if (OptionalString text = stringFor(info, key)) return text;
  }
  for (const char* const key : keys) {
    if (valueFor(info, key) == nullptr) continue;
    examination.findings.add(Cause::kInfoKeyNotText, infoPath(examination),
                             "The value of " + quoted(key) + " is no text. " + consequence,
                             "Make it a <string>.");
    return std::nullopt;
  }
  addMissing(keys, cause, consequence, examination);
  return std::nullopt;
}

void noteSecondKey(std::span<const char* const> keys, Examination& examination) {
  const PropertyListDictionary& info = examination.host.infoDictionary();
  const OptionalString first = stringFor(info, keys[0]);
  const OptionalString second = stringFor(info, keys[1]);
  if (!first || !second || first == second) return;
  examination.findings.add(
      Cause::kSecondKeyIgnored, infoPath(examination),
      "Both " + quoted(keys[0]) + " and " + quoted(keys[1]) + " are there; only the first is read.",
      "Remove " + quoted(keys[1]) + ".");
}

void checkIdentifier(Examination& examination) {
  const OptionalString own = textOf(
      kIdentifierKeys, Cause::kOwnIdentifierMissing,
      "The helper cannot identify the host: it carries no call of it out, and cannot call it.",
      examination);
  if (!own || own->size() <= kMaximumIdentifierLength) return;
  examination.findings.add(Cause::kIdentifierTooLong, infoPath(examination),
                           "The host's identifier has more than 1,024 bytes and counts as none.",
                           "Choose a shorter one.");
}

void readHelperKeys(Examination& examination) {
  const Cause missing = Cause::kInfoKeyMissing;
  examination.helperIdentifier =
      textOf(kHelperIdentifierKeys, missing, "No call can be sent to the helper.", examination);
  examination.helperName =
      textOf(kNameKeys, missing, "The helper is neither installed nor launched.", examination);
  noteSecondKey(kNameKeys, examination);
  const OptionalString folder =
      textOf(kFolderKeys, missing, "The helper is neither installed nor launched.", examination);
  noteSecondKey(kFolderKeys, examination);
  if (folder) examination.installFolder = stringByExpandingTildeInPath(*folder);
  textOf(kProductKeys, missing, "Calls name no product.", examination);
  textOf(kVersionKeys, missing, "Calls name no version of the product.", examination);
}

// Only a misspelling: without them there are defaults.
void checkSwitch(const char* key, Examination& examination) {
  const PropertyListDictionary& info = examination.host.infoDictionary();
  if (valueFor(info, key) != nullptr) return;
  const char* const keys[] = {key};
  const auto* const wrong = misspellingOf(keys, info);
  if (wrong == nullptr) return;
  examination.findings.add(Cause::kInfoKeyMisspelt, Severity::kWarning, infoPath(examination),
                           "The key " + quoted(*wrong) + " is not read; the switch is " +
                               quoted(key) + ", letter for letter.",
                           "Write " + quoted(key) + " in place of " + quoted(*wrong) + ".");
}

void checkRecoveryCopy(Examination& examination) {
  const std::string copy = stringByAppendingPathComponent(
      stringByAppendingPathComponent(examination.host.bundlePath(), kContentsFolder),
      ".Info.plist" + std::string(kRecoveryInfix) + std::to_string(geteuid()));
  if (!fileExistsAtPath(copy)) return;
  examination.findings.add(Cause::kRecoveryCopyLeft, copy,
                           "A process writes Info.plist, or died while it wrote it.",
                           "Start the host: it completes the write.");
}

void checkWritable(Examination& examination) {
  const std::string path = infoPath(examination);
  if (access(path.c_str(), W_OK) == 0) return;
  examination.findings.add(
      Cause::kHostNotWritable, path,
      "It cannot be written by this user, so the switches TipsEnable and EnableAD are not kept.",
      "Nothing, where the host has no use for the switches.");
}

bool isBundle(const Examination& examination) {
  const std::string& path = examination.host.bundlePath();
  return isApplicationPath(path) &&
         fileExistsAtPath(stringByAppendingPathComponent(path, kContentsFolder));
}

}  // namespace

void checkHost(Examination& examination) {
  if (!isBundle(examination)) {
    examination.findings.add(
        Cause::kHostWithoutBundle, examination.host.bundlePath(),
        "It is no application bundle: a folder NAME.app with a folder Contents.",
        "Lay the host out as a bundle, as the page on building says.");
    return;
  }
  checkRecoveryCopy(examination);  // the reading below may complete the write
  examination.hasInfo = checkInfoFile(examination.host.bundlePath(), examination.findings);
  if (!examination.hasInfo) return;
  checkIdentifier(examination);
  readHelperKeys(examination);
  checkSwitch(kTipsEnableKey, examination);
  checkSwitch(kEnableADKey, examination);
  checkWritable(examination);
  checkProgram(examination.host, ProgramKind::kHost, examination.findings);
}

}  // namespace clientcomm::tool
