#include "tools/clientcomm/check/shared_libraries.h"

#include <algorithm>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

#include "ClientComm/platform/path.h"
#include "tools/clientcomm/check/library_cache.h"

namespace clientcomm::tool {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostLibraries = 1000;

std::vector<std::string> split(std::string_view text) {
  std::vector<std::string> parts;
  while (!text.empty()) {
    const std::size_t end = text.find_first_of(":;");
    if (end != 0) parts.emplace_back(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return parts;
}

void replaceAll(std::string& text, std::string_view what, std::string_view with) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size()) {
    text.replace(at, what.size(), with);
  }
}

/// A program or a library that is loaded.
struct Object {
  std::string path;
  ElfFile file;
  std::vector<std::string> inherited;  ///< DT_RPATH of those that led to it.
};

// The folders of a run path; $ORIGIN is the object's own folder, without links.
std::vector<std::string> foldersOf(const std::string& runPath, const Object& object) {
  std::error_code error;
  const fs::path real = fs::canonical(object.path, error);
  const std::string origin = splitPath(error ? object.path : real.string()).directory;
  std::vector<std::string> folders = split(runPath);
  for (std::string& folder : folders) {
    replaceAll(folder, "$ORIGIN", origin);
    replaceAll(folder, "${ORIGIN}", origin);
    replaceAll(folder, "$LIB", object.file.is64Bit ? "lib64" : "lib");
    replaceAll(folder, "${LIB}", object.file.is64Bit ? "lib64" : "lib");
  }
  return folders;
}

class Search {
 public:
  Search(const ElfFile& program, const LibraryPlaces& places)
      : program_(program), places_(places) {}

  std::vector<MissingLibrary> run(const std::string& path) {
    // The loader is there already, by whatever name it is asked for.
    known_.insert(lastPathComponent(program_.loader));
    waiting_.push_back({path, program_, {}});
    while (!waiting_.empty() && known_.size() < kMostLibraries) {
      const Object object = std::move(waiting_.front());
      waiting_.pop_front();
      for (const std::string& name : object.file.libraries) look(name, object);
    }
    return std::move(missing_);
  }

 private:
  void look(const std::string& name, const Object& by) {
    if (!known_.insert(name).second) return;
    std::vector<std::string> inherited = by.inherited;
    if (by.file.runPath.empty()) {
      const auto own = foldersOf(by.file.oldRunPath, by);
      inherited.insert(inherited.begin(), own.begin(), own.end());
    }
    for (const std::string& path : candidates(name, by, inherited)) {
      auto file = readElfFile(path);
      if (!file || file->machine != program_.machine || file->is64Bit != program_.is64Bit) continue;
      waiting_.push_back({path, *std::move(file), std::move(inherited)});
      return;
    }
    missing_.push_back({name, by.path});
  }

  // In the loader's order.
  std::vector<std::string> candidates(const std::string& name, const Object& by,
                                      const std::vector<std::string>& inherited) const {
    if (name.find('/') != std::string::npos) return {name};
    std::vector<std::string> paths;
    const auto add = [&](const std::vector<std::string>& folders) {
      for (const auto& folder : folders) {
        paths.push_back(stringByAppendingPathComponent(folder, name));
      }
    };
    if (by.file.runPath.empty()) add(inherited);
    add(places_.environment);
    add(foldersOf(by.file.runPath, by));
    const auto [first, last] = places_.cache.equal_range(name);
    for (auto entry = first; entry != last; ++entry) paths.push_back(entry->second);
    add(places_.folders);
    return paths;
  }

  const ElfFile& program_;
  const LibraryPlaces& places_;
  std::set<std::string, std::less<>> known_;
  std::deque<Object> waiting_;
  std::vector<MissingLibrary> missing_;
};

// With the folders that distributions have for the libraries of one architecture.
std::vector<std::string> foldersOfSystem() {
  std::vector<std::string> folders;
  for (const char* const base : {"/lib", "/usr/lib"}) {
    folders.emplace_back(base);
    folders.push_back(std::string(base) + "64");
    folders.push_back(std::string(base) + "32");
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(base, error)) {
      if (entry.path().filename().string().find("-linux-") != std::string::npos) {
        folders.push_back(entry.path());
      }
    }
  }
  return folders;
}

}  // namespace

LibraryPlaces LibraryPlaces::ofSystem(const std::string& environment) {
  return {split(environment), readLibraryCache("/etc/ld.so.cache"), foldersOfSystem()};
}

std::vector<MissingLibrary> missingLibraries(const std::string& path, const ElfFile& program,
                                             const LibraryPlaces& places) {
  return Search(program, places).run(path);
}

}  // namespace clientcomm::tool
