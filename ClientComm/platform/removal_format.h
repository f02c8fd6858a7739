#pragma once

#include <cstddef>
#include <string_view>

/// The constants of the marks of removal in docs/files.md. What an application moves aside from
/// "NAME" is at ".NAME.removed-<process ID>-<number>"; versions before that left ".NAME.removed".
namespace clientcomm {

inline constexpr std::string_view kRemovedInfix = ".removed-";
inline constexpr char kRemovalMarkSuffix[] = ".removed";

/// How many bytes of a name are kept in the name of something beside it, which leaves room for the
/// rest within NAME_MAX.
inline constexpr std::size_t kLongestKeptName = 200;

}  // namespace clientcomm
