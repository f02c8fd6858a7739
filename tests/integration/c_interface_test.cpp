// The hosts and helpers of examples/c and examples/python, each host with each helper, as real
// processes.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <sstream>
#include <string>
#include <system_error>
#include <tuple>
#include <vector>

#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/platform/property_list.h"
#include "tests/support/child_process.h"
#include "tests/support/test_application.h"
#include "tests/support/test_helper.h"
#include "tests/support/test_sandbox.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using clientcomm::OptionalString;
using support::ChildProcess;

/// A bundle of the examples, and what it calls itself.
struct Application {
  const char* name;
  const char* bundle;
  const char* word;  ///< In what it sends and answers.
};

void PrintTo(const Application& application, std::ostream* out) { *out << application.name; }

const Application kCHost{"C", C_HOST_BUNDLE, "c"};
const Application kCHelper{"C", C_HELPER_BUNDLE, "c"};
#ifdef PYTHON_HOST_BUNDLE
const Application kPythonHost{"Python", PYTHON_HOST_BUNDLE, "python"};
const Application kPythonHelper{"Python", PYTHON_HELPER_BUNDLE, "python"};
#endif

std::string nameOf(const Application& application) {
  return fs::path(application.bundle).stem().string();
}

/// An identifier that no other test has: an application runs once for a user.
std::string identifierOf(const Application& application) {
  return "com.example." + nameOf(application) + "." +
         fs::path(support::sandbox()).filename().string();
}

/// Copies the bundle, without a helper in it, into `folder`. @return its path.
std::string copyOf(const Application& application, const std::string& folder,
                   const clientcomm::PropertyListDictionary& changes) {
  const fs::path built = application.bundle;
  const fs::path own = fs::path(support::sandbox()) / folder / built.filename();
  fs::create_directories(own / "Contents/Resources");
  fs::copy(built / "Contents/Linux", own / "Contents/Linux", fs::copy_options::recursive);
  fs::create_directory_symlink(built / "Contents/Frameworks", own / "Contents/Frameworks");
  const std::string program = "Contents/Resources/python";
  if (fs::exists(built / program)) {
    fs::copy(built / program, own / program, fs::copy_options::recursive);
  }
  const std::string info = "/Contents/Info.plist";
  auto values = clientcomm::dictionaryWithContentsOfFile(built.string() + info).value();
  values.insert_or_assign("CFBundleIdentifier", identifierOf(application));
  for (const auto& [key, value] : changes) values.insert_or_assign(key, value);
  EXPECT_TRUE(clientcomm::writeDictionaryToFile(values, own.string() + info));
  return own;
}

/// Whether applications run behind another program, which makes them slow.
bool isWrapped() { return std::getenv("CLIENTCOMM_APPLICATION_WRAPPER") != nullptr; }

/// Starts an application that other processes need not identify; behind valgrind, for example,
/// where CLIENTCOMM_APPLICATION_WRAPPER says so.
ChildProcess spawn(const std::string& application) {
  std::vector<std::string> command;
  if (const char* const wrapper = std::getenv("CLIENTCOMM_APPLICATION_WRAPPER")) {
    std::istringstream words(wrapper);
    for (std::string word; words >> word;) command.push_back(word);
  }
  command.push_back(support::executableOf(application));
  return ChildProcess::spawn(command);
}

class CInterface : public testing::Test {
 protected:
  /// Makes a host with a helper in its bundle. @return its path.
  std::string makeHost(const Application& host, const Application& helper) {
    helper_ = helper;
    const std::string path = copyOf(host, "",
                                    {{"PID", "P100"},
                                     {"Helper Bundle indentifiter", identifierOf(helper)},
                                     {"Helepr App name", nameOf(helper)},
                                     {"Helper loaction path", install()}});
    copyOf(helper, nameOf(host) + ".app/Contents/Resources", {});
    return path;
  }

  static std::string install() { return support::sandbox() + "/install"; }

  std::vector<pid_t> helpers() const {
    return support::processesOf(install() + "/" + nameOf(helper_) + ".app");
  }

