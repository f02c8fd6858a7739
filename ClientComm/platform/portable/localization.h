#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace clientcomm {

/// The user's languages, in order of preference, as the environment names them: LANGUAGE, then the
/// first that is set of LC_ALL, LC_MESSAGES and LANG. Character sets are left out, and so are "C"
/// and "POSIX".
std::vector<std::string> userLanguages();

/// Those of `folders` (names of localisation folders without ".lproj", as "en", "English", "zh_CN"
/// or "zh-Hans") that serve one of `languages`: in the order of the languages, for each of them the
/// closest first. Of equally close ones, the folder named exactly as the language comes first, and
/// a language code before an older name ("en" before "English").
std::vector<std::string> matchingLocalizations(const std::vector<std::string>& folders,
                                               const std::vector<std::string>& languages);

}  // namespace clientcomm
