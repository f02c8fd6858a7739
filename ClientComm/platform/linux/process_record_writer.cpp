#include "ClientComm/platform/linux/process_record_writer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "ClientComm/platform/bundle_contents.h"
#include "ClientComm/platform/linux/launch_record.h"
#include "ClientComm/platform/linux/proc_path.h"
#include "ClientComm/platform/linux/process_record.h"
#include "ClientComm/platform/linux/process_record_format.h"
#include "ClientComm/platform/linux/process_stat.h"
#include "ClientComm/platform/linux/record_file.h"
#include "ClientComm/platform/linux/runtime_file.h"
#include "ClientComm/platform/linux/runtime_file_name.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/linux/stale_files.h"
#include "ClientComm/platform/own_process.h"
#include "ClientComm/platform/posix/bundle_files.h"
#include "ClientComm/platform/posix/file_signature.h"
#include "ClientComm/platform/posix/io.h"
#include "ClientComm/platform/property_list.h"

namespace clientcomm {
namespace {

/// The record that this process has written. A forked copy must neither trust nor remove it.
struct OwnRecord {
  pid_t writer = 0;
  std::array<char, 64> name = {};
  // More than the inode, whose number another file may have by now.
  std::optional<FileSignature> signature;

  bool isInPlace(int folder) const noexcept {
    return writer == getpid() && signature && signature == signatureOf(folder, name.data());
  }

  static std::optional<FileSignature> signatureOf(int folder, const char* name) noexcept {
    struct stat status = {};
    if (fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
    return FileSignature(status, {});
  }
};

OwnRecord& ownRecord() noexcept {
  static OwnRecord record;
  return record;
}

void removeOwnRecord() noexcept {
  const ScopedFd folder = openRuntimeFolder(IfMissing::kFail);
  if (folder.isValid() && ownRecord().isInPlace(folder.get())) {
    discardFile(folder.get(), ownRecord().name.data());
  }
}

/// Where the record of a process goes, and what is there now.
struct Place {
  std::string name;
  std::optional<PropertyListDictionary> content;
};

// A process of another PID namespace may have the same ID, and its record is left to it.
Place placeFor(int folder, pid_t pid) {
  Place place{processRecordName(pid), {}};
  place.content = readRecordFile(folder, place.name);
  const auto record = place.content ? processRecordIn(*place.content) : std::nullopt;
  if (!record) return place;
  const std::uint64_t own = ownPIDNamespace();
  if (mayBeOfNamespace(*record, own)) return place;
  place.name = processRecordName(pid, own);
  place.content = readRecordFile(folder, place.name);
  return place;
}

// What is known of a bundle, for the process `pid` that runs its executable.
Status contentFor(const Bundle& bundle, pid_t pid, PropertyListDictionary& content) {
  const auto startTime = processStartTime(pid);
  if (!startTime) {
    return {kProcessErrorDomain, ESRCH, "processStartTime", ProcPath::ofProcess(pid).view()};
  }
  content = {{kStartTimeKey, *startTime},
             {kCFBundleIdentifierKey, bundle.bundleIdentifier().value_or("")}};
  if (const auto name = bundle.infoString(kCFBundleNameKey)) content[kCFBundleNameKey] = *name;
  if (const std::uint64_t own = ownPIDNamespace(); own != 0) content[kPIDNamespaceKey] = own;
  return {};
}

// What the launcher wrote tells the path that this process was launched by, and that it is the
// bundle's application, also where a script runs first and then executes another program.
// @param path receives the bundle path in the record.
Status writeOwnRecord(int folder, pid_t pid, std::string& path) {
  const Bundle& bundle = Bundle::mainBundle();
  PropertyListDictionary content;
  if (Status found = contentFor(bundle, pid, content); !found.isOk()) return found;
  Place place = placeFor(folder, pid);
  const auto earlier = place.content ? processRecordIn(*place.content) : std::nullopt;
  const bool isOfThisProcess = earlier && earlier->startTime == processStartTime(pid) &&
                               isSameBundle(earlier->bundlePath, bundle.bundlePath());
  path = isOfThisProcess ? earlier->bundlePath : bundle.bundlePath();
  content.insert_or_assign(kBundlePathKey, path);
  std::string version = CLIENTCOMM_VERSION;
  content.insert_or_assign(kLibraryVersionKey, version);
  const bool isKnownAsApplication = isOfThisProcess && !earlier->isTool;
  if (!isKnownAsApplication && !isMainExecutable(bundle, ownExecutablePath())) {
    content.insert_or_assign(kIsToolKey, true);
  }
  if (isOfThisProcess) keepUnknownKeys(*std::move(place.content), kProcessRecordKeys, content);
  Status written = replaceRuntimeFile(folder, place.name, xmlPropertyList(content));
  if (!written.isOk()) return written;
  OwnRecord own{pid, {}, OwnRecord::signatureOf(folder, place.name.c_str())};
  place.name.copy(own.name.data(), own.name.size() - 1);
  ownRecord() = own;
  return {};
}

Status runtimeFolderStatus(const ScopedFd& folder) {
  return fileStatus(folder.get(), "openRuntimeFolder", runtimeFolderPath());
}

Status recordLaunchedOrThrow(pid_t pid, const Bundle& bundle) {
  if (!bundle.bundleIdentifier()) return {};
  const ScopedFd folder = openRuntimeFolder(IfMissing::kFail);
  if (!folder.isValid()) return runtimeFolderStatus(folder);
  PropertyListDictionary content;
  if (Status found = contentFor(bundle, pid, content); !found.isOk()) return found;
  content.insert_or_assign(kBundlePathKey, bundle.bundlePath());
  content.insert_or_assign(kIsLaunchingKey, true);
  // Not over a record of the process's own, which says more.
  return createRuntimeFile(folder.get(), placeFor(folder.get(), pid).name,
                           xmlPropertyList(content));
}

Status recordOwnOrThrow() {
  const pid_t pid = getpid();
  if (!Bundle::mainBundle().bundleIdentifier()) return {};
  const ScopedFd folder = openRuntimeFolder(IfMissing::kCreate);
  if (!folder.isValid()) return runtimeFolderStatus(folder);
  if (ownRecord().isInPlace(folder.get())) return {};
  clearStaleFiles(folder.get());
  std::string path;
  if (Status written = writeOwnRecord(folder.get(), pid, path); !written.isOk()) return written;
  // The launch counts as failed only once this process is gone.
  forgetLaunch(folder.get(), path, pid).report(DiagnosticCause::kRuntimeFileNotRemoved);
  // A forked copy inherits the handler that its parent registered.
  static const int registered = std::atexit([] { removeOwnRecord(); });
  static_cast<void>(registered);
  return {};
}

}  // namespace

Status recordOwnProcess() noexcept {
  try {
    return recordOwnOrThrow();
  } catch (const std::bad_alloc&) {
    return {kProcessErrorDomain, ENOMEM, "recordOwnProcess"};
  }
}

std::string nameOfOwnRecord() { return ownRecord().name.data(); }

Status recordLaunchedProcess(pid_t pid, const Bundle& bundle) noexcept {
  try {
    return recordLaunchedOrThrow(pid, bundle);
  } catch (const std::bad_alloc&) {
    return {kProcessErrorDomain, ENOMEM, "recordLaunchedProcess"};
  }
}

}  // namespace clientcomm
