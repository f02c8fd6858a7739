#include "benchmarks/support/product.h"

#include <glib.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/platform/runtime.h"
#include "ClientComm/platform/text.h"
#include "benchmarks/support/measurement.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"

using clientcomm::OptionalString;

namespace bench {
namespace {

constexpr const char kHelperName[] = "Test Helper";
constexpr const char kHelperRole[] = "benchmark-helper";

/// The helper's side of the life of a product.
class HelperControl : public TQHPAppEventBase {
 public:
  static const clientcomm::Class& staticClass() {
    using clientcomm::method;
    using Self = HelperControl;
    static const auto* const cls = new clientcomm::Class(
        "TQHPHelperControl", clientcomm::makeShared<Self>,
        {method<&Self::start>("start:prodeuctVersion:"),
         method<&Self::isAlive>("isAlive:prodeuctVersion:"), method<&Self::process>("process")});
    return *cls;
  }
  const clientcomm::Class& isa() const override { return staticClass(); }

  void start(const OptionalString& /*productID*/, const OptionalString& /*version*/) {}
  void isAlive(const OptionalString& /*productID*/, const OptionalString& /*version*/) {
    aliveCalls().increment();
  }
  OptionalString process() { return std::to_string(getpid()); }
};

class GetData : public TQHPAppEventBase {
 public:
  static const clientcomm::Class& staticClass() {
    static const auto* const cls =
        new clientcomm::Class("TQHPGetDataByHelper", clientcomm::makeShared<GetData>,
                              {clientcomm::method<&GetData::clientID>("clientIDFormHelper")});
    return *cls;
  }
  const clientcomm::Class& isa() const override { return staticClass(); }

  OptionalString clientID() { return "client-1"; }
};

int runHelper(const std::vector<std::string>& /*arguments*/) {
  pinTo(kReceiverProcessor);
  clientcomm::registerClass(HelperControl::staticClass());
  clientcomm::registerClass(GetData::staticClass());
  TQHPAppleEventProcesser::share();
  GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
  g_main_loop_run(loop);
  g_main_loop_unref(loop);
  return 0;
}

const support::Role helperRole(kHelperRole, runHelper);

}  // namespace

void embedHelper(const std::string& hostName) {
  support::makeApplication(kHelperName, support::helperIdentifier(), kHelperRole, {},
                           hostName + ".app/Contents/Resources");
}

std::string installedHelperPath() {
  return support::sandbox() + "/install/" + kHelperName + ".app";
}

const SharedCounter& aliveCalls() {
  static const auto* const counter = new SharedCounter(support::sandbox() + "/alive-calls");
  return *counter;
}

pid_t helperProcess() {
  OptionalString process;
  TQHPAppleEventSender::share().sendEvnet(OptionalString(support::helperIdentifier()),
                                          "TQHPHelperControl", "process", {}, &process);
  return process ? clientcomm::intValue(*process) : 0;
}

void endHelper() {
  const pid_t process = helperProcess();
  if (process <= 0) return;
  kill(process, SIGKILL);
  support::waitUntil([process] { return kill(process, 0) != 0; });
}

std::string makeHost(const std::string& name, const std::string& role) {
  clientcomm::PropertyListDictionary info = support::defaultHostInfo();
  info.insert_or_assign("CFBundleIdentifier", "com.example." + name);
  info.insert_or_assign("CFBundleName", name);
  info.insert_or_assign("CFBundleExecutable", name);
  const std::string path = support::makeApplication(name, "com.example." + name, role, info);
  embedHelper("apps/" + name);
  return path;
}

}  // namespace bench
