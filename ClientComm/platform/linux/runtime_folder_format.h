#pragma once

#include <chrono>
#include <cstddef>
#include <string_view>

/// The constants of docs/files.md for the runtime folder as a whole.
namespace clientcomm {

inline constexpr char kRuntimeFolderName[] = "ClientComm";

/// The length of the file name for a bundle identifier or a bundle path: lower-case hexadecimal
/// digits, the front half of its SHA-256.
inline constexpr std::size_t kFileNameLength = 32;
inline constexpr std::string_view kFileNameDigits = "0123456789abcdef";

/// Ends the name of a record that is being written and not yet in place.
inline constexpr std::string_view kDraftSuffix = ".new";

/// The largest record that is read, in bytes.
inline constexpr std::size_t kLongestRecord = std::size_t{256} * 1024;

/// How old a temporary file may be; its rename follows within a millisecond.
inline constexpr std::chrono::seconds kLongestInTheMaking{60};

}  // namespace clientcomm
