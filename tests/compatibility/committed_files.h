#pragma once

#include <string>
#include <utility>
#include <vector>

#include "ClientComm/platform/property_list.h"

/// The files of version 1 in tests/compatibility/files, which never change.
namespace support {

/// The bytes of the committed file `name`.
std::string committed(const std::string& name);

/// The same with each first text replaced by the second, wherever it is.
std::string committed(const std::string& name,
                      const std::vector<std::pair<std::string, std::string>>& replacements);

/// The dictionary in the committed file `name`.
clientcomm::PropertyListDictionary committedDictionary(const std::string& name);

/// The names of all committed property lists.
std::vector<std::string> committedLists();

/// One value of each type of property list, except the type of `value`; as for an integer, not a
/// boolean, since each counts as the other.
std::vector<clientcomm::PropertyListValue> valuesOfOtherTypes(
    const clientcomm::PropertyListValue& value);

/// Path of the file `name` in the runtime folder.
std::string runtimePath(const std::string& name);

}  // namespace support
