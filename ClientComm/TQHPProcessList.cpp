#include "ClientComm/TQHPProcessList.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string_view>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/dictionary.h"
#include "ClientComm/platform/process_manager.h"
#include "ClientComm/platform/process_table.h"

using clientcomm::kinfo_proc;
using clientcomm::OptionalString;

namespace {

/// Name vector of the request for the process table.
constexpr int kWholeTable[] = {clientcomm::kCtlKern, clientcomm::kKernProc,
                               clientcomm::kKernProcAll};

// A wrong call must end the process in a release build too, where assert() is compiled out.
void require(bool condition, const char* text, int line) {
  if (condition) return;
  std::fprintf(stderr,
               "Assertion failed: (%s), function GetBSDProcessList, "
               "file ClientComm/TQHPProcessList.cpp, line %d.\n",
               text, line);
  std::abort();
}

struct FreeTable {
  void operator()(kinfo_proc* table) const { std::free(table); }
};
using ScopedTable = std::unique_ptr<kinfo_proc, FreeTable>;

int call(void* buffer, std::size_t& length) {
  const int result = clientcomm::sysctl(kWholeTable, 3, buffer, &length, nullptr, 0);
  return result == -1 ? errno : result;
}

/// Sizes the table, allocates, and reads it, as often as it outgrows its size in between.
/// @return 0 with the table and the number of its records, or an errno value.
int readTable(ScopedTable& table, std::size_t& count) {
  for (;;) {
    std::size_t length = 0;
    if (const int error = call(nullptr, length); error != 0) return error;
    // An empty table is still a table.
    table.reset(static_cast<kinfo_proc*>(std::malloc(std::max(length, sizeof(kinfo_proc)))));
    if (!table) return ENOMEM;
    const int error = call(table.get(), length);
    if (error == 0) {
      count = length / sizeof(kinfo_proc);
      return 0;
    }
    table.reset();
    if (error != ENOMEM) return error;
  }
}

}  // namespace

int GetBSDProcessList(kinfo_proc** procList, std::size_t* procCount) {
  require(procList != nullptr, "procList != NULL", __LINE__);
  require(procCount != nullptr, "procCount != NULL", __LINE__);
  *procCount = 0;
  ScopedTable table;
  const int err = readTable(table, *procCount);
  *procList = table.release();
  require((err == 0) == (*procList != nullptr), "(err == 0) == (*procList != NULL)", __LINE__);
  return err;
}

TQHPProcessList& TQHPProcessList::share() {
  static auto* const processList = new TQHPProcessList;
  return *processList;
}

bool TQHPProcessList::applicationIsRunning(const OptionalString& bundleID,
                                           const OptionalString& bundlePath) {
  if (!bundleID || !bundlePath) return false;
  const auto mayBeApplication = clientcomm::mayRunBundleAt(*bundlePath);
  const auto isApplication = [&](std::int32_t pid) {
    const auto information = infoForPID(pid);
    return information &&
           clientcomm::stringFor(*information, clientcomm::kCFBundleIdentifierKey) == bundleID &&
           clientcomm::stringFor(*information, clientcomm::kBundlePathKey) == bundlePath;
  };
  // Most searches end with one of these, and the system need not list all processes then.
  auto open = clientcomm::openApplications();
  std::erase_if(open, std::not_fn(mayBeApplication));
  if (!open.empty() &&
      std::ranges::any_of(clientcomm::processIDs(&GetBSDProcessList, open), isApplication)) {
    return true;
  }
  return std::ranges::any_of(
             clientcomm::processIDs(&GetBSDProcessList),
             [&](std::int32_t pid) { return mayBeApplication(pid) && isApplication(pid); }) ||
         clientcomm::isRunningUnseen(*bundleID, *bundlePath);
}

std::optional<clientcomm::PropertyListDictionary> TQHPProcessList::infoForPID(std::int32_t pid) {
  clientcomm::ProcessSerialNumber psn;
  if (clientcomm::GetProcessForPID(pid, psn) != clientcomm::noErr) return std::nullopt;
  return clientcomm::ProcessInformationCopyDictionary(
      psn, clientcomm::kProcessDictionaryIncludeAllInformationMask);
}

std::vector<TQHPProcessList::ProcessRecord> TQHPProcessList::getBSDProcessList() {
  std::vector<ProcessRecord> records;
  kinfo_proc* list = nullptr;
  std::size_t count = 0;
  GetBSDProcessList(&list, &count);
  const ScopedTable table(list);
  for (std::size_t i = 0; i < count; ++i) {
    const kinfo_proc& process = list[i];
    const auto information = infoForPID(process.kp_proc.p_pid);
    const auto name = information
                          ? clientcomm::stringFor(*information, clientcomm::kCFBundleNameKey)
                          : std::nullopt;
    records.push_back(
        {{"pname", name.value_or(process.kp_proc.p_comm)},
         {"pid", std::to_string(process.kp_proc.p_pid)},
         {"uid", std::to_string(static_cast<std::int32_t>(process.kp_eproc.e_ucred.cr_uid))}});
  }
  return records;
}
