#include "ClientComm/platform/linux/launch_environment.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

#include "ClientComm/platform/fixed_text.h"

namespace clientcomm {
namespace {

/// A variable that a launched application does not get. A name that ends in "*" stands for all that
/// begin so. docs/building.md has the same list for users.
constexpr FixedText<31> kHostsOwn[] = {
    // The dynamic loader: the helper would run with the host's libraries, or with what was
    // preloaded into the host.
    "LD_LIBRARY_PATH",
    "LD_LIBRARY_PATH_ORIG",  // what a launcher saved for itself
    "LD_PRELOAD",
    "LD_AUDIT",
    // Portable images (AppImage): paths into a mount that goes away with the host.
    "APPDIR",
    "APPIMAGE",
    "APPIMAGE_*",
    "ARGV0",
    "OWD",
    // Flatpak and Snap: the helper is no part of the host's package.
    "FLATPAK_*",
    "SNAP",
    "SNAP_*",
    // GTK, its image loaders and its input methods: modules built for the host's copy of GTK.
    "GTK_PATH",
    "GTK_EXE_PREFIX",
    "GTK_DATA_PREFIX",
    "GTK_IM_MODULE_FILE",
    "GDK_PIXBUF_MODULE_FILE",
    "GDK_PIXBUF_MODULEDIR",
    // GLib: modules and settings schemas of the host's copy.
    "GIO_MODULE_DIR",
    "GIO_EXTRA_MODULES",
    "GSETTINGS_SCHEMA_DIR",
    "GI_TYPELIB_PATH",
    // Pango, relocated with GTK.
    "PANGO_RC_FILE",
    "PANGO_LIBDIR",
    "PANGO_SYSCONFDIR",
    // Qt: plug-ins fit one build of Qt only.
    "QT_PLUGIN_PATH",
    "QT_QPA_PLATFORM_PLUGIN_PATH",
    "QTWEBENGINEPROCESS_PATH",
    "QTWEBENGINE_RESOURCES_PATH",
    "QTWEBENGINE_LOCALES_PATH",
    "QML_IMPORT_PATH",
    "QML2_IMPORT_PATH",
    "QTDIR",
    // GStreamer: plug-ins and their registry, for one build only.
    "GST_PLUGIN_PATH",
    "GST_PLUGIN_PATH_1_0",
    "GST_PLUGIN_SYSTEM_PATH",
    "GST_PLUGIN_SYSTEM_PATH_1_0",
    "GST_PLUGIN_SCANNER",
    "GST_PLUGIN_SCANNER_1_0",
    "GST_REGISTRY",
    "GST_REGISTRY_1_0",
    "GST_PTP_HELPER",
    "GST_PTP_HELPER_1_0",
    // Interpreters in the host's package.
    "PYTHONHOME",
    "PYTHONPATH",
    "PYTHONEXECUTABLE",
    "_PYI_*",
    "_MEIPASS2",
    "PERLLIB",
    "PERL5LIB",
    "TCL_LIBRARY",
    "TK_LIBRARY",
};

/// The variables that name the folder in which the host's package is mounted. Paths below it are
/// taken out of every other variable: they lead nowhere once the host has ended.
constexpr FixedText<7> kImageFolders[] = {"APPDIR", "SNAP"};

struct Variable {
  std::string_view name;
  std::string_view value;
};

// An entry without "=" is no variable and goes along as it is.
Variable variableIn(std::string_view entry) {
  const std::size_t sign = entry.find('=');
  if (sign == std::string_view::npos) return {};
  return {entry.substr(0, sign), entry.substr(sign + 1)};
}

bool isHostsOwn(std::string_view name) {
  return std::ranges::any_of(kHostsOwn, [name](std::string_view own) {
    if (!own.ends_with('*')) return name == own;
    own.remove_suffix(1);
    return name.starts_with(own);
  });
}

bool isWithin(std::string_view path, std::string_view folder) {
  return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

std::vector<std::string_view> imageFolders(const char* const* environment) {
  std::vector<std::string_view> folders;
  for (const char* const* entry = environment; *entry != nullptr; ++entry) {
    Variable variable = variableIn(*entry);
    const auto end = std::end(kImageFolders);
    if (std::find(std::begin(kImageFolders), end, variable.name) == end) continue;
    while (variable.value.ends_with('/')) variable.value.remove_suffix(1);
    if (variable.value.starts_with('/')) folders.push_back(variable.value);
  }
  return folders;
}

// `list` without the paths below `folders`; nothing where no other is left.
std::optional<std::string> withoutPathsBelow(const std::vector<std::string_view>& folders,
                                             std::string_view list) {
  std::optional<std::string> kept;
  for (;;) {
    const std::size_t colon = list.find(':');
    const std::string_view path = list.substr(0, colon);
    const bool isBelow =
        std::ranges::any_of(folders, [path](auto folder) { return isWithin(path, folder); });
    if (!isBelow) kept = kept ? *kept + ":" + std::string(path) : std::string(path);
    if (colon == std::string_view::npos) return kept;
    list.remove_prefix(colon + 1);
  }
}

}  // namespace

std::vector<std::string> launchEnvironment(const char* const* environment) {
  std::vector<std::string> kept;
  if (environment == nullptr) return kept;
  const auto folders = imageFolders(environment);
  for (const char* const* entry = environment; *entry != nullptr; ++entry) {
    const Variable variable = variableIn(*entry);
    if (isHostsOwn(variable.name)) continue;
    if (folders.empty() || variable.name.empty()) {
      kept.emplace_back(*entry);
    } else if (const auto value = withoutPathsBelow(folders, variable.value)) {
      kept.push_back(std::string(variable.name) + "=" + *value);
    }
  }
  return kept;
}

}  // namespace clientcomm
