#pragma once

#include <optional>
#include <string>

#include "ClientComm/platform/property_list.h"

/// What `Bundle` asks of the file system beyond file_manager.h and file_tree.h.
namespace clientcomm {

/// Whether there is a file at `path` that this process may execute; a link counts by its target.
bool isExecutableFile(const std::string& path) noexcept;

/// Whether two paths lead to the same existing file or folder, or are equal.
bool isSameBundle(const std::string& path, const std::string& other) noexcept;

enum class InfoReading {
  kDone,    ///< Read, missing, or malformed.
  kMayPass  ///< Failed for lack of descriptors or memory.
};

/// Reads the Info dictionary at `path`.
/// @param info receives it; nothing when it is missing or malformed, or the reading failed.
InfoReading readInfoDictionary(const std::string& path,
                               std::optional<PropertyListDictionary>& info);

}  // namespace clientcomm
