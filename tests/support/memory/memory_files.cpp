#include "tests/support/memory/memory_files.h"

#include <cerrno>

#include "ClientComm/platform/path.h"

namespace support {
namespace {

// How a path is spelled in the tree.
std::string keyOf(std::string_view path) {
  return clientcomm::stringByAppendingPathComponent(path, "");
}

bool isBelow(std::string_view path, std::string_view folder) {
  return path.size() > folder.size() && path.starts_with(folder) &&
         (folder == "/" || path[folder.size()] == '/');
}

}  // namespace

bool MemoryFiles::exists(std::string_view path) const { return entries_.contains(keyOf(path)); }

bool MemoryFiles::isFolder(std::string_view path) const {
  const auto found = entries_.find(keyOf(path));
  return found != entries_.end() && found->second.isFolder;
}

const MemoryFiles::File* MemoryFiles::file(std::string_view path) const {
  const auto found = entries_.find(keyOf(path));
  return found == entries_.end() || found->second.isFolder ? nullptr : &found->second.file;
}

MemoryFiles::File* MemoryFiles::file(std::string_view path) {
  const auto found = entries_.find(keyOf(path));
  return found == entries_.end() || found->second.isFolder ? nullptr : &found->second.file;
}

int MemoryFiles::write(std::string_view path, std::string_view bytes) {
  if (isFolder(path)) return EISDIR;
  if (!isFolder(clientcomm::splitPath(path).directory)) return ENOENT;
  File& file = entries_[keyOf(path)].file;
  if (file.isReadOnly) return EACCES;
  file.bytes = bytes;
  file.version = ++lastVersion_;
  return 0;
}

int MemoryFiles::makeFolder(std::string_view path) {
  if (isFolder(path)) return 0;
  if (exists(path)) return EEXIST;
  const std::string above = clientcomm::splitPath(path).directory;
  if (above == path || !path.starts_with('/')) return ENOENT;
  if (exists(above) && !isFolder(above)) return ENOTDIR;
  if (const int code = makeFolder(above); code != 0) return code;
  entries_[keyOf(path)].isFolder = true;
  return 0;
}

std::vector<MemoryFiles::Entries::const_iterator> MemoryFiles::treeAt(
    const std::string& path) const {
  std::vector<Entries::const_iterator> tree;
  for (auto entry = entries_.lower_bound(path); entry != entries_.end(); ++entry) {
    if (!entry->first.starts_with(path)) break;
    if (entry->first == path || isBelow(entry->first, path)) tree.push_back(entry);
  }
  return tree;
}

int MemoryFiles::remove(std::string_view path) {
  const auto tree = treeAt(keyOf(path));
  for (const auto& entry : tree) entries_.erase(entry);
  return tree.empty() ? ENOENT : 0;
}

int MemoryFiles::mayTake(const std::string& path) const {
  if (exists(path)) return EEXIST;
  return isFolder(clientcomm::splitPath(path).directory) ? 0 : ENOENT;
}

int MemoryFiles::copy(std::string_view from, std::string_view to) {
  const std::string source = keyOf(from);
  const std::string target = keyOf(to);
  if (const int code = mayTake(target); code != 0) return code;
  const auto tree = treeAt(source);
  for (const auto& entry : tree) {
    entries_[target + entry->first.substr(source.size())] = entry->second;
  }
  return tree.empty() ? ENOENT : 0;
}

int MemoryFiles::move(std::string_view from, std::string_view to) {
  const int code = copy(from, to);
  return code == 0 ? remove(from) : code;
}

std::vector<std::string> MemoryFiles::list(std::string_view path) const {
  const std::string folder = keyOf(path);
  std::vector<std::string> names;
  for (const auto& entry : treeAt(folder)) {
    if (entry->first == folder || entry->first == "/") continue;
    const clientcomm::SplitPath split = clientcomm::splitPath(entry->first);
    if (split.directory == folder) names.push_back(split.name);
  }
  return names;
}

}  // namespace support
