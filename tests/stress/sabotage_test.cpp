#include <glib.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iterator>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ClientComm/TQHPHelper.h"
#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/platform/file_lock.h"
#include "ClientComm/platform/linux/process_record.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/posix/user_folders.h"
#include "ClientComm/platform/property_list.h"
#include "ClientComm/platform/text.h"
#include "ClientComm/platform/user_defaults.h"
#include "ClientComm/platform/workspace.h"
#include "tests/stress/sabotage_calls.h"
#include "tests/stress/stress.h"
#include "tests/support/child_process.h"
#include "tests/support/product_applications.h"
#include "tests/support/test_application.h"
#include "tests/support/test_helper.h"
#include "tests/support/test_sandbox.h"

// Each system call of a host, and of a helper, fails once, in each way that it can fail, or is
// where the process is killed. After that a host without faults ends with one running helper, with
// all settings, and without leftovers.

namespace {

using sabotage::Fault;
using support::ChildProcess;
namespace fs = std::filesystem;

constexpr char kVictim[] = "victim";
constexpr char kVictimIdentifier[] = "com.example.victim";
constexpr char kVictimRole[] = "victim-host";
constexpr char kVictimHelperRole[] = "victim-helper";
constexpr char kStay[] = "stay";
constexpr char kLeave[] = "leave";
constexpr guint kTickInMilliseconds = 20;

// --- The host whose calls fail. ---

/// Waits until `condition` holds, however loaded the machine is. Looks rarely: with every call in
/// turn to fail, the looks are what costs most.
bool isSoon(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(90);
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

void setEverything() {
  auto& controller = TQHPHelperCommunicate::share();
  controller.setTipsEnable(false);
  controller.setEnableAD(true);
  controller.setCollectDataPID("P200");
  controller.initDataCollectionPath(support::sandbox() + "/collected");
}

const support::Role victimRole(kVictimRole, [](const std::vector<std::string>& arguments) {
  // GLib itself ends a process that cannot make its main context.
  GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
  sabotage::begin();
  TQHPHelper::share();
  setEverything();
  for (int step = 0; step < 2; ++step) {
    TQHPHelperCommunicate::share().autoRestartHelper();
    while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
    }
  }
  if (arguments.at(0) == kStay) {
    // The write of the user defaults would follow half a second later by itself.
    const auto tick = [](gpointer) -> gboolean {
      TQHPHelperCommunicate::share().autoRestartHelper();
      setEverything();
      clientcomm::UserDefaults::standardUserDefaults().synchronize();
      return G_SOURCE_CONTINUE;
    };
    g_timeout_add(kTickInMilliseconds, tick, nullptr);
    g_main_loop_run(loop);
  }
  g_main_loop_unref(loop);
  return 0;
});

const support::Role victimHelperRole(kVictimHelperRole, [](const std::vector<std::string>&) {
  sabotage::begin();
  return support::runProductHelper();
});

// --- What is sabotaged. ---

enum class Scenario : int {
  kFreshInstallation,
  kReplacementOfARunningHelper,
  kReplacementOfAnEndedHelper,
  kLetteredReplacementOfARunningHelper,
  kLetteredReplacementOfAnEndedHelper,
  kSettings,
  kStartOfTheHelper,
};

struct Setting {
  std::string oldVersion;  ///< Of the helper that is installed; empty for none.
  std::string newVersion;
  bool isOldRunning;
};

Setting settingOf(Scenario scenario) {
  switch (scenario) {
    case Scenario::kReplacementOfARunningHelper:
      return {"1.0", "1.0.1", true};
    case Scenario::kReplacementOfAnEndedHelper:
      return {"1.0", "1.0.1", false};
    case Scenario::kLetteredReplacementOfARunningHelper:
      return {"v1", "v2", true};
    case Scenario::kLetteredReplacementOfAnEndedHelper:
      return {"v1", "v2", false};
    case Scenario::kSettings:
      return {"1.0", "1.0", true};
    case Scenario::kFreshInstallation:
    case Scenario::kStartOfTheHelper:
      break;
  }
  return {"", "1.0", false};
}

std::string counterPath() { return support::sandbox() + "/calls"; }

std::string victimPath() { return support::sandbox() + "/hosts/" + kVictim + ".app"; }

std::string infoPath() { return victimPath() + "/Contents/Info.plist"; }

std::string stringsPath() {
  return victimPath() + "/Contents/Resources/en.lproj/InfoPlist.strings";
}

std::string installFolder() { return support::sandbox() + "/" + support::kInstallFolder; }

/// Lays the host out, with its switches the other way round and a helper of `version`.
void makeVictim(const std::string& version) {
  clientcomm::PropertyListDictionary info = support::defaultHostInfo();
  for (const char* key : {"CFBundleName", "CFBundleExecutable", "CFBundleIdentifier"}) {
    info.erase(key);
  }
  info.insert_or_assign("PID", kVictim);
  info.insert_or_assign("TipsEnable", true);
  info.insert_or_assign("EnableAD", false);
  support::makeApplication(kVictim, kVictimIdentifier, kVictimRole, info, "hosts");
  support::writeFile(stringsPath(),
                     "\"TipsEnable\" = \"1\";\n\"EnableAD\" = \"0\";\n\"Other\" = \"x\";\n");
  support::embedHelper(version, std::string("hosts/") + kVictim + ".app",
                       {{"TestRole", kVictimHelperRole}});
}

void endHelpers() {
  const auto helpers = support::processesOf(support::installedHelperPath());
  for (const pid_t pid : helpers) support::sendSignal(pid, SIGKILL);
  // Until its parent knows of its end, the record of a process is not cleared.
  const auto isGone = [](pid_t pid) { return kill(pid, 0) != 0; };
  ASSERT_TRUE(isSoon([&] { return std::all_of(helpers.begin(), helpers.end(), isGone); }));
  ASSERT_TRUE(isSoon([] { return support::processesOf(support::installedHelperPath()).empty(); }));
}

bool hasEnded(const ChildProcess& child) {
  siginfo_t information{};
  return waitid(P_PID, static_cast<id_t>(child.pid()), &information, WEXITED | WNOHANG | WNOWAIT) ==
             0 &&
         information.si_pid != 0;
}

/// Waits for the end of a host.
/// @return its exit status; nothing when it hangs.
std::optional<int> endOf(ChildProcess& child) {
  if (!isSoon([&] { return hasEnded(child); })) return std::nullopt;
  return child.wait();
}

/// Whether the one process of the helper is of this version and has been started for the host.
bool isHelperStarted(const std::string& version) {
  const auto lines = support::journal();
  const auto has = [&](const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
  };
  // To look for the process costs more than all the rest, so it comes last.
  const std::string up = " up " + version;
  const auto hasEnd = [&](const std::string& line) { return line.ends_with(up); };
  if (std::none_of(lines.begin(), lines.end(), hasEnd)) return false;
  const std::string pid = std::to_string(support::helperPid());
  return has(pid + up) && has(pid + " start " + kVictim + " 1.2.3");
}

/// What is sabotaged, and how; prints as "FreshInstallation_EIO".
struct Sabotaged {
  Scenario scenario;
  Fault fault;
};

const char* nameOf(Scenario scenario) {
  switch (scenario) {
    case Scenario::kFreshInstallation:
      return "FreshInstallation";
    case Scenario::kReplacementOfARunningHelper:
      return "ReplacementOfARunningHelper";
    case Scenario::kReplacementOfAnEndedHelper:
      return "ReplacementOfAnEndedHelper";
    case Scenario::kLetteredReplacementOfARunningHelper:
      return "LetteredReplacementOfARunningHelper";
    case Scenario::kLetteredReplacementOfAnEndedHelper:
      return "LetteredReplacementOfAnEndedHelper";
    case Scenario::kSettings:
      return "Settings";
    case Scenario::kStartOfTheHelper:
      return "StartOfTheHelper";
  }
  return "";
}

const char* nameOf(Fault fault) {
  switch (fault) {
    case Fault::kEIO:
      return "EIO";
    case Fault::kENOSPC:
      return "ENOSPC";
    case Fault::kEMFILE:
      return "EMFILE";
    case Fault::kEINTR:
      return "EINTR";
    case Fault::kENOMEM:
      return "ENOMEM";
    case Fault::kKill:
      return "Kill";
  }
  return "";
}

std::ostream& operator<<(std::ostream& out, const Sabotaged& what) {
  return out << nameOf(what.scenario) << "_" << nameOf(what.fault);
}

std::vector<Sabotaged> everyCombination() {
  std::vector<Sabotaged> all;
  for (const Scenario scenario :
       {Scenario::kFreshInstallation, Scenario::kReplacementOfARunningHelper,
        Scenario::kReplacementOfAnEndedHelper, Scenario::kLetteredReplacementOfARunningHelper,
        Scenario::kLetteredReplacementOfAnEndedHelper, Scenario::kSettings,
        Scenario::kStartOfTheHelper}) {
    for (const Fault fault : {Fault::kEIO, Fault::kENOSPC, Fault::kEMFILE, Fault::kEINTR,
                              Fault::kENOMEM, Fault::kKill}) {
      all.push_back({scenario, fault});
    }
  }
  return all;
}

class Sabotage : public testing::TestWithParam<Sabotaged> {
 protected:
  static Scenario scenario() { return GetParam().scenario; }
  static Fault fault() { return GetParam().fault; }
  static Setting setting() { return settingOf(scenario()); }

