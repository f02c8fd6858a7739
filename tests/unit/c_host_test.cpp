// The services of the C interface: what travels, and what comes back.

#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/clientcomm.h"
#include "tests/support/helper_files.h"
#include "tests/support/recording_transport.h"
#include "tests/support/test_sandbox.h"

namespace {

using support::RecordingTransport;

using Strings = std::vector<std::string>;

constexpr clientcomm_text kA = CLIENTCOMM_TEXT("a");
constexpr clientcomm_text kB = CLIENTCOMM_TEXT("b");
constexpr clientcomm_text kC = CLIENTCOMM_TEXT("c");
constexpr clientcomm_text kD = CLIENTCOMM_TEXT("d");

/// The text of `string`, which it releases.
std::string take(clientcomm_string* string) {
  const clientcomm_text text = clientcomm_string_text(string);
  std::string copy = text.bytes == nullptr ? "(nil)" : std::string(text.bytes, text.length);
  EXPECT_EQ(clientcomm_string_release(string), CLIENTCOMM_OK);
  return copy;
}

class CHost : public testing::Test {
 protected:
  CHost() {
    EXPECT_EQ(clientcomm_start(), CLIENTCOMM_OK);
    recorder_.forget();
  }

  RecordingTransport& recorder_ = RecordingTransport::install();
};

struct Command {
  const char* name;
  std::function<clientcomm_status()> call;
  const char* className;
  const char* selector;
  Strings arguments;
};

void PrintTo(const Command& command, std::ostream* out) { *out << command.name; }

class CCommand : public CHost, public testing::WithParamInterface<Command> {};

TEST_P(CCommand, TravelsAndReturnsItsStatus) {
  const Command& command = GetParam();
  EXPECT_EQ(command.call(), CLIENTCOMM_OK);
  EXPECT_EQ(recorder_.countOf(command.selector), 1);
  recorder_.setStatus(command.selector, -1712);
  recorder_.forget();
  EXPECT_EQ(command.call(), CLIENTCOMM_TIMED_OUT);
  for (const support::RecordedCall& call : recorder_.calls()) {
    if (call.selector != command.selector) continue;
    EXPECT_EQ(call.className, command.className);
    EXPECT_EQ(call.arguments, command.arguments);
  }
}

constexpr char kControl[] = "TQHPHelperControl";
constexpr char kUpload[] = "TQHPUploadByHelper";
constexpr char kService[] = "TQHPCustomerServiceByHelepr";
constexpr char kUpgrade[] = "TQHPUpgradeByHelper";
constexpr char kCollect[] = "collectData:version:collectionType:target:keyID:value:";

const Strings kIdentity{"P100", "1.2.3"};
const Strings kFile{"P100", "1.2.3", "a", "b", "c", "d"};

const Command kCommands[] = {
    {"start", clientcomm_start_helper, kControl, "start:prodeuctVersion:", kIdentity},
    {"stop", clientcomm_stop_helper, kControl, "stop:prodeuctVersion:", kIdentity},
    {"alive", clientcomm_is_helper_alive, kControl, "isAlive:prodeuctVersion:", kIdentity},
    {"show", clientcomm_show_helper, kControl, "show:prodeuctVersion:", kIdentity},
    {"hide", clientcomm_hide_helper, kControl, "hide:prodeuctVersion:", kIdentity},
    {"log", [] { return clientcomm_upload_log(kA, kB, kC, kD); }, kUpload,
     "uploadLog:versionID:email:filePath:title:description:", kFile},
    {"userFile", [] { return clientcomm_upload_user_file(kA, kB, kC, kD); }, kUpload,
     "uploadUserFile:versionID:email:filePath:title:description:", kFile},
    {"productFile", [] { return clientcomm_upload_product_file(kA, kB, kC, kD); }, kUpload,
     "uploadProductFile:versionID:email:filePath:title:description:", kFile},
    {"messages", clientcomm_check_for_messages, kService,
     "checkForHeleprMessage:versionID:", kIdentity},
    {"customerService",
     [] { return clientcomm_customer_service(kA, kB); },
     kService,
     "customerService:versionID:email:attachment:",
     {"P100", "1.2.3", "a", "b"}},
    {"count",
     [] { return clientcomm_count_use(kA, kB); },
     kUpload,
     kCollect,
     {"P100", "1.2.3", "3", "a", "b", ""}},
    {"countOfNew",
     [] { return clientcomm_count_use_of_new(kA, kB); },
     kUpload,
     kCollect,
     {"P100", "1.2.3", "4", "a", "b", ""}},
    {"string",
     [] { return clientcomm_collect_string(kA, kB); },
     kUpload,
     kCollect,
     {"P100", "1.2.3", "5", "a", "", "b"}},
    {"uploadUsage", clientcomm_upload_usage, kUpload, "directUploadData:version:", kIdentity},
    {"setCollectStatus",
     [] { return clientcomm_set_collect_status(true); },
     kUpload,
     "setProductCollectStatus:version:status:",
     {"P100", "1.2.3", "1"}},
    {"upgrade", clientcomm_upgrade_product, kUpgrade, "productUpgrade:versionID:", kIdentity},
    {"ready",
     [] { return clientcomm_ready_to_upgrade(false); },
     kUpgrade,
     "productReadyToUpgrade:versionID:ready:",
     {"P100", "1.2.3", "0"}},
    {"any", [] { return clientcomm_send(kD, kA, kB, &kC, 1); }, "a", "b", {"c"}},
};

INSTANTIATE_TEST_SUITE_P(All, CCommand, testing::ValuesIn(kCommands),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(CHost, RestartsAndSaysWhyItCannot) {
  EXPECT_EQ(clientcomm_restart_helper(), CLIENTCOMM_OK);
  recorder_.setStatus(-600);
  EXPECT_EQ(clientcomm_restart_helper(), CLIENTCOMM_HELPER_NOT_LAUNCHED);
  EXPECT_EQ(clientcomm_launch_helper(), CLIENTCOMM_HELPER_NOT_LAUNCHED);
  support::writeHelperPreferences({{"TQHPServerClosed", true}});
  EXPECT_EQ(clientcomm_show_helper(), CLIENTCOMM_HELPER_SERVER_CLOSED);
  bool isOpen = true;
  EXPECT_EQ(clientcomm_is_helper_server_open(&isOpen), CLIENTCOMM_OK);
  EXPECT_FALSE(isOpen);
}

TEST_F(CHost, GivesTheClientIDAndRemembersIt) {
  recorder_.setReply("clientIDFormHelper", "C-1");
  clientcomm_string* id = nullptr;
  EXPECT_EQ(clientcomm_ask_client_id(&id), CLIENTCOMM_OK);
  EXPECT_EQ(take(id), "C-1");
  recorder_.forget();
  EXPECT_EQ(clientcomm_client_id(&id), CLIENTCOMM_OK);
  EXPECT_EQ(take(id), "C-1");
  EXPECT_TRUE(recorder_.calls().empty());
}

TEST_F(CHost, SaysThatAQueryHasNoAnswer) {
  recorder_.setStatus(-609);
  int any = 0;
  auto* string = reinterpret_cast<clientcomm_string*>(&any);
  EXPECT_EQ(clientcomm_ask_client_id(&string), CLIENTCOMM_NO_VALUE);
  EXPECT_EQ(string, nullptr);
  clientcomm_suite_info info = {reinterpret_cast<clientcomm_string*>(&any), 1, 2};
  EXPECT_EQ(clientcomm_register_suite(&info), CLIENTCOMM_NO_VALUE);
  EXPECT_EQ(info.url, nullptr);
  EXPECT_EQ(info.width, 0);
  EXPECT_EQ(clientcomm_ask(kD, kA, kB, nullptr, 0, &string), CLIENTCOMM_CONNECTION_LOST);
  EXPECT_EQ(string, nullptr);
}

TEST_F(CHost, GivesWhatQueriesAnswer) {
  recorder_.setReply("regSuiteInfo:version:", "page.html###640###480");
  recorder_.setReply("unRegSuiteInfo:version:", "other.html###1###2");
  recorder_.setReply("netErrorPagePath:version:", "/page");
  recorder_.setReply("productCollectStatus:version:", "1");
  recorder_.setReply("b", std::string("x\0y", 3));
  clientcomm_suite_info info{};
  EXPECT_EQ(clientcomm_register_suite(&info), CLIENTCOMM_OK);
  EXPECT_EQ(take(info.url), "page.html");
  EXPECT_EQ(info.width, 640);
  EXPECT_EQ(info.height, 480);
  EXPECT_EQ(clientcomm_unregister_suite(&info), CLIENTCOMM_OK);
  EXPECT_EQ(take(info.url), "other.html");
  clientcomm_string* string = nullptr;
  EXPECT_EQ(clientcomm_network_error_page(&string), CLIENTCOMM_OK);
  EXPECT_EQ(take(string), "/page");
  bool isCollected = false;
  EXPECT_EQ(clientcomm_collect_status(&isCollected), CLIENTCOMM_OK);
  EXPECT_TRUE(isCollected);
  EXPECT_EQ(clientcomm_ask(kA, kA, kB, &kC, 1, &string), CLIENTCOMM_OK);
  EXPECT_EQ(take(string), std::string("x\0y", 3));
  EXPECT_EQ(recorder_.last().target, "a");
}

TEST_F(CHost, KeepsTheProductIDOfUsageData) {
  clientcomm_string* string = nullptr;
  EXPECT_EQ(clientcomm_first_start_pid(&string), CLIENTCOMM_OK);
  EXPECT_EQ(take(string), "P100");
  EXPECT_EQ(clientcomm_set_collect_pid(kD), CLIENTCOMM_OK);
  EXPECT_EQ(clientcomm_collect_pid(&string), CLIENTCOMM_OK);
  EXPECT_EQ(take(string), "d");
}

TEST_F(CHost, MakesTheFolderOfUsageData) {
  const std::string base = support::sandbox() + "/usage";
  EXPECT_EQ(clientcomm_set_collect_folder({base.data(), base.size()}), CLIENTCOMM_OK);
  EXPECT_TRUE(support::isFolder(base + "/Log/Data"));
}

TEST_F(CHost, WritesTheSwitches) {
  const std::string info = support::hostBundlePath() + "/Contents/Info.plist";
  EXPECT_EQ(clientcomm_set_tips_enabled(false), CLIENTCOMM_OK);
  EXPECT_EQ(clientcomm_set_ad_enabled(true), CLIENTCOMM_OK);
  auto switches = clientcomm::dictionaryWithContentsOfFile(info).value();
  EXPECT_FALSE(switches.at("TipsEnable").boolValue());
  EXPECT_TRUE(switches.at("EnableAD").boolValue());
}

TEST_F(CHost, TellsOfEachProcess) {
  Strings names;
  EXPECT_EQ(clientcomm_each_process(
                [](void* context, const clientcomm_process* process) {
                  if (process->pid != getpid()) return;
                  static_cast<Strings*>(context)->emplace_back(process->name.bytes,
                                                               process->name.length);
                },
                &names),
            CLIENTCOMM_OK);
  EXPECT_EQ(names, Strings{"Test Host"});
}

TEST_F(CHost, FindsARunningApplication) {
  const std::string path = support::hostBundlePath();
  const clientcomm_text bundle = {path.data(), path.size()};
  bool isRunning = false;
  EXPECT_EQ(clientcomm_application_is_running(clientcomm_text_of("com.example.testhost"), bundle,
                                              &isRunning),
            CLIENTCOMM_OK);
  EXPECT_TRUE(isRunning);
  EXPECT_EQ(clientcomm_application_is_running(kA, bundle, &isRunning), CLIENTCOMM_OK);
  EXPECT_FALSE(isRunning);
  clientcomm_string* value = nullptr;
  EXPECT_EQ(clientcomm_process_info(getpid(), clientcomm_text_of("CFBundleIdentifier"), &value),
            CLIENTCOMM_OK);
  EXPECT_EQ(take(value), "com.example.testhost");
  EXPECT_EQ(clientcomm_process_info(-1, kA, &value), CLIENTCOMM_NO_VALUE);
  EXPECT_EQ(value, nullptr);
}

}  // namespace
