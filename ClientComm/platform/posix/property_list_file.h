#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "ClientComm/platform/posix/settings_file.h"
#include "ClientComm/platform/property_list.h"
#include "ClientComm/platform/status.h"

namespace clientcomm {

/// As `dictionaryWithContentsOfFile`.
/// @param dictionary receives what was read; nothing when the file is malformed.
/// @return the failure of the reading.
Status readDictionaryFile(const std::string& path,
                          std::optional<PropertyListDictionary>& dictionary);

/// As `writeDictionaryToFile`, by the given form; a file that is new gets `modeOfNew`, less the
/// umask.
/// @return EFBIG when it is too large, or nested too deep, to be read again.
Status writeDictionaryFile(const PropertyListDictionary& dictionary, const std::string& path,
                           WriteForm form, mode_t modeOfNew);

}  // namespace clientcomm
