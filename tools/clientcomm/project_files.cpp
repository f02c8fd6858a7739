#include "tools/clientcomm/project_files.h"

namespace clientcomm::tool {
namespace {

constexpr char kHelperSource[] =
    R"text(// The helper: one process for all hosts that bring it. It answers calls by class name and selector.

#include <ClientComm/TQHPAppEventBase.h>
#include <ClientComm/TQHPAppleEventProcesser.h>
#include <ClientComm/platform/runtime.h>
#include <glib.h>

#include <string>

using clientcomm::method;
using clientcomm::OptionalString;

static GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);

// What every host calls: whether the helper lives, and when it has to make room for a newer one.
class Control : public TQHPAppEventBase {
 public:
  static const clientcomm::Class& wireClass();
  const clientcomm::Class& isa() const override { return wireClass(); }

  void isAlive(const OptionalString& /*productID*/, const OptionalString& /*version*/) {}
  void start(const OptionalString& /*productID*/, const OptionalString& /*version*/) {}
  void stop(const OptionalString& /*productID*/, const OptionalString& /*version*/) {}
  void exitHelper(const OptionalString& /*productID*/, const OptionalString& /*version*/) {
    g_main_loop_quit(loop);
  }
};

const clientcomm::Class& Control::wireClass() {
  static const auto* const wireClass =
      new clientcomm::Class("TQHPHelperControl", &clientcomm::makeShared<Control>,
                            {method<&Control::isAlive>("isAlive:prodeuctVersion:"),
                             method<&Control::start>("start:prodeuctVersion:"),
                             method<&Control::stop>("stop:prodeuctVersion:"),
                             method<&Control::exitHelper>("exitHelper:productVersion:")});
  return *wireClass;
}

// What a host asks once, at its start.
class Query : public TQHPAppEventBase {
 public:
  static const clientcomm::Class& wireClass();
  const clientcomm::Class& isa() const override { return wireClass(); }

  OptionalString clientID() { return "one-for-all"; }
};

const clientcomm::Class& Query::wireClass() {
  static const auto* const wireClass =
      new clientcomm::Class("TQHPGetDataByHelper", &clientcomm::makeShared<Query>,
                            {method<&Query::clientID>("clientIDFormHelper")});
  return *wireClass;
}

// A class of your own. `clientcomm call` reaches it too.
class Greeter : public TQHPAppEventBase {
 public:
  static const clientcomm::Class& wireClass();
  const clientcomm::Class& isa() const override { return wireClass(); }

  OptionalString greet(const OptionalString& name) { return "Hello, " + name.value_or("you"); }
};

const clientcomm::Class& Greeter::wireClass() {
  static const auto* const wireClass = new clientcomm::Class(
      "Greeter", &clientcomm::makeShared<Greeter>, {method<&Greeter::greet>("greet:")});
  return *wireClass;
}

int main() {
  clientcomm::registerClass(Control::wireClass());
  clientcomm::registerClass(Query::wireClass());
  clientcomm::registerClass(Greeter::wireClass());
  TQHPAppleEventProcesser::share();  // takes calls from here on
  g_main_loop_run(loop);
}
)text";

constexpr char kHostSource[] =
    R"text(// The host: it installs, launches and watches its helper, and calls it.

#include <ClientComm/TQHPAppleEventSender.h>
#include <ClientComm/TQHPHelper.h>
#include <ClientComm/TQHPHelperCommunicate.h>
#include <glib-unix.h>
#include <glib.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

static gboolean quit(gpointer loop) {
  g_main_loop_quit(static_cast<GMainLoop*>(loop));
  return G_SOURCE_REMOVE;
}

int main() {
  TQHPHelper::share();
  std::printf("the helper: status %d\n", TQHPHelperCommunicate::share().isAliveHelper());
  const std::vector<std::string> arguments = {"host"};
  clientcomm::OptionalString answer;
  TQHPAppleEventSender::share().sendEvnet("Greeter", "greet:", arguments, &answer);
  std::printf("it says: %s\n", answer.value_or("(nothing)").c_str());
  std::fflush(stdout);

  // The library's timer and the helper's calls come by this loop, until Ctrl-C.
  GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
  g_unix_signal_add(SIGINT, quit, loop);
  g_unix_signal_add(SIGTERM, quit, loop);
  g_main_loop_run(loop);
  g_main_loop_unref(loop);
}
)text";

