#pragma once

#include <sys/types.h>

#include <string>

#include "platform/linux/settings_file.h"
#include "platform/property_list.h"

namespace platform {

/// As `writeDictionaryToFile`, by the given form; a file that is new gets `modeOfNew`, less the
/// umask.
bool writeDictionaryToFile(const PropertyListDictionary& dictionary, const std::string& path,
                           WriteForm form, mode_t modeOfNew);

}  // namespace platform
