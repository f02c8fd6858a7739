#pragma once

#include <string>

#include "ClientComm/platform/bundle.h"

/// What the files of a bundle tell of it.
namespace clientcomm {

/// Whether the file at `executable`, of which the kernel gives the path, is the one that `bundle`
/// names as its executable (CFBundleExecutable, else the bundle's own name).
bool isMainExecutable(const Bundle& bundle, const std::string& executable);

/// A key for the content of the bundle at `path`, which runs `executable`: it changes when the
/// Info.plist or the executable is written or replaced.
std::string stateOfBundle(const std::string& path, const std::string& executable);

}  // namespace clientcomm
