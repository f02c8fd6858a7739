#pragma once

#include <string_view>

/// The constants of the recovery copies in docs/files.md: ".NAME.recovery-<user ID>".
namespace clientcomm {

inline constexpr char kRecoveryInfix[] = ".recovery-";

/// Begins the first line; the sizes of the old and of the new content follow.
inline constexpr std::string_view kRecoveryHeading = "ClientComm settings write ";

}  // namespace clientcomm
