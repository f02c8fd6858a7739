#include "tests/support/product_applications.h"

#include <glib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/TQHPHelper.h"
#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/text.h"
#include "tests/support/test_application.h"
#include "tests/support/test_helper.h"
#include "tests/support/test_sandbox.h"

using clientcomm::OptionalString;

namespace support {
namespace {

namespace fs = std::filesystem;

constexpr char kProductHelperRole[] = "product-helper";

// --- The helper. ---

GMainLoop* helperLoop = nullptr;

std::string journalPath() { return sandbox() + "/helper-journal"; }

class Control : public TQHPAppEventBase {
 public:
  static const clientcomm::Class& staticClass() {
    using clientcomm::method;
    static const auto* const cls =
        new clientcomm::Class("TQHPHelperControl", clientcomm::makeShared<Control>,
                              {method<&Control::start>("start:prodeuctVersion:"),
                               method<&Control::stop>("stop:prodeuctVersion:"),
                               method<&Control::isAlive>("isAlive:prodeuctVersion:"),
                               method<&Control::exitHelper>("exitHelper:productVersion:")});
    return *cls;
  }
  const clientcomm::Class& isa() const override { return staticClass(); }

  void start(const OptionalString& product, const OptionalString& version) {
    noteInJournal("start " + *product + " " + *version);
  }
  void stop(const OptionalString& product, const OptionalString& /*version*/) {
    noteInJournal("stop " + *product);
  }
  void isAlive(const OptionalString& /*product*/, const OptionalString& /*version*/) {
    if (clientcomm::Bundle::mainBundle().infoValue(kNotesAliveChecksKey)) noteInJournal("alive");
  }
  void exitHelper(const OptionalString& product, const OptionalString& /*version*/) {
    noteInJournal("exit " + *product);
    g_main_loop_quit(helperLoop);
  }
};

class Data : public TQHPAppEventBase {
 public:
  static const clientcomm::Class& staticClass() {
    static const auto* const cls = new clientcomm::Class(
        "TQHPGetDataByHelper", clientcomm::makeShared<Data>,
        {clientcomm::method<&Data::clientIDFormHelper>("clientIDFormHelper")});
    return *cls;
  }
  const clientcomm::Class& isa() const override { return staticClass(); }

  OptionalString clientIDFormHelper() { return "client-" + std::to_string(getpid()); }
};

const Role helperRole(kProductHelperRole, [](const std::vector<std::string>& /*arguments*/) {
  return runProductHelper();
});

// --- A host. ---

gboolean runRestartStep(gpointer /*data*/) {
  TQHPHelperCommunicate::share().autoRestartHelper();
  return G_SOURCE_CONTINUE;
}

const Role hostRole(kProductHostRole, [](const std::vector<std::string>& arguments) {
  TQHPHelper::share();
  GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
  const auto quit = [](gpointer data) -> gboolean {
    g_main_loop_quit(static_cast<GMainLoop*>(data));
    return G_SOURCE_REMOVE;
  };
  g_timeout_add(static_cast<guint>(clientcomm::intValue(arguments.at(0))), quit, loop);
  if (arguments.size() > 1) {
    g_timeout_add(static_cast<guint>(clientcomm::intValue(arguments[1])), runRestartStep, nullptr);
  }
  g_main_loop_run(loop);
  g_main_loop_unref(loop);
  return 0;
});

bool isSameEntry(const fs::path& first, const fs::path& second) {
  const fs::file_status status = fs::symlink_status(first);
  if (status.type() != fs::symlink_status(second).type()) return false;
  if (status.type() == fs::file_type::symlink) {
    return fs::read_symlink(first) == fs::read_symlink(second);
  }
  if (status.permissions() != fs::status(second).permissions()) return false;
  return status.type() != fs::file_type::regular || readFile(first) == readFile(second);
}

}  // namespace

int runProductHelper() {
  clientcomm::registerClass(Control::staticClass());
  clientcomm::registerClass(Data::staticClass());
  helperLoop = g_main_loop_new(nullptr, FALSE);
  noteInJournal("up " +
                clientcomm::Bundle::mainBundle().infoString("CFBundleVersion").value_or("?"));
  const auto delay = clientcomm::Bundle::mainBundle().infoString(kStartDelayKey);
  if (delay == kStopped) raise(SIGSTOP);
  std::this_thread::sleep_for(std::chrono::milliseconds(clientcomm::intValue(delay.value_or("0"))));
  TQHPAppleEventProcesser::share();
  noteInJournal("ready");
  g_main_loop_run(helperLoop);
  g_main_loop_unref(helperLoop);
  noteInJournal("down");
  return 0;
}

std::string embedHelper(const std::string& version, const std::string& host,
                        const clientcomm::PropertyListDictionary& extra) {
  clientcomm::PropertyListDictionary info = extra;
  info.insert_or_assign("CFBundleVersion", version);
  return makeApplication(kHelperName, helperIdentifier(), kProductHelperRole, info,
                         host + "/Contents/Resources");
}

std::string makeHost(const std::string& name, const std::string& version, const std::string& role) {
  clientcomm::PropertyListDictionary info = defaultHostInfo();
  info.erase("CFBundleName");
  info.erase("CFBundleExecutable");
  info.erase("CFBundleIdentifier");
  info.insert_or_assign("PID", name);
  const std::string host = makeApplication(name, "com.example." + name, role, info, "hosts");
  embedHelper(version, "hosts/" + name + ".app");
  return host;
}

std::string helperIn(const std::string& host) {
  return host + "/Contents/Resources/" + kHelperName + ".app";
}

pid_t helperPid() {
  const auto found = processesOf(installedHelperPath());
  return found.size() == 1 ? found.front() : 0;
}

void noteInJournal(const std::string& text) {
  std::ofstream(journalPath(), std::ios::app) << std::to_string(getpid()) + " " + text + "\n"
                                              << std::flush;
}

std::vector<std::string> journal() {
  std::vector<std::string> lines;
  std::ifstream file(journalPath());
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

std::size_t countInJournal(const std::string& what) {
  const auto lines = journal();
  return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), [&](const auto& line) {
    return line.find(what) != std::string::npos;
  }));
}

bool haveSameContents(const std::string& first, const std::string& second) {
  if (!fs::is_directory(first) || !fs::is_directory(second)) return false;
  std::ptrdiff_t count = 0;
  for (const auto& entry : fs::recursive_directory_iterator(first)) {
    if (!isSameEntry(entry.path(), second / entry.path().lexically_relative(first))) return false;
    ++count;
  }
  return count == std::distance(fs::recursive_directory_iterator(second), {});
}

}  // namespace support
