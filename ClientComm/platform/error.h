#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace clientcomm {

/// The platform's error object: what went wrong, as a domain, a code within it, and details by key.
struct Error {
  std::string domain;                           ///< Which list of codes `code` is of.
  std::int64_t code = 0;                        ///< Within the domain.
  std::map<std::string, std::string> userInfo;  ///< Details, by keys of the domain.
};

}  // namespace clientcomm
