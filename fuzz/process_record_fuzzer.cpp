// What the kernel, and processes themselves, tell of a process: the texts under /proc, the path of
// an executable, and the record that a process leaves in the runtime folder.
//
// The input: a byte of options, a start time (4 bytes), a line with a name, and a property list.

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/linux/peer_identity.h"
#include "ClientComm/platform/linux/process_record.h"
#include "ClientComm/platform/linux/process_record_format.h"
#include "ClientComm/platform/linux/process_stat.h"
#include "ClientComm/platform/linux/process_text.h"
#include "ClientComm/platform/linux/runtime_file_name.h"
#include "ClientComm/platform/linux/runtime_folder_format.h"
#include "ClientComm/platform/posix/removed_name.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/process_manager.h"
#include "ClientComm/platform/property_list.h"
#include "fuzz/fuzz.h"
#include "fuzz/property_lists.h"

namespace {

using clientcomm::PropertyListDictionary;
using fuzz::require;

// Options, bit by bit.
constexpr unsigned kIsRemoved = 1;      // the bundle is removed while it runs
constexpr unsigned kLooksRemoved = 2;   // the executable's own name ends as the kernel marks one
constexpr unsigned kInOlderFolder = 4;  // the executable lies in MacOS/

const std::string& runtimeFolder() {
  static const auto* const path =
      new std::string(fuzz::privateFolder() + "/" + clientcomm::kRuntimeFolderName);
  return *path;
}

void checkStat(std::string_view name, std::uint32_t startTime) {
  static_cast<void>(clientcomm::startTimeInStat(name));
  std::string stat = "4711 (" + std::string(name) + ") S";
  for (int field = 4; field < 22; ++field) stat += " " + std::to_string(field - 5);
  stat += " " + std::to_string(startTime);
  require(clientcomm::startTimeInStat(stat + " 7 8 9\n") == startTime,
          "a command's name does not hide the start time");
  require(!clientcomm::startTimeInStat(stat.substr(0, stat.rfind(' '))),
          "a text without a start time has none");
}

void checkCommand(std::string_view text) {
  std::array<char, clientcomm::kMaximumCommandLength + 1> name;
  name.fill('x');
  clientcomm::copyCommandName(
      text, *reinterpret_cast<char(*)[clientcomm::kMaximumCommandLength + 1]>(name.data()));
  const std::string_view plain = text.ends_with('\n') ? text.substr(0, text.size() - 1) : text;
  const std::size_t length = std::min(plain.size(), clientcomm::kMaximumCommandLength);
  require(std::string_view(name.data(), length) == plain.substr(0, length) && name[length] == '\0',
          "a command's name is its beginning, with a NUL behind it");
}

void checkExecutablePath(const std::string& path) {
  const std::string_view bundle = clientcomm::bundleOfExecutable(path);
  if (bundle.empty()) return;
  require(path.starts_with('/') && path.starts_with(bundle) &&
              clientcomm::pathBeforeRemoval(bundle).ends_with(".app"),
          "an executable's bundle is an application that encloses it");
  std::string_view rest = std::string_view(path).substr(bundle.size());
  require(rest.starts_with("/Contents/Linux/") || rest.starts_with("/Contents/MacOS/"),
          "an executable lies in the folder for it");
  rest.remove_prefix(std::string_view("/Contents/Linux/").size());
  require(!rest.empty() && rest.find('/') == std::string_view::npos, "an executable has a name");
}

void checkRecordName(const std::string& name, pid_t pid) {
  using clientcomm::parseRuntimeFileName;
  using clientcomm::RuntimeFileKind;
  const auto parsed = parseRuntimeFileName(name);
  require(parsed.kind != RuntimeFileKind::kProcessRecord ||
              (parsed.pid > 0 && name.starts_with(clientcomm::kProcessRecordPrefix)),
          "only the name of a record names the process of one");
  const std::string record = clientcomm::processRecordName(pid);
  require(parseRuntimeFileName(record).pid == pid, "the name of a record names its process");
  const auto draft = parseRuntimeFileName(clientcomm::draftName(record));
  require(draft.kind == RuntimeFileKind::kDraft && draft.pid == getpid(),
          "the name of a draft names its writer");
}

void requireSame(const clientcomm::ProcessRecord& record, const PropertyListDictionary& texts) {
  const auto textOf = [&texts](const char* key) {
    const auto found = texts.find(key);
    return found == texts.end() ? "" : found->second.stringValue().value_or("");
  };
  require(record.bundleIdentifier == textOf(clientcomm::kCFBundleIdentifierKey) &&
              record.bundlePath == textOf(clientcomm::kBundlePathKey) &&
              record.bundleName == textOf(clientcomm::kCFBundleNameKey),
          "a record has the texts of its file");
}

// A record as it stands, and one that this process could have written.
void checkRecord(const std::string& name, std::string_view bytes) {
  const auto record = clientcomm::processRecordFromBytes(bytes);
  const std::string path = runtimeFolder() + "/" + clientcomm::processRecordName(getpid());
  fuzz::writeFile(path, bytes);
  const auto startTime = clientcomm::processStartTime(getpid());
  require(startTime.has_value(), "a process knows when it was started");
  require(clientcomm::processRecordForPID(getpid()).has_value() ==
              (record && record->startTime == *startTime),
          "only the record of the process itself counts");
  const PropertyListDictionary own = {{clientcomm::kStartTimeKey, *startTime},
                                      {clientcomm::kCFBundleIdentifierKey, name},
                                      {clientcomm::kBundlePathKey, "/" + name}};
  fuzz::writeFile(path, clientcomm::xmlPropertyList(own));
  const auto ownRecord = clientcomm::processRecordForPID(getpid());
  require(ownRecord.has_value(), "the record of the process itself counts");
  requireSame(*ownRecord, *fuzz::asReadFromXml(own).dictionary());
}

// A name that a file can have.
std::string fileName(std::string_view text) {
  std::string name;
  for (const char c : text.substr(0, 200)) name += c == '/' || c == '\0' ? '_' : c;
  return name.empty() ? "_" : name;
}

// The caller has ended; it handed its executable over, which lies in a bundle, or did.
void checkPeer(const std::string& name, unsigned options, std::string_view info) {
  static std::uint64_t count = 0;
  const std::string folder = fuzz::privateFolder() + "/" + std::to_string(++count);
  const std::string bundle = folder + "/" + name + ".app";
  const std::string executables =
      bundle + ((options & kInOlderFolder) != 0 ? "/Contents/MacOS" : "/Contents/Linux");
  const std::string executable =
      executables + ((options & kLooksRemoved) != 0 ? "/program (deleted)" : "/program");
  const std::string infoPath = bundle + "/Contents/Info.plist";
  std::filesystem::create_directories(executables);
  fuzz::writeFile(infoPath, info);
  fuzz::writeFile(executable, "");
  const auto dictionary = clientcomm::dictionaryWithContentsOfFile(infoPath);
  const clientcomm::ScopedFd file(open(executable.c_str(), O_PATH | O_CLOEXEC));
  const bool isRemoved = (options & kIsRemoved) != 0;
  if (isRemoved) std::filesystem::remove_all(folder);

  const auto psn = clientcomm::serialNumberForPeer(INT_MAX, file.get());
  require(psn.has_value(), "a caller is known by the executable that it handed over");
  const auto known = clientcomm::ProcessInformationCopyDictionary(
      *psn, clientcomm::kProcessDictionaryIncludeAllInformationMask);
  require(known && known->at(clientcomm::kBundlePathKey).stringValue() == bundle,
          "a caller's bundle is the one that enclosed its executable");
  const auto identifier = known->find(clientcomm::kCFBundleIdentifierKey);
  const auto expected = dictionary && !isRemoved
                            ? dictionary->find(clientcomm::kCFBundleIdentifierKey)
                            : PropertyListDictionary::const_iterator();
  const bool hasIdentifier = dictionary && !isRemoved && expected != dictionary->end() &&
                             expected->second.stringValue().has_value();
  require((identifier != known->end()) == hasIdentifier, "a caller has its bundle's identifier");
  if (hasIdentifier) {
    require(identifier->second.stringValue() == expected->second.stringValue(),
            "a caller has its bundle's identifier");
  }
  std::filesystem::remove_all(folder);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  std::filesystem::create_directory(runtimeFolder());
  std::filesystem::permissions(runtimeFolder(), std::filesystem::perms::owner_all);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const unsigned options = input.takeByte();
  const std::uint32_t startTime = input.takeNumber();
  const std::string name(input.takeLine());
  const std::string_view list = input.takeRest();
  checkStat(name, startTime);
  checkCommand(name);
  checkExecutablePath(name);
  checkExecutablePath("/a/" + name + ".app/Contents/Linux/b");
  checkRecordName(name, static_cast<pid_t>(startTime % INT_MAX + 1U));
  checkRecord(name, list);
  checkPeer(fileName(name), options, list);
  return 0;
}
