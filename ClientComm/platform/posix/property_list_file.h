#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "ClientComm/platform/posix/settings_file.h"
#include "ClientComm/platform/property_list.h"

namespace clientcomm {

/// As `dictionaryWithContentsOfFile`.
/// @param dictionary receives what was read; nothing when the file is malformed.
/// @return 0, or the errno value with which the reading failed.
int readDictionaryFile(const std::string& path, std::optional<PropertyListDictionary>& dictionary);

/// As `writeDictionaryToFile`, by the given form; a file that is new gets `modeOfNew`, less the
/// umask.
bool writeDictionaryToFile(const PropertyListDictionary& dictionary, const std::string& path,
                           WriteForm form, mode_t modeOfNew);

}  // namespace clientcomm
