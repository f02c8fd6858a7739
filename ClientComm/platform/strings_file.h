#pragma once

#include <string>
#include <string_view>

#include "ClientComm/platform/property_list.h"
#include "ClientComm/platform/status.h"

/// Strings files: their text and their encoding. `propertyListFromBytes` reads them.
namespace clientcomm {

/// The strings-file text of `dictionary` ("key" = "value"; lines), UTF-8. Arrays, dictionaries and
/// data are written as old-style property lists, other values as strings that read alike. In a
/// string a byte that is not UTF-8 becomes an escape that `propertyListFromBytes` reads as that
/// byte.
std::string descriptionInStringsFileFormat(const PropertyListDictionary& dictionary);

/// Writes UTF-8 `text` to `path` in UTF-16 with byte-order mark, as `writeDictionaryToFile` does.
/// @return EFBIG when it is too large to be read again.
Status writeTextToFileAsUTF16(std::string_view text, const std::string& path);

}  // namespace clientcomm
