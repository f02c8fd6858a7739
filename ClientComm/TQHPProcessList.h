#pragma once

/// @file
/// Which applications and processes run.

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ClientComm/TQHPTypes.h"
#include "ClientComm/platform/kinfo_proc.h"
#include "ClientComm/platform/property_list.h"

/// Reads the kernel's process table into one allocation; the caller frees `*procList` with free().
/// @param procList receives the table, or null on error; what it held is overwritten unread.
/// @param procCount receives the number of records, 0 on error.
/// @return 0, or an errno value. Aborts when either pointer is null: that is a programming error.
CLIENTCOMM_EXPORT int GetBSDProcessList(clientcomm::kinfo_proc** procList, std::size_t* procCount);

/// Tells which applications and processes run. Keeps nothing: every call reads the table afresh.
/// Any thread may use it, and `GetBSDProcessList`.
class CLIENTCOMM_EXPORT TQHPProcessList {
 public:
  /// One running process: "pname" (bundle name, else command name), "pid" and "uid" in decimal.
  using ProcessRecord = std::map<std::string, std::string>;

  /// The one object, made on first use and never destroyed.
  static TQHPProcessList& share();

  TQHPProcessList(const TQHPProcessList&) = delete;
  TQHPProcessList& operator=(const TQHPProcessList&) = delete;

  /// Whether an application with exactly this bundle identifier runs from exactly this bundle
  /// path; the path is compared as text. False when either is nil.
  bool applicationIsRunning(const clientcomm::OptionalString& bundleID,
                            const clientcomm::OptionalString& bundlePath);

  /// What the process manager knows of the process; nothing when it knows none of that ID.
  std::optional<clientcomm::PropertyListDictionary> infoForPID(std::int32_t pid);

  /// All running processes, in the order of the process table. Part of the interface since the
  /// system's first platform; the library itself has no use for it.
  std::vector<ProcessRecord> getBSDProcessList();

 private:
  TQHPProcessList() = default;
};
