// The hosts of examples/event_loops, as real processes with a helper that keeps a journal.

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/platform/runtime.h"
#include "tests/support/child_process.h"
#include "tests/support/product_applications.h"
#include "tests/support/test_application.h"
#include "tests/support/test_helper.h"
#include "tests/support/test_sandbox.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using clientcomm::OptionalString;
using support::ChildProcess;
using support::countInJournal;
using support::helperPid;

constexpr char kHelperRole[] = "upgrading-helper";
constexpr char kProduct[] = "P100";

// --- A helper that asks its host whether it may upgrade the product. ---

class Upgrade : public TQHPAppEventBase {
 public:
  static const clientcomm::Class& staticClass() {
    using clientcomm::method;
    static const auto* const cls =
        new clientcomm::Class("TQHPUpgradeByHelper", clientcomm::makeShared<Upgrade>,
                              {method<&Upgrade::productUpgrade>("productUpgrade:versionID:"),
                               method<&Upgrade::ready>("productReadyToUpgrade:versionID:ready:")});
    return *cls;
  }
  const clientcomm::Class& isa() const override { return staticClass(); }

  void setBundleID(const OptionalString& bundleID) override { host_ = bundleID; }
  void productUpgrade(const OptionalString& /*product*/, const OptionalString& /*version*/) {
    const std::string question[] = {"", "", "0", ""};
    TQHPAppleEventSender::share().sendEvnet(host_, "TQHPUpgradeByHelper",
                                            "productUpgradeCallBack::::", question);
  }
  void ready(const OptionalString& /*product*/, const OptionalString& /*version*/,
             const OptionalString& isReady) {
    support::noteInJournal("ready " + isReady.value_or("nil"));
  }

 private:
  OptionalString host_;
};

const support::Role upgradingHelper(kHelperRole, [](const std::vector<std::string>&) {
  clientcomm::registerClass(Upgrade::staticClass());
  return support::runProductHelper();
});

// --- The hosts. ---

struct Host {
  const char* name;
  const char* bundle;
  const char* variable = "";  ///< Of the environment, set to 1.
};

void PrintTo(const Host& host, std::ostream* out) { *out << host.name; }

class EventLoops : public testing::TestWithParam<Host> {
 protected:
  /// A copy of the example with the test's own helper in it.
  static std::string copyOf(const fs::path& built) {
    const fs::path own = fs::path(support::sandbox()) / built.filename();
    fs::create_directories(own / "Contents");
    fs::copy(built / "Contents/Linux", own / "Contents/Linux", fs::copy_options::recursive);
    fs::create_directory_symlink(built / "Contents/Frameworks", own / "Contents/Frameworks");
    const std::string info = "/Contents/Info.plist";
    auto built_info = clientcomm::dictionaryWithContentsOfFile(built.string() + info).value();
    for (const auto& [key, value] : support::defaultHostInfo()) {
      if (!key.starts_with("CFBundle")) built_info.insert_or_assign(key, value);
    }
    EXPECT_TRUE(clientcomm::writeDictionaryToFile(built_info, own.string() + info));
    support::makeApplication(support::kHelperName, support::helperIdentifier(), kHelperRole,
                             {{support::kNotesAliveChecksKey, true}},
                             own.filename().string() + "/Contents/Resources");
    return own;
  }
};

TEST_P(EventLoops, TicksServesACallBackAndLaunchesAKilledHelperByTheNextTick) {
  setenv("QT_QPA_PLATFORM", "offscreen", 1);
  setenv("SDL_VIDEODRIVER", "dummy", 1);
  if (*GetParam().variable != '\0') setenv(GetParam().variable, "1", 1);
  const std::string start = std::string("start ") + kProduct;
  const auto begin = std::chrono::steady_clock::now();
  const ChildProcess host = support::runApplication(copyOf(GetParam().bundle));
  ASSERT_TRUE(support::waitUntil([&] { return countInJournal(start) == 1; }));
  ASSERT_TRUE(support::waitUntil([] { return countInJournal("ready 1") == 1; }))
      << "the helper's question reached the host, and the answer the helper";
  const pid_t killed = helperPid();
  support::sendSignal(killed, SIGKILL);
  ASSERT_TRUE(support::waitUntil([&] { return countInJournal(start) == 2; }));
  EXPECT_NE(helperPid(), killed);
  const std::size_t before = countInJournal("alive");
  EXPECT_TRUE(support::waitUntil([&] { return countInJournal("alive") >= before + 2; }, 60s));
  const auto seconds =
      std::chrono::ceil<std::chrono::seconds>(std::chrono::steady_clock::now() - begin);
  // Besides the ticks, the start-up, each launch and the request for the upgrade check.
  EXPECT_LE(countInJournal("alive"), static_cast<std::size_t>(seconds.count()) / 5 + 20);
}

std::vector<Host> hosts() {
  std::vector<Host> all{{"GLib", GLIB_HOST_BUNDLE}, {"Epoll", EPOLL_HOST_BUNDLE}};
#ifdef SDL_HOST_BUNDLE
  all.push_back({"SDL", SDL_HOST_BUNDLE});
#endif
#ifdef QT_HOST_BUNDLE
  all.push_back({"Qt", QT_HOST_BUNDLE});
  all.push_back({"QtWithoutGLib", QT_HOST_BUNDLE, "QT_NO_GLIB"});
  all.push_back({"QtOnGLib", QT_GLIB_HOST_BUNDLE});
#endif
  return all;
}

INSTANTIATE_TEST_SUITE_P(Hosts, EventLoops, testing::ValuesIn(hosts()),
                         [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