  /// The helper's answer to a call of the test itself.
  OptionalString ask(const char* selector) const {
    OptionalString answer;
    TQHPAppleEventSender::share().sendEvnet(identifierOf(helper_), "SampleJournal", selector, {},
                                            &answer);
    return answer;
  }

  bool isInJournal(const std::string& line) const {
    return ask("lines").value_or("").find(line + "\n") != std::string::npos;
  }

  /// Tells the helper to exit. @return whether it does.
  bool endHelper() const {
    const std::string identity[] = {"", ""};
    TQHPAppleEventSender::share().sendEvnet(identifierOf(helper_), "TQHPHelperControl",
                                            "exitHelper:productVersion:", identity);
    return support::waitUntil([this] { return helpers().empty(); });
  }

  Application helper_ = kCHelper;
};

class CInterfacePair : public CInterface,
                       public testing::WithParamInterface<std::tuple<Application, Application>> {};

bool contains(const std::string& text, const std::string& line) {
  return ("\n" + text).find("\n" + line + "\n") != std::string::npos;
}

TEST_P(CInterfacePair, TalkInBothDirectionsAndEndCleanly) {
  const auto& [host, helper] = GetParam();
  ChildProcess process = support::runApplication(makeHost(host, helper), {"--once"});
  const std::string output = process.readAll();
  EXPECT_EQ(process.wait(), 0) << output;
  for (const std::string& line :
       {"client ID: client-of-" + std::string(helper.word),
        std::string("suite page: https://example.com/suite"), std::string("its size: 640 by 480"),
        std::string("the helper is about to upgrade the product"), std::string("answer: Done."),
        std::string("the delegate is gone")}) {
    EXPECT_TRUE(contains(output, line)) << line << " is missing in:\n" << output;
  }
  const std::string caller = " " + identifierOf(host);
  for (const std::string& call :
       {std::string("start:prodeuctVersion: P100|1.0|"),
        "collectData:version:collectionType:target:keyID:value: P100|1.0|3|Launch|" +
            std::string(host.word) + "||",
        std::string("uploadLog:versionID:email:filePath:title:description: P100|1.0|"
                    "ann@example.com|/var/log/product.log|Slow start||"),
        std::string("productReadyToUpgrade:versionID:ready: P100|1.0|1|")}) {
    EXPECT_TRUE(isInJournal(call + caller)) << call << " is missing in:\n" << *ask("lines");
  }
  EXPECT_TRUE(endHelper());
}

TEST_P(CInterfacePair, LaunchAKilledHelperAgainByATick) {
  const auto& [host, helper] = GetParam();
  const std::string caller = " " + identifierOf(host);
  ChildProcess process = support::runApplication(makeHost(host, helper));
  // The last of what the host does by itself.
  const std::string answer = "productReadyToUpgrade:versionID:ready: P100|1.0|1|" + caller;
  ASSERT_TRUE(support::waitUntil([&] { return isInJournal(answer); }));
  support::sendSignal(helpers().at(0), SIGKILL);
  EXPECT_TRUE(support::waitUntil([&] {
    return !isInJournal(answer) && isInJournal("start:prodeuctVersion: P100|1.0|" + caller);
  }));
  process.signal(SIGTERM);
  EXPECT_EQ(process.wait(), 0);
}

std::vector<Application> hosts() {
  return {kCHost,
#ifdef PYTHON_HOST_BUNDLE
          kPythonHost
#endif
  };
}

std::vector<Application> helpers() {
  return {kCHelper,
#ifdef PYTHON_HOST_BUNDLE
          kPythonHelper
#endif
  };
}

INSTANTIATE_TEST_SUITE_P(Languages, CInterfacePair,
                         testing::Combine(testing::ValuesIn(hosts()), testing::ValuesIn(helpers())),
                         [](const auto& instance) {
                           return std::string(std::get<0>(instance.param).name) + "With" +
                                  std::get<1>(instance.param).name;
                         });

