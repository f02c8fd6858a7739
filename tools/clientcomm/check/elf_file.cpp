#include "tools/clientcomm/check/elf_file.h"

#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "ClientComm/platform/posix/scoped_fd.h"

namespace clientcomm::tool {
namespace {

constexpr std::size_t kLongestText = 4096;
constexpr std::size_t kMostHeaders = 1024;
constexpr std::size_t kMostEntries = 65536;

/// Reads from a file at given offsets; whatever is outside of it fails.
class Reader {
 public:
  explicit Reader(const std::string& path)
      // A pipe in place of a program must not block.
      : file_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
    struct stat status = {};
    if (fstat(file_.get(), &status) != 0 || !S_ISREG(status.st_mode)) file_.reset();
  }

  bool read(std::uint64_t offset, void* bytes, std::size_t size) const {
    return offset <= INT64_MAX && pread(file_.get(), bytes, size, static_cast<off_t>(offset)) ==
                                      static_cast<ssize_t>(size);
  }

  template <typename Entry>
  bool readTable(std::uint64_t offset, std::size_t count, std::vector<Entry>& entries) const {
    entries.resize(count);
    return read(offset, entries.data(), count * sizeof(Entry));
  }

  /// The text up to its NUL; empty where there is none.
  std::string readText(std::uint64_t offset) const {
    std::string text(kLongestText, '\0');
    if (offset > INT64_MAX) return {};
    const ssize_t length = pread(file_.get(), text.data(), text.size(), static_cast<off_t>(offset));
    if (length <= 0) return {};
    text.resize(static_cast<std::size_t>(length));
    const std::size_t end = text.find('\0');
    return end == std::string::npos ? std::string() : text.substr(0, end);
  }

 private:
  ScopedFd file_;
};

struct Form32 {
  using Header = Elf32_Ehdr;
  using Segment = Elf32_Phdr;
  using Entry = Elf32_Dyn;
};

struct Form64 {
  using Header = Elf64_Ehdr;
  using Segment = Elf64_Phdr;
  using Entry = Elf64_Dyn;
};

// Where the address of the loaded program is in the file.
template <typename Segment>
std::optional<std::uint64_t> offsetOf(const std::vector<Segment>& segments, std::uint64_t address) {
  for (const Segment& segment : segments) {
    if (segment.p_type != PT_LOAD || address < segment.p_vaddr) continue;
    const std::uint64_t distance = address - segment.p_vaddr;
    if (distance < segment.p_filesz) return segment.p_offset + distance;
  }
  return std::nullopt;
}

template <typename Form>
void readDynamicSection(const Reader& reader, const typename Form::Segment& section,
                        const std::vector<typename Form::Segment>& segments, ElfFile& file) {
  std::vector<typename Form::Entry> entries;
  const std::uint64_t count = section.p_filesz / sizeof(typename Form::Entry);
  const auto read = static_cast<std::size_t>(std::min<std::uint64_t>(count, kMostEntries));
  if (!reader.readTable(section.p_offset, read, entries)) return;
  entries.erase(std::find_if(entries.begin(), entries.end(),
                             [](const auto& entry) { return entry.d_tag == DT_NULL; }),
                entries.end());
  std::optional<std::uint64_t> texts;
  for (const auto& entry : entries) {
    if (entry.d_tag == DT_STRTAB) texts = offsetOf(segments, entry.d_un.d_ptr);
  }
  if (!texts) return;
  for (const auto& entry : entries) {
    const auto text = [&] { return reader.readText(*texts + entry.d_un.d_val); };
    if (entry.d_tag == DT_NEEDED) file.libraries.push_back(text());
    if (entry.d_tag == DT_RUNPATH) file.runPath = text();
    if (entry.d_tag == DT_RPATH) file.oldRunPath = text();
  }
}

template <typename Form>
bool readSegments(const Reader& reader, ElfFile& file) {
  typename Form::Header header;
  if (!reader.read(0, &header, sizeof header)) return false;
  file.machine = header.e_machine;
  if (header.e_type != ET_EXEC && header.e_type != ET_DYN) return false;
  if (header.e_phentsize != sizeof(typename Form::Segment) || header.e_phnum > kMostHeaders) {
    return false;
  }
  std::vector<typename Form::Segment> segments;
  if (!reader.readTable(header.e_phoff, header.e_phnum, segments)) return false;
  for (const auto& segment : segments) {
    if (segment.p_type == PT_INTERP) file.loader = reader.readText(segment.p_offset);
    if (segment.p_type == PT_DYNAMIC) readDynamicSection<Form>(reader, segment, segments, file);
  }
  return true;
}

// Of a file for the other byte order.
bool readSwappedMachine(const Reader& reader, ElfFile& file) {
  unsigned char bytes[2];
  if (!reader.read(offsetof(Elf64_Ehdr, e_machine), bytes, sizeof bytes)) return false;
  const unsigned first = bytes[file.isBigEndian ? 0 : 1];
  const unsigned second = bytes[file.isBigEndian ? 1 : 0];
  file.machine = static_cast<std::uint16_t>(first << 8 | second);
  return true;
}

std::string_view nameOfMachine(std::uint16_t machine) {
  switch (machine) {
    case EM_386:
      return "x86, 32-bit";
    case EM_X86_64:
      return "x86-64";
    case EM_ARM:
      return "ARM, 32-bit";
    case EM_AARCH64:
      return "ARM, 64-bit";
    case EM_PPC64:
      return "PowerPC, 64-bit";
    case EM_RISCV:
      return "RISC-V";
    case EM_S390:
      return "IBM Z";
    case EM_MIPS:
      return "MIPS";
    default:
      return {};
  }
}

}  // namespace

std::optional<ElfFile> readElfFile(const std::string& path) {
  const Reader reader(path);
  unsigned char identity[EI_NIDENT];
  if (!reader.read(0, identity, sizeof identity)) return std::nullopt;
  if (std::memcmp(identity, ELFMAG, SELFMAG) != 0) return std::nullopt;
  ElfFile file;
  file.is64Bit = identity[EI_CLASS] == ELFCLASS64;
  file.isBigEndian = identity[EI_DATA] == ELFDATA2MSB;
  if (!file.is64Bit && identity[EI_CLASS] != ELFCLASS32) return std::nullopt;
  if (file.isBigEndian != (std::endian::native == std::endian::big)) {
    return readSwappedMachine(reader, file) ? std::optional(file) : std::nullopt;
  }
  const bool isRead =
      file.is64Bit ? readSegments<Form64>(reader, file) : readSegments<Form32>(reader, file);
  return isRead ? std::optional(std::move(file)) : std::nullopt;
}

std::string architectureOf(const ElfFile& file) {
  std::string name(nameOfMachine(file.machine));
  if (name.empty()) name = "ELF machine " + std::to_string(file.machine);
  if (file.machine == EM_X86_64 && !file.is64Bit) name += ", 32-bit addresses";
  return name;
}

bool isArchitectureOfThisMachine(const ElfFile& file) {
  const auto own = readElfFile("/proc/self/exe");
  if (!own || file.isBigEndian != own->isBigEndian) return !own;
  if (file.machine == own->machine && file.is64Bit == own->is64Bit) return true;
  // A 64-bit kernel also runs the 32-bit programs of its processor; this tool may be one.
  utsname system = {};
  uname(&system);
  const std::string_view machine = system.machine;
  if (machine == "x86_64") return file.machine == EM_386 || file.machine == EM_X86_64;
  if (machine == "aarch64") return file.machine == EM_ARM || file.machine == EM_AARCH64;
  return false;
}

}  // namespace clientcomm::tool
