#pragma once

#include <sys/types.h>

#include <string>

#include "platform/property_list.h"

namespace platform {

/// As `writeDictionaryToFile`; a file that is new gets `modeOfNew`, less the umask.
bool writeDictionaryToFile(const PropertyListDictionary& dictionary, const std::string& path,
                           mode_t modeOfNew);

}  // namespace platform