  /// The state in which the sabotaged host, or helper, finds everything.
  static void prepare() {
    endHelpers();
    fs::remove_all(installFolder());
    fs::remove_all(support::sandbox() + "/config/Preferences");
    fs::remove_all(support::sandbox() + "/collected");
    fs::remove(support::sandbox() + "/helper-journal");
    if (!setting().oldVersion.empty()) {
      makeVictim(setting().oldVersion);
      runHealthyHost(setting().oldVersion);
      if (!setting().isOldRunning) endHelpers();
    }
    makeVictim(setting().newVersion);
  }

  /// Runs the host with call `call` failing. @return how many calls there were.
  static std::uint64_t runSabotaged(std::uint64_t call) {
    support::writeFile(counterPath(), std::string(sabotage::kCounterSize, '\0'));
    const bool isHelper = scenario() == Scenario::kStartOfTheHelper;
    sabotage::announce({isHelper ? support::kHelperName : kVictim, fault(), call, counterPath()});
    ChildProcess host = support::runApplication(victimPath(), {kLeave});
    sabotage::withdraw();
    const auto status = endOf(host);
    const bool mayBeKilled = fault() == Fault::kKill && !isHelper;
    EXPECT_TRUE(status == 0 || (mayBeKilled && status == 128 + SIGKILL))
        << "the host " << (status ? "ended with " + std::to_string(*status) : "hangs")
        << " when call " << call << " fails";
    return sabotage::countIn(counterPath());
  }

