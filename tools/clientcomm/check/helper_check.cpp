#include <string>
#include <vector>

#include "ClientComm/platform/bundle_layout.h"
#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/linux/bundle_identities.h"
#include "ClientComm/platform/path.h"
#include "tools/clientcomm/check/examination.h"
#include "tools/clientcomm/check/helper_bundle.h"
#include "tools/clientcomm/check/info_file.h"
#include "tools/clientcomm/check/program.h"

// The helper in the host's bundle.

namespace clientcomm::tool {
namespace {

// What the host's resources have in place of the helper.
std::string otherApplications(const Examination& examination) {
  std::string names;
  for (const std::string& name : contentsOfDirectoryAtPath(examination.host.resourcePath())) {
    if (!isApplicationPath(name)) continue;
    names.append(names.empty() ? " It holds \"" : ", \"").append(name).append("\"");
  }
  return names.empty() ? names : names + ".";
}

void addNotEmbedded(Examination& examination) {
  const std::string& name = *examination.helperName;
  const std::string wanted = name + std::string(kApplicationSuffix);
  const bool hasSuffix = isApplicationPath(name);
  examination.findings.add(
      Cause::kHelperNotEmbedded,
      stringByAppendingPathComponent(examination.host.resourcePath(), wanted),
      "The host's bundle holds no helper of that name." + otherApplications(examination),
      hasSuffix ? "Write the helper's name without \".app\" in the host's Info.plist."
                : "Put the helper's bundle there, or correct \"Helepr App name\".");
}

void checkIdentifiers(const std::string& path, Examination& examination) {
  const OptionalString own = Bundle(path).bundleIdentifier();
  const std::string info = stringByAppendingPathComponent(path, kInfoFile);
  if (!own || own->empty()) {
    examination.findings.add(Cause::kHelperWithoutIdentifier, info,
                             "The helper has no CFBundleIdentifier, so calls do not reach it.",
                             "Add the key; the host names the same identifier.");
    return;
  }
  if (own->size() > kMaximumIdentifierLength) {
    examination.findings.add(
        Cause::kIdentifierTooLong, info,
        "The helper's identifier has more than 1,024 bytes and counts as none.",
        "Choose a shorter one.");
  }
  if (own == examination.host.bundleIdentifier()) {
    examination.findings.add(
        Cause::kHelperIdentifierOfHost, info,
        "Host and helper have the same identifier, \"" + *own + "\": the host would call itself.",
        "Give the helper an identifier of its own.");
  }
  const OptionalString& wanted = examination.helperIdentifier;
  if (!wanted || own == wanted) return;
  examination.findings.add(Cause::kHelperIdentifierDiffers, info,
                           "The helper calls itself \"" + *own + "\", the host calls it \"" +
                               *wanted + "\", so calls do not reach it.",
                           "Make CFBundleIdentifier of the helper and \"Helper Bundle "
                           "indentifiter\" of the host the same.");
}

}  // namespace

OptionalString checkHelperBundle(const std::string& path, Examination& examination) {
  if (!checkInfoFile(path, examination.findings)) return std::nullopt;
  const Bundle helper(path);
  checkIdentifiers(path, examination);
  OptionalString version = helper.infoString(kCFBundleVersionKey);
  if (!version) {
    examination.findings.add(Cause::kHelperWithoutVersion,
                             stringByAppendingPathComponent(path, kInfoFile),
                             "The helper has no CFBundleVersion and counts as the oldest of all.",
                             "Add the key; the helper is replaced by one of a higher version.");
  }
  checkProgram(helper, ProgramKind::kHelper, examination.findings);
  return version;
}

void checkHelper(Examination& examination) {
  if (!examination.hasInfo || !examination.helperName) return;
  examination.embedded =
      examination.host.pathForResource(*examination.helperName, kApplicationExtension);
  if (!examination.embedded) return addNotEmbedded(examination);
  examination.embeddedVersion = checkHelperBundle(*examination.embedded, examination);
}

}  // namespace clientcomm::tool
