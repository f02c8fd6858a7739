#pragma once

#include <cstddef>
#include <string_view>

/// The constants of the preferences in docs/files.md.
namespace clientcomm {

inline constexpr char kPreferencesFolderName[] = "Preferences";
inline constexpr char kPreferencesExtension[] = ".plist";

/// Between the name of a file that could not be read and the number under which it is kept.
inline constexpr char kCorruptInfix[] = ".corrupt-";

/// A longer name of a domain, in bytes, is cut to `kKeptOfLongDomain` and its digest, which leaves
/// room within NAME_MAX for what is put around it.
inline constexpr std::size_t kLongestDomainName = 200;
inline constexpr std::size_t kKeptOfLongDomain = 120;

/// Begins a byte in hexadecimal, and the digest.
inline constexpr char kDomainEscape = '%';

}  // namespace clientcomm