  /// Runs a host without faults until the helper is there, and checks what it leaves.
  static void runHealthyHost(const std::string& version) {
    ChildProcess host = support::runApplication(victimPath(), {kStay});
    EXPECT_TRUE(isSoon([&] { return isHelperStarted(version); }));
    EXPECT_TRUE(isSoon([] { return leftovers().empty() && areSettingsWritten(); })) << leftovers();
    EXPECT_EQ(support::processesOf(support::installedHelperPath()).size(), 1U);
    EXPECT_TRUE(
        support::haveSameContents(support::helperIn(victimPath()), support::installedHelperPath()));
    host.signal(SIGKILL);
    host.wait();
  }

 private:
  // The folder of usage data is not among them: a host that is killed between making it and the
  // write of the user defaults, half a second later, leaves it without a record.
  static bool areSettingsWritten() {
    const auto defaults =
        clientcomm::dictionaryWithContentsOfFile(support::preferencesPath(kVictimIdentifier));
    const auto info = clientcomm::dictionaryWithContentsOfFile(infoPath());
    const auto strings = clientcomm::dictionaryWithContentsOfFile(stringsPath());
    if (!defaults || !info || !strings) return false;
    return holds(*defaults, {{"PID", kVictim},
                             {"Version", "1.2.3"},
                             {"ExecutableFile", victimPath()},
                             {"IsFirstStart", false},
                             {"FirstStartPID", kVictim},
                             {"DataCollectPID", "P200"}}) &&
           holds(*info, {{"TipsEnable", false}, {"EnableAD", true}, {"PID", kVictim}}) &&
           holds(*strings, {{"TipsEnable", "0"}, {"EnableAD", "1"}, {"Other", "x"}});
  }

