#pragma once

#include <map>
#include <string>
#include <string_view>

namespace clientcomm::tool {

/// The libraries in the dynamic loader's cache, in the format of glibc 2.2 and later: the path of
/// each by its name. Empty where there is no cache, or it is malformed.
std::multimap<std::string, std::string> readLibraryCache(const std::string& path);

/// The same of a cache's bytes.
std::multimap<std::string, std::string> libraryCacheFromBytes(std::string_view bytes);

}  // namespace clientcomm::tool
