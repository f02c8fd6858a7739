#include "tests/integration/sample_helper_fixture.h"

#include <chrono>
#include <csignal>
#include <filesystem>

#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/platform/property_list.h"
#include "tests/support/peer_build.h"
#include "tests/support/test_sandbox.h"

using clientcomm::OptionalString;

namespace fs = std::filesystem;

namespace {

// On a loaded machine the loader alone takes seconds.
constexpr std::chrono::seconds kStartLimit{60};

}  // namespace

void SampleHelperFixture::SetUp() {
  auto info = support::defaultHostInfo();
  info["Helper Bundle indentifiter"] = identifier();
  support::writeHostInfo(info);
}

std::string SampleHelperFixture::identifier() {
  return "com.example.samplehelper." + fs::path(support::sandbox()).filename().string();
}

void SampleHelperFixture::rewriteInfo(const std::string& bundle, const char* key,
                                      const std::string& value) {
  const std::string path = bundle + "/Contents/Info.plist";
  auto info = clientcomm::dictionaryWithContentsOfFile(path);
  ASSERT_TRUE(info) << path;
  (*info)[key] = value;
  ASSERT_TRUE(clientcomm::writeDictionaryToFile(*info, path));
}

std::string SampleHelperFixture::prepareHelper() {
  const fs::path built = fs::path(support::inPeerBuild(SAMPLE_HELPER_BUNDLE)) / "Contents";
  const fs::path own = fs::path(support::sandbox()) / "SampleHelper.app/Contents";
  if (!fs::exists(own)) {
    fs::create_directories(own);
    for (const char* name : {"Info.plist", "Linux"}) {
      fs::copy(built / name, own / name, fs::copy_options::recursive);
    }
    for (const char* name : {"Frameworks", "Resources"}) {
      fs::create_directory_symlink(built / name, own / name);
    }
    rewriteInfo(own.parent_path(), "CFBundleIdentifier", identifier());
  }
  return own.parent_path();
}

void SampleHelperFixture::startHelper() {
  helper_ = std::make_unique<support::ChildProcess>(
      support::ChildProcess::spawn({prepareHelper() + "/Contents/Linux/SampleHelper"}));
  ASSERT_TRUE(support::waitUntil([] { return !state().is_null(); }, kStartLimit));
}

void SampleHelperFixture::killHelper() {
  helper_->signal(SIGKILL);
  helper_->wait();
}

int SampleHelperFixture::endHelper() {
  helper_->signal(SIGTERM);
  return helper_->wait();
}

int SampleHelperFixture::waitForHelper() { return helper_->wait(); }

OSErr SampleHelperFixture::call(const char* className, const char* selector,
                                const std::vector<std::string>& arguments) {
  return TQHPAppleEventSender::share().sendEvnet(identifier(), className, selector, arguments);
}

OptionalString SampleHelperFixture::ask(const char* className, const char* selector,
                                        const std::vector<std::string>& arguments) {
  OptionalString answer;
  TQHPAppleEventSender::share().sendEvnet(identifier(), className, selector, arguments, &answer);
  return answer;
}

SampleHelperFixture::Json SampleHelperFixture::state() {
  const auto text = ask("SampleHelperConsole", "dumpState", {});
  return text && !text->empty() ? Json::parse(*text) : Json();
}

bool SampleHelperFixture::waitForState(const std::function<bool(const Json&)>& condition) {
  return support::waitUntil([&] {
    const Json now = state();
    return !now.is_null() && condition(now);
  });
}

std::string SampleHelperFixture::dataFolder() {
  return support::sandbox() + "/data/" + identifier();
}

std::vector<SampleHelperFixture::Json> SampleHelperFixture::deliveries(const std::string& kind) {
  std::vector<Json> records;
  if (!fs::exists(outbox())) return records;
  for (const auto& entry : fs::directory_iterator(outbox())) {
    if (!entry.path().filename().string().starts_with(kind + "-")) continue;
    records.push_back(Json::parse(support::readFile(entry.path().string() + "/record.json")));
    records.back()["folder"] = entry.path().string();
  }
  return records;
}

std::vector<SampleHelperFixture::Json> SampleHelperFixture::usageFiles() {
  std::vector<Json> files;
  if (!fs::exists(outbox())) return files;
  for (const auto& entry : fs::directory_iterator(outbox())) {
    if (!entry.path().filename().string().starts_with("usage-")) continue;
    files.push_back(Json::parse(support::readFile(entry.path().string())));
  }
  return files;
}