  static bool holds(const clientcomm::PropertyListDictionary& dictionary,
                    const clientcomm::PropertyListDictionary& expected) {
    return std::includes(dictionary.begin(), dictionary.end(), expected.begin(), expected.end(),
                         [](const auto& a, const auto& b) {
                           return a.first != b.first ? a.first < b.first : false;
                         }) &&
           std::all_of(expected.begin(), expected.end(), [&](const auto& entry) {
             return dictionary.find(entry.first)->second == entry.second;
           });
  }

  /// Names of what no process needs any more.
  static std::string leftovers() {
    std::string names;
    const auto expectOnly = [&](const std::string& folder, const std::vector<std::string>& known) {
      std::error_code error;
      for (const auto& entry : fs::directory_iterator(folder, error)) {
        const std::string name = entry.path().filename();
        if (std::find(known.begin(), known.end(), name) == known.end()) names += name + " ";
      }
    };
    expectOnly(installFolder(), {std::string(support::kHelperName) + ".app"});
    expectOnly(victimPath() + "/Contents", {"Info.plist", "Linux", "Resources"});
    expectOnly(victimPath() + "/Contents/Resources/en.lproj", {"InfoPlist.strings"});
    expectOnly(support::sandbox() + "/config/Preferences",
               {std::string(kVictimIdentifier) + ".plist"});
    std::error_code error;
    for (const auto& entry :
         fs::directory_iterator(support::sandbox() + "/runtime/ClientComm", error)) {
      if (isStale(entry.path().filename())) names += entry.path().filename().string() + " ";
    }
    return names;
  }

  /// Whether a file of the runtime folder, "process.<pid>" or "<digest>.<pid>", is of a process
  /// that is gone.
  static bool isStale(const std::string& name) {
    const std::string number = name.substr(name.find('.') + 1);
    const bool isNumber =
        !number.empty() && number.find_first_not_of("0123456789") == std::string::npos;
    return isNumber && number.size() < name.size() && kill(std::stoi(number), 0) != 0;
  }
};

/// Which call fails first: a random one of the first `step`, unless the environment chooses.
std::uint64_t firstCall(std::uint64_t step) {
  if (const char* const chosen = std::getenv("CLIENTCOMM_SABOTAGE_CALL")) {
    return std::max<std::uint64_t>(1, std::strtoull(chosen, nullptr, 10));
  }
  return std::uniform_int_distribution<std::uint64_t>(1, step)(stress::randomness());
}

TEST_P(Sabotage, HostWithoutFaultsEndsWithOneHelperAndAllSettings) {
  ASSERT_NO_FATAL_FAILURE(prepare());
  const std::uint64_t calls = runSabotaged(0);
  ASSERT_GT(calls, 0U);
  // Full size: each call in turn. Shortened: a few, at random distances.
  const auto wanted = static_cast<std::uint64_t>(stress::sizeFor(4, 1'000'000));
  const std::uint64_t step = std::max<std::uint64_t>(1, calls / wanted);
  int rounds = 0;
  for (std::uint64_t call = firstCall(step); call <= calls; call += step, ++rounds) {
    SCOPED_TRACE("call " + std::to_string(call));
    ASSERT_NO_FATAL_FAILURE(prepare());
    runSabotaged(call);
    SCOPED_TRACE("which is of " + sabotage::failedIn(counterPath()));
    runHealthyHost(setting().newVersion);
    if (HasFailure()) break;
  }
  stress::report(std::to_string(rounds) + " of " + std::to_string(calls) + " calls failed");
}

std::string nameOfParameters(const testing::TestParamInfo<Sabotaged>& parameters) {
  std::ostringstream name;
  name << parameters.param;
  return name.str();
}

/// What `directory` says in a process whose first look at the system fails.
std::string directoryAfterAFailure(std::string (*directory)()) {
  support::writeFile(counterPath(), std::string(sabotage::kCounterSize, '\0'));
  const std::string result = support::sandbox() + "/result";
  ChildProcess child = ChildProcess::fork([&] {
    sabotage::announce({program_invocation_short_name, Fault::kEIO, 1, counterPath()});
    sabotage::begin();
    support::writeFile(result, directory());
    return 0;
  });
  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(sabotage::failedIn(counterPath()), "stat");
  return support::readFile(result);
}

TEST(SabotagedLook, TurnsNoProcessAwayFromTheDirectoriesOfAllOthers) {
  EXPECT_EQ(directoryAfterAFailure(clientcomm::runtimeDirectory), support::sandbox() + "/runtime");
  EXPECT_EQ(directoryAfterAFailure(clientcomm::configDirectory), support::sandbox() + "/config");
}

// How the look for the record of another process ends when its call `call` fails.
bool findsNoRecord(std::uint64_t call) {
  support::writeFile(counterPath(), std::string(sabotage::kCounterSize, '\0'));
  ChildProcess child = ChildProcess::fork([&] {
    sabotage::announce({program_invocation_short_name, Fault::kEIO, call, counterPath()});
    sabotage::begin();
    return clientcomm::hasNoProcessRecord(getppid()) ? 0 : 1;
  });
  return child.wait() == 0;
}

TEST(SabotagedLook, TakesNoRecordForMissingThatCouldNotBeLookedFor) {
  ASSERT_TRUE(clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate).isValid());
  EXPECT_TRUE(findsNoRecord(0)) << "where nothing fails";
  const std::uint64_t calls = sabotage::countIn(counterPath());
  ASSERT_GT(calls, 3U);
  for (std::uint64_t call = 1; call <= calls; ++call) {
    const bool findsNone = findsNoRecord(call);
    const std::string failed = sabotage::failedIn(counterPath());
    EXPECT_EQ(findsNone, failed == "close") << "call " << call << ", " << failed;
  }
}

