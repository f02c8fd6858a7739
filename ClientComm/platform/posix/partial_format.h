#pragma once

#include <string_view>

#include "ClientComm/platform/removal_format.h"

/// The constants of the partial names in docs/files.md: ".NAME.partial-<process ID>-<number>", with
/// at most `kLongestKeptName` bytes of NAME.
namespace clientcomm {

inline constexpr char kPartialInfix[] = ".partial-";

}  // namespace clientcomm
