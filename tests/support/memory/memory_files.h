#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace support {

/// A tree of files and folders in memory. Paths are absolute; repeated and trailing slashes do not
/// count. There are no links. Operations return 0 or an errno value.
class MemoryFiles {
 public:
  struct File {
    std::string bytes;
    bool isExecutable = false;
    bool isReadOnly = false;
    std::uint64_t version = 0;  ///< Another after each write.
  };

  bool exists(std::string_view path) const;
  bool isFolder(std::string_view path) const;
  /// The file at `path`; null when there is none.
  const File* file(std::string_view path) const;
  File* file(std::string_view path);

  /// Writes a file, which may exist. Its folder has to.
  int write(std::string_view path, std::string_view bytes);
  /// Makes a folder and those above it.
  int makeFolder(std::string_view path);
  /// Removes a file or a tree.
  int remove(std::string_view path);
  /// Moves a file or a tree to where nothing is, in a folder that exists.
  int move(std::string_view from, std::string_view to);
  /// Copies in the same way.
  int copy(std::string_view from, std::string_view to);
  /// Names of the entries of a folder, in their order as bytes.
  std::vector<std::string> list(std::string_view path) const;

 private:
  struct Entry {
    bool isFolder = false;
    File file;
  };
  using Entries = std::map<std::string, Entry, std::less<>>;

  /// The entry itself and, of a folder, those below it.
  std::vector<Entries::const_iterator> treeAt(const std::string& path) const;
  int mayTake(const std::string& path) const;

  Entries entries_{{"/", Entry{true, {}}}};
  std::uint64_t lastVersion_ = 0;
};

}  // namespace support