/// Opens the installed helper, `times` times in a row, in a process of its own, whose call `call`
/// fails. @return how many calls there were.
std::uint64_t openHelperWithFailure(Fault fault, std::uint64_t call, int times = 1) {
  support::writeFile(counterPath(), std::string(sabotage::kCounterSize, '\0'));
  ChildProcess child = ChildProcess::fork([&] {
    sabotage::announce({program_invocation_short_name, fault, call, counterPath()});
    sabotage::begin();
    for (int i = 0; i < times; ++i) {
      // Whether it succeeds is not what the test is about.
      clientcomm::Workspace::sharedWorkspace().openFile(support::installedHelperPath()).ignore();
    }
    return 0;
  });
  EXPECT_EQ(child.wait(), 0);
  return sabotage::countIn(counterPath());
}

TEST(SabotagedLook, LaunchesNoSecondHelperBesideARunningOne) {
  makeVictim("1.0");
  ChildProcess host = support::runApplication(victimPath(), {kStay});
  ASSERT_TRUE(isSoon([] { return isHelperStarted("1.0"); }));
  host.signal(SIGKILL);
  host.wait();
  for (const Fault fault : {Fault::kEIO, Fault::kEMFILE, Fault::kENOMEM}) {
    const std::uint64_t calls = openHelperWithFailure(fault, 0);
    ASSERT_GT(calls, 0U);
    for (std::uint64_t call = 1; call <= calls; ++call) {
      openHelperWithFailure(fault, call);
      ASSERT_EQ(support::processesOf(support::installedHelperPath()).size(), 1U)
          << "when " << nameOf(fault) << " is the outcome of call " << call << ", "
          << sabotage::failedIn(counterPath());
    }
  }
  endHelpers();
}

TEST(SabotagedLaunch, IsNotJoinedByASecondThoughItsOutcomeIsUnknown) {
  makeVictim("1.0");
  ChildProcess host = support::runApplication(victimPath(), {kStay});
  ASSERT_TRUE(isSoon([] { return isHelperStarted("1.0"); }));
  host.signal(SIGKILL);
  host.wait();
  const std::uint64_t calls = openHelperWithFailure(Fault::kEIO, 0, 2);
  ASSERT_GT(calls, 0U);
  for (std::uint64_t call = 1; call <= calls; ++call) {
    ASSERT_NO_FATAL_FAILURE(endHelpers());
    openHelperWithFailure(Fault::kEIO, call, 2);
    // Whatever was launched has its executable by the time that the lock is free.
    const clientcomm::DirectoryLock launched(support::sandbox() + "/runtime/ClientComm",
                                             std::chrono::seconds(90));
    ASSERT_TRUE(launched.isHeld());
    ASSERT_LE(support::processesOf(support::installedHelperPath()).size(), 1U)
        << "when call " << call << " fails, " << sabotage::failedIn(counterPath());
  }
  endHelpers();
}

INSTANTIATE_TEST_SUITE_P(All, Sabotage, testing::ValuesIn(everyCombination()), nameOfParameters);

}  // namespace