// --- One application alone. .ci/run also runs these behind valgrind, where an application cannot
// be identified and so is called by nothing. ---

class CInterfaceAlone : public CInterface {
 protected:
  /// Runs a helper until it is open to calls, and ends it by a signal.
  static void runHelper(const Application& helper) {
    ChildProcess process = spawn(copyOf(helper, "", {}));
    const fs::path folder = std::getenv("XDG_RUNTIME_DIR");
    EXPECT_TRUE(support::waitUntil(
        [&] {
          std::error_code error;
          const fs::directory_iterator files(folder / "ClientComm", error);
          return std::any_of(begin(files), end(files), [](const auto& file) {
            return file.path().filename().string().starts_with("endpoint.");
          });
        },
        isWrapped() ? 240s : 20s));
    process.signal(SIGTERM);
    EXPECT_EQ(process.wait(), 0);
  }
};

TEST_F(CInterfaceAlone, HelperInCEndsBySignal) { runHelper(kCHelper); }

TEST_F(CInterfaceAlone, HostInCWithoutItsHelperSaysWhatFailedAndEndsBySignal) {
  ChildProcess process = spawn(copyOf(kCHost, "", {{"Helper loaction path", install()}}));
  std::string output;
  while (const auto line = process.readLine()) {
    output += *line + "\n";
    if (line->starts_with("upgrade asked for")) break;
  }
  EXPECT_TRUE(contains(output, "client ID: There is no value.")) << output;
  EXPECT_TRUE(contains(output, "count: No running application has that identifier.")) << output;
  EXPECT_TRUE(
      contains(output, "upgrade asked for: The helper was not running and could not be launched."))
      << output;
  process.signal(SIGTERM);
  EXPECT_EQ(process.wait(), 0);
}

#ifdef PYTHON_HOST_BUNDLE

TEST_F(CInterfaceAlone, HelperInPythonEndsBySignal) { runHelper(kPythonHelper); }

TEST_F(CInterface, ExceptionInAMethodOfPythonIsNoAnswerAndTheHelperGoesOn) {
  helper_ = kPythonHelper;
  ChildProcess process =
      ChildProcess::spawn({support::executableOf(copyOf(kPythonHelper, "", {}))});
  ASSERT_TRUE(support::waitUntil([this] { return ask("lines").has_value(); }));
  EXPECT_EQ(ask("fail"), std::nullopt);
  EXPECT_EQ(ask("lines"), "");
  process.signal(SIGTERM);
  EXPECT_EQ(process.wait(), 0);
}

// Neither arguments nor the environment bring another program under the bundle's identity.
TEST_F(CInterface, LauncherRunsTheProgramOfItsBundleOnly) {
  helper_ = kPythonHelper;
  const std::string folder = support::sandbox() + "/other";
  const std::string trace = support::sandbox() + "/trace";
  support::writeFile(folder + "/clientcomm/__init__.py", "open('" + trace + "', 'w')\n");
  support::writeFile(folder + "/sitecustomize.py", "open('" + trace + "', 'w')\n");
  setenv("PYTHONPATH", folder.c_str(), 1);
  setenv("PYTHONHOME", folder.c_str(), 1);
  ChildProcess process = ChildProcess::spawn(
      {support::executableOf(copyOf(kPythonHelper, "", {})), "-c", "open('" + trace + "', 'w')"});
  ASSERT_TRUE(support::waitUntil([this] { return ask("lines").has_value(); }));
  EXPECT_FALSE(fs::exists(trace));
  process.signal(SIGTERM);
  EXPECT_EQ(process.wait(), 0);
}

TEST_F(CInterface, BindingOfPythonHasTheStatedOutcomes) {
  const Application checks{"Python", PYTHON_CHECKS_BUNDLE, ""};
  ChildProcess process = support::runApplication(copyOf(checks, "", {}), {identifierOf(checks)});
  const std::string output = process.readAll();
  EXPECT_EQ(process.wait(), 0) << output;
}

#endif

}  // namespace
