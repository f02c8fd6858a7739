#include "ClientComm/platform/linux/launch_environment.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using clientcomm::launchEnvironment;
using Entries = std::vector<std::string>;

Entries launched(const Entries& entries) {
  std::vector<const char*> environment;
  for (const std::string& entry : entries) environment.push_back(entry.c_str());
  environment.push_back(nullptr);
  return launchEnvironment(environment.data());
}

TEST(LaunchEnvironment, LeavesOutWhatBelongsToTheHostsPackaging) {
  for (const std::string name : {"LD_LIBRARY_PATH",
                                 "LD_PRELOAD",
                                 "APPDIR",
                                 "APPIMAGE",
                                 "ARGV0",
                                 "OWD",
                                 "SNAP",
                                 "SNAP_NAME",
                                 "FLATPAK_ID",
                                 "GTK_PATH",
                                 "GTK_EXE_PREFIX",
                                 "GTK_DATA_PREFIX",
                                 "GDK_PIXBUF_MODULE_FILE",
                                 "GDK_PIXBUF_MODULEDIR",
                                 "GIO_MODULE_DIR",
                                 "GIO_EXTRA_MODULES",
                                 "GSETTINGS_SCHEMA_DIR",
                                 "QT_PLUGIN_PATH",
                                 "QT_QPA_PLATFORM_PLUGIN_PATH",
                                 "QML2_IMPORT_PATH",
                                 "GST_PLUGIN_SYSTEM_PATH",
                                 "GST_PLUGIN_SYSTEM_PATH_1_0",
                                 "GST_PLUGIN_SCANNER",
                                 "PYTHONHOME",
                                 "PYTHONPATH",
                                 "PERLLIB",
                                 "PERL5LIB"}) {
    EXPECT_EQ(launched({"A=1", name + "=x", "B=2"}), (Entries{"A=1", "B=2"})) << name;
  }
}

TEST(LaunchEnvironment, KeepsEverythingElseInItsOrder) {
  const Entries session = {"HOME=/home/u",
                           "DISPLAY=:0",
                           "WAYLAND_DISPLAY=wayland-0",
                           "DBUS_SESSION_BUS_ADDRESS=unix:path=/run/user/1/bus",
                           "XDG_RUNTIME_DIR=/run/user/1",
                           "LANG=de_DE.UTF-8",
                           "QT_QPA_PLATFORM=wayland",
                           "GTK_THEME=Dark",
                           "PATH=/usr/bin:/bin",
                           "SNAPPY=1",
                           "EMPTY=",
                           "no variable"};
  EXPECT_EQ(launched(session), session);
  EXPECT_TRUE(launched({}).empty());
  EXPECT_TRUE(launchEnvironment(nullptr).empty());
}

TEST(LaunchEnvironment, TakesThePathsOfAPortableImageOutOfEveryVariable) {
  EXPECT_EQ(launched({"PATH=/tmp/.mount_X/usr/bin:/usr/bin:/tmp/.mount_X", "DISPLAY=:0",
                      "FONTCONFIG_FILE=/tmp/.mount_X/fonts.conf", "OTHER=/tmp/.mount_XY/bin",
                      "APPDIR=/tmp/.mount_X/"}),
            (Entries{"PATH=/usr/bin", "DISPLAY=:0", "OTHER=/tmp/.mount_XY/bin"}));
}

TEST(LaunchEnvironment, TakesNoPathOutForAnImageFolderThatIsNone) {
  for (const std::string folder : {"", "/", "relative"}) {
    EXPECT_EQ(launched({"APPDIR=" + folder, "PATH=/usr/bin:relative"}),
              (Entries{"PATH=/usr/bin:relative"}))
        << folder;
  }
}

}  // namespace