constexpr char kHostProject[] = R"text(cmake_minimum_required(VERSION 3.25)
project(Host VERSION 1.0 LANGUAGES CXX)

find_package(ClientComm @VERSION@ REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(GLIB REQUIRED IMPORTED_TARGET glib-2.0)
link_libraries(PkgConfig::GLIB)

# NAME, IDENTIFIER, VERSION and INFO are the entries of the bundle's Info.plist.
clientcomm_add_application(host
  NAME "@NAME@"
  IDENTIFIER @IDENTIFIER@
  VERSION ${PROJECT_VERSION}
  SOURCES host.cpp
  INFO "PID=P100")

# The helper of this project, or a ready-made one: -DHELPER_BUNDLE=<path of NAME.app>.
set(HELPER_BUNDLE "" CACHE PATH "A ready-made helper to bring in place of helper.cpp")
if(HELPER_BUNDLE)
  set(helper "${HELPER_BUNDLE}")
else()
  # A newer helper replaces the installed one: raise its VERSION with each release.
  clientcomm_add_application(helper
    NAME "@NAME@ Helper"
    IDENTIFIER @IDENTIFIER@.helper
    VERSION 1.0
    SOURCES helper.cpp)
  set(helper helper)
endif()
clientcomm_embed_helper(host "${helper}" INSTALL_LOCATION "~/.local/lib/@IDENTIFIER@")
)text";

constexpr char kHelperProject[] = R"text(cmake_minimum_required(VERSION 3.25)
project(Helper VERSION 1.0 LANGUAGES CXX)

find_package(ClientComm @VERSION@ REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(GLIB REQUIRED IMPORTED_TARGET glib-2.0)

# NAME, IDENTIFIER and VERSION are the entries of the bundle's Info.plist. A newer helper replaces the
# installed one: raise the VERSION of the project with each release.
clientcomm_add_application(helper
  NAME "@NAME@"
  IDENTIFIER @IDENTIFIER@
  VERSION ${PROJECT_VERSION}
  SOURCES helper.cpp)
target_link_libraries(helper PRIVATE PkgConfig::GLIB)
)text";

constexpr char kHostReadme[] = R"text(# @NAME@

```sh
cmake -B build && cmake --build build
"build/@NAME@.app/Contents/Linux/@NAME@"
```

The host installs its helper in `~/.local/lib/@IDENTIFIER@`, launches it and calls it; Ctrl-C ends the
host, and the helper lives on.

```sh
clientcomm check "build/@NAME@.app"                                  # what is wrong, if anything
clientcomm call @IDENTIFIER@.helper Greeter greet: you --wait
```

`host.cpp` is the host, `helper.cpp` the helper, `CMakeLists.txt` says what is in the bundles and their
`Info.plist`. With `-DHELPER_BUNDLE=<path of NAME.app>` the host brings a ready-made helper.
)text";

constexpr char kHelperReadme[] = R"text(# @NAME@

```sh
cmake -B build && cmake --build build
"build/@NAME@.app/Contents/Linux/@NAME@"
```

The second command runs the helper by itself. Call it from another terminal:

```sh
clientcomm call @IDENTIFIER@ Greeter greet: you --wait
clientcomm call @IDENTIFIER@ TQHPHelperControl exitHelper:productVersion: P100 1.0
```

A host brings it in its bundle and launches it: `clientcomm new host DIRECTORY` writes one, which takes
this helper by `-DHELPER_BUNDLE="$PWD/build/@NAME@.app"`.

`helper.cpp` is the helper, `CMakeLists.txt` says what is in the bundle and its `Info.plist`.
)text";

constexpr ProjectFile kHostFiles[] = {{"CMakeLists.txt", kHostProject},
                                      {"README.md", kHostReadme},
                                      {"host.cpp", kHostSource},
                                      {"helper.cpp", kHelperSource}};

constexpr ProjectFile kHelperFiles[] = {{"CMakeLists.txt", kHelperProject},
                                        {"README.md", kHelperReadme},
                                        {"helper.cpp", kHelperSource}};

}  // namespace

std::span<const ProjectFile> hostFiles() noexcept { return kHostFiles; }

std::span<const ProjectFile> helperFiles() noexcept { return kHelperFiles; }

}  // namespace clientcomm::tool
