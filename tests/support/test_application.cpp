#include "tests/support/test_application.h"

#include <glib.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <thread>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/bundle_layout.h"
#include "ClientComm/platform/own_process.h"
#include "ClientComm/platform/text.h"
#include "tests/support/peer_build.h"
#include "tests/support/test_sandbox.h"

using clientcomm::OptionalString;

namespace support {
namespace {

std::map<std::string, Role::Body>& roles() {
  static auto* const all = new std::map<std::string, Role::Body>;
  return *all;
}

GMainLoop* echoLoop = nullptr;

class Echo : public TQHPAppEventBase {
 public:
  static const clientcomm::Class& staticClass() {
    using clientcomm::method;
    static const auto* const cls = new clientcomm::Class(
        "Echo", clientcomm::makeShared<Echo>,
        {method<&Echo::say>("say:"), method<&Echo::note>("note:"), method<&Echo::notes>("notes"),
         method<&Echo::caller>("caller"), method<&Echo::wordSize>("wordSize"),
         method<&Echo::sleep>("sleep:"), method<&Echo::fork>("fork"), method<&Echo::quit>("quit")});
    return *cls;
  }
  const clientcomm::Class& isa() const override { return staticClass(); }

  void setBundleID(const OptionalString& bundleID) override {
    TQHPAppEventBase::setBundleID(bundleID);
    previousCaller_ = caller_;
    caller_ = bundleID;
  }

  OptionalString say(const OptionalString& text) { return text; }
  void note(const OptionalString& text) { notes_ += text.value_or("(nil)") + "\n"; }
  OptionalString notes() { return notes_; }
  OptionalString caller() { return previousCaller_; }
  OptionalString wordSize() { return std::to_string(8 * sizeof(void*)); }
  void sleep(const OptionalString& milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(clientcomm::intValue(*milliseconds)));
  }
  OptionalString fork() {
    const pid_t child = ::fork();
    if (child == 0) {
      ::sleep(60);
      _exit(0);
    }
    return std::to_string(child);
  }
  void quit() { g_main_loop_quit(echoLoop); }

 private:
  std::string notes_;
  OptionalString caller_;
  OptionalString previousCaller_;
};

gboolean tick(gpointer /*data*/) {
  TQHPAppleEventSender::share().sendEvnet(OptionalString("com.example.nobody"), "None", "none", {});
  return G_SOURCE_CONTINUE;
}

int runEcho(const std::vector<std::string>& arguments) {
  clientcomm::registerClass(Echo::staticClass());
  TQHPAppleEventProcesser::share();
  if (!arguments.empty() && arguments.front() == kTicking) g_timeout_add(200, tick, nullptr);
  echoLoop = g_main_loop_new(nullptr, FALSE);
  g_main_loop_run(echoLoop);
  g_main_loop_unref(echoLoop);
  return 0;
}

const Role echoRole(kEchoRole, runEcho);

}  // namespace

Role::Role(const char* name, Body body) { roles().emplace(name, body); }

int runRole(const char* name, const std::vector<std::string>& arguments) {
  return roles().at(name)(arguments);
}

bool runRole(const std::vector<std::string>& arguments, int& exitStatus) {
  // Through a bundle of its own: a test may still write another Info.plist for the main bundle, or
  // use the library on another thread first.
  const clientcomm::Bundle own(
      std::string(clientcomm::folderOfExecutable(clientcomm::ownExecutablePath())));
  const auto name = own.infoString("TestRole");
  if (!name) {
    std::error_code error;
    const bool isTest = !arguments.empty() ||
                        std::filesystem::equivalent(own.bundlePath(), hostBundlePath(), error);
    // An application that was launched, and whose bundle is removed before it has read its role,
    // must not run the tests.
    exitStatus = 2;
    return !isTest;
  }
  exitStatus = runRole(name->c_str(), arguments);
  return true;
}

std::string makeApplication(const std::string& name, const std::string& identifier,
                            const std::string& role,
                            const clientcomm::PropertyListDictionary& extra,
                            const std::string& folder) {
  namespace fs = std::filesystem;
  const std::string path = sandbox() + "/" + folder + "/" + name + ".app";
  clientcomm::PropertyListDictionary info{{"CFBundleIdentifier", identifier},
                                          {"CFBundleName", name},
                                          {"CFBundleExecutable", name},
                                          {"CFBundleVersion", "1.0"},
                                          {"TestRole", role}};
  for (const auto& [key, value] : extra) info.insert_or_assign(key, value);
  writeFile(path + "/Contents/Info.plist", clientcomm::xmlPropertyList(info));
  fs::create_directories(path + "/Contents/Linux");
  fs::remove(executableOf(path));
  std::error_code error;
  const std::string program = applicationProgram();
  fs::create_hard_link(program, executableOf(path), error);
  if (error) fs::copy_file(program, executableOf(path));
  return path;
}

std::string executableOf(const std::string& application) {
  return application + "/Contents/Linux/" + std::filesystem::path(application).stem().string();
}

ChildProcess runApplication(const std::string& application,
                            const std::vector<std::string>& arguments) {
  namespace fs = std::filesystem;
  std::vector<std::string> all{executableOf(application)};
  all.insert(all.end(), arguments.begin(), arguments.end());
  ChildProcess child = ChildProcess::spawn(all);
  // Until then it is a copy of the test's own process, and is taken for it. Where it runs from may
  // have been moved by the time it is looked at.
  const fs::path own = fs::read_symlink("/proc/self/exe");
  waitUntil([&] {
    std::error_code error;
    const fs::path running =
        fs::read_symlink("/proc/" + std::to_string(child.pid()) + "/exe", error);
    return error || running != own;
  });
  return child;
}

bool waitUntilReachable(const std::string& identifier) {
  return waitUntil([&] {
    return TQHPAppleEventSender::share().sendEvnet(OptionalString(identifier), "NoClass", "none",
                                                   {}) == clientcomm::noErr;
  });
}

}  // namespace support
