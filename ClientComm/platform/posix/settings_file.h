#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "ClientComm/platform/status.h"

namespace clientcomm {

/// How an existing settings file gets its new content. Where a file is not writable, both refuse.
enum class WriteForm {
  /// The bytes are written into the file as it is: inode, hard links, owner, mode, ACL, attributes
  /// and place in the folder's listing stay, and the folder need not be writable. Meanwhile a
  /// recovery copy beside the file holds the old content and the new one.
  kInPlace,
  /// `replaceFile`, for files that only this library writes. In place where a replacement would
  /// change more than the content (hard links, another owner, an ACL, attributes), or where the
  /// folder refuses it.
  kByRename,
};

/// Reads the regular file at `path` whole. Where a write in place was cut short, by a crash or a
/// power failure, gives the new content and completes the write.
/// @return EFBIG when it is larger than `kMaximumSettingsFileSize`, EINVAL when it is no regular
///         file.
Status readSettingsFile(const std::string& path, std::string& bytes);

/// Makes `bytes` the content of the file at `path`; for a symbolic link, of the file that it
/// points at. A file that is new gets `modeOfNew`, less the umask. A failure leaves the old
/// content.
/// @return EBUSY when another process writes the file in place for longer than a second, ELOOP when
///         this process may not follow the links in `path`.
Status writeSettingsFile(const std::string& path, std::string_view bytes, WriteForm form,
                         mode_t modeOfNew);

}  // namespace clientcomm
