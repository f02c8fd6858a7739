#include "tools/clientcomm/check/library_cache.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>

namespace clientcomm::tool {
namespace {

// An older cache may precede the one that is read here.
constexpr std::string_view kMagic = "glibc-ld.so.cache1.1";

/// Numbers are in the byte order of the machine. Texts are named by their distance from the header.
struct Header {
  char magic[kMagic.size()];
  std::uint32_t libraryCount;
  std::uint32_t textSize;
  std::uint32_t unused[5];
};
static_assert(sizeof(Header) == 48);

struct Entry {
  std::int32_t flags;
  std::uint32_t name;
  std::uint32_t path;
  std::uint32_t systemVersion;
  std::uint64_t capabilities;
};
static_assert(sizeof(Entry) == 24);

std::string_view textAt(std::string_view bytes, std::size_t offset) {
  if (offset >= bytes.size()) return {};
  bytes.remove_prefix(offset);
  const std::size_t end = bytes.find('\0');
  return end == std::string_view::npos ? std::string_view() : bytes.substr(0, end);
}

}  // namespace

std::multimap<std::string, std::string> libraryCacheFromBytes(std::string_view bytes) {
  std::multimap<std::string, std::string> libraries;
  const std::size_t begin = bytes.find(kMagic);
  if (begin == std::string_view::npos) return libraries;
  bytes.remove_prefix(begin);
  Header header;
  if (bytes.size() < sizeof header) return libraries;
  std::memcpy(&header, bytes.data(), sizeof header);
  for (std::size_t i = 0; i < header.libraryCount; ++i) {
    const std::size_t offset = sizeof header + i * sizeof(Entry);
    if (offset + sizeof(Entry) > bytes.size()) break;
    Entry entry;
    std::memcpy(&entry, bytes.data() + offset, sizeof entry);
    const std::string_view name = textAt(bytes, entry.name);
    if (!name.empty()) libraries.emplace(name, textAt(bytes, entry.path));
  }
  return libraries;
}

std::multimap<std::string, std::string> readLibraryCache(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  return libraryCacheFromBytes(bytes);
}

}  // namespace clientcomm::tool
