#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/status.h"

namespace clientcomm {

/// The old and the new content of a file that is written in place, kept on disk until the write is
/// complete. It exists under its name only when it is whole and flushed. Its maker holds it locked:
/// a copy that is not locked is that of a process that died.
///
/// It is the file ".NAME.recovery-UID" beside the file NAME, of mode 0600. Where that folder
/// refuses it, it is ".DIGEST.recovery-UID" in the preferences folder; DIGEST is of the file's
/// path. The content is one line, "ClientComm settings write OLD-SIZE NEW-SIZE", then both
/// contents. A copy counts only for the user that made it.
class RecoveryCopy {
 public:
  RecoveryCopy(RecoveryCopy&&) noexcept = default;
  RecoveryCopy& operator=(RecoveryCopy&&) noexcept = default;
  ~RecoveryCopy();

  /// Makes the copy for the file at `target`, which is no symbolic link.
  /// @return success with `copy` set; EEXIST when the copy of another write is there.
  static Status make(const std::string& target, std::string_view before, std::string_view after,
                     std::optional<RecoveryCopy>& copy);

  /// The copy that exists for the file at `target`; nothing without one.
  static std::optional<RecoveryCopy> find(const std::string& target);

  /// Locks a copy that was found.
  /// @return EWOULDBLOCK when its maker is alive, ENOENT when it is gone, ESTALE when another has
  ///         its name.
  Status takeOver();

  /// Removes the file of a copy that was made or taken over.
  Status remove();

  /// Whether a file that holds `current` is in the midst of the write. Every byte of such a file is
  /// the old or the new one of its place, and yet it is neither content.
  bool isCutShort(std::string_view current) const;

  const std::string& after() const { return after_; }

 private:
  struct Place {
    std::string folder;
    std::string base;  ///< What the copy is named after.
    std::string name;
  };
  static Place placeBeside(const std::string& target);
  static std::optional<Place> placeInPreferences(const std::string& target);
  static Status makeAt(const Place& place, std::string_view before, std::string_view after,
                       std::optional<RecoveryCopy>& copy);
  static std::optional<RecoveryCopy> findAt(const Place& place);

  RecoveryCopy(ScopedFd folder, std::string name, ScopedFd file);
  void parse(std::string_view bytes);

  ScopedFd folder_;
  std::string name_;
  ScopedFd file_;
  std::string before_;
  std::string after_;
};

}  // namespace clientcomm
