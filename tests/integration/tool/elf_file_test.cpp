#include "tools/clientcomm/check/elf_file.h"

#include <elf.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "tests/support/test_sandbox.h"
#include "tools/clientcomm/check/library_cache.h"
#include "tools/clientcomm/check/shared_libraries.h"

// What a program says about its loading, and how its libraries are found.

namespace {

using clientcomm::tool::ElfFile;
using clientcomm::tool::isArchitectureOfThisMachine;
using clientcomm::tool::libraryCacheFromBytes;
using clientcomm::tool::LibraryPlaces;
using clientcomm::tool::missingLibraries;
using clientcomm::tool::readElfFile;

// The parts of a program of 64 bits that a loader reads, at fixed places.
struct Image {
  Elf64_Ehdr header{};
  Elf64_Phdr segments[2]{};
  Elf64_Dyn dynamic[8]{};
  char texts[256]{};

  Image() {
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = ELFCLASS64;
    header.e_ident[EI_DATA] =
        std::endian::native == std::endian::little ? ELFDATA2LSB : ELFDATA2MSB;
    header.e_type = ET_DYN;
    header.e_machine = EM_X86_64;
    header.e_phoff = offsetof(Image, segments);
    header.e_phentsize = sizeof(Elf64_Phdr);
    header.e_phnum = 2;
    segments[0].p_type = PT_LOAD;
    segments[0].p_filesz = sizeof(Image);
    segments[1].p_type = PT_DYNAMIC;
    segments[1].p_offset = offsetof(Image, dynamic);
    segments[1].p_filesz = sizeof dynamic;
    add(DT_STRTAB, offsetof(Image, texts));
  }

  void add(Elf64_Sxword tag, Elf64_Xword value) {
    dynamic[entries].d_tag = tag;
    dynamic[entries++].d_un.d_val = value;
  }

  void add(Elf64_Sxword tag, const std::string& text) {
    add(tag, static_cast<Elf64_Xword>(used));
    std::memcpy(texts + used, text.c_str(), text.size() + 1);
    used += text.size() + 1;
  }

  std::string bytes() const { return {reinterpret_cast<const char*>(this), sizeof *this}; }

  std::size_t entries = 0;
  std::size_t used = 0;
};

std::string write(const std::string& name, const std::string& bytes) {
  std::string path = support::sandbox() + "/" + name;
  support::writeFile(path, bytes);
  return path;
}

std::string writeLibrary(const std::string& name, const std::vector<std::string>& needed) {
  Image image;
  for (const auto& each : needed) image.add(DT_NEEDED, each);
  return write(name, image.bytes());
}

std::vector<std::string> missingOf(const std::string& program, const LibraryPlaces& places) {
  const auto file = readElfFile(program);
  EXPECT_TRUE(file);
  std::vector<std::string> names;
  for (const auto& each : missingLibraries(program, file.value_or(ElfFile()), places)) {
    names.push_back(each.name);
  }
  return names;
}

TEST(ElfFile, SaysWhatItIsAndNeeds) {
  Image image;
  image.add(DT_NEEDED, "libone.so.1");
  image.add(DT_NEEDED, "libtwo.so.2");
  image.add(DT_RUNPATH, "$ORIGIN/../Frameworks");
  const auto file = readElfFile(write("program", image.bytes()));
  ASSERT_TRUE(file);
  EXPECT_TRUE(file->is64Bit);
  EXPECT_EQ(file->machine, EM_X86_64);
  EXPECT_EQ(file->libraries, (std::vector<std::string>{"libone.so.1", "libtwo.so.2"}));
  EXPECT_EQ(file->runPath, "$ORIGIN/../Frameworks");
}

TEST(ElfFile, OfThisTestIsOneOfThisMachine) {
  const auto own = readElfFile("/proc/self/exe");
  ASSERT_TRUE(own);
  EXPECT_TRUE(isArchitectureOfThisMachine(*own));
  EXPECT_FALSE(own->loader.empty());
  EXPECT_TRUE(std::any_of(own->libraries.begin(), own->libraries.end(),
                          [](const auto& name) { return name.starts_with("libglib-2.0"); }));
  EXPECT_EQ(missingOf("/proc/self/exe", LibraryPlaces::ofSystem("")), std::vector<std::string>());
}

TEST(ElfFile, ForTheOtherByteOrderTellsItsMachine) {
  Image image;
  image.header.e_ident[EI_DATA] =
      image.header.e_ident[EI_DATA] == ELFDATA2LSB ? ELFDATA2MSB : ELFDATA2LSB;
  image.header.e_machine = static_cast<Elf64_Half>(EM_S390 << 8);
  const auto file = readElfFile(write("program", image.bytes()));
  ASSERT_TRUE(file);
  EXPECT_EQ(file->machine, EM_S390);
  EXPECT_FALSE(isArchitectureOfThisMachine(*file));
}

TEST(ElfFile, IsNothingElse) {
  EXPECT_FALSE(readElfFile(write("text", "#!/bin/sh")));
  EXPECT_FALSE(readElfFile(write("empty", "")));
  EXPECT_FALSE(readElfFile("/dev/zero"));
  EXPECT_FALSE(readElfFile(support::sandbox()));
  EXPECT_FALSE(readElfFile(support::sandbox() + "/missing"));
  const std::string pipe = support::sandbox() + "/pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_FALSE(readElfFile(pipe));
}

TEST(ElfFile, OfAnyContentIsReadWithinItsBounds) {
  Image image;
  image.add(DT_NEEDED, "libone.so.1");
  image.add(DT_RPATH, "/folder");
  const std::string bytes = image.bytes();
  std::mt19937 random(1);
  for (int i = 0; i < 2000; ++i) {
    std::string changed = bytes;
    for (int k = 0; k < 3; ++k) changed[random() % changed.size()] = static_cast<char>(random());
    changed.resize(random() % 2 == 0 ? changed.size() : random() % changed.size());
    static_cast<void>(readElfFile(write("changed", changed)));
  }
}

TEST(SharedLibraries, AreFoundByTheRunPathOfTheirUser) {
  Image image;
  image.add(DT_NEEDED, "libone.so.1");
  image.add(DT_RUNPATH, "/nowhere:$ORIGIN/../Frameworks");
  const std::string program = write("Linux/program", image.bytes());
  EXPECT_EQ(missingOf(program, {}), std::vector<std::string>{"libone.so.1"});
  writeLibrary("Frameworks/libone.so.1", {"libtwo.so.1"});
  EXPECT_EQ(missingOf(program, {}), std::vector<std::string>{"libtwo.so.1"})
      << "a run path is not for the libraries of a library";
}

TEST(SharedLibraries, AreFoundInAllPlacesOfTheSystem) {
  const std::string program =
      writeLibrary("program", {"libone.so", "libtwo.so", "libthree.so", "libfour.so"});
  writeLibrary("environment/libone.so", {});
  writeLibrary("system/libtwo.so", {"libone.so"});
  const std::string cached = writeLibrary("cached/libthree-3.so", {});
  const LibraryPlaces places{{support::sandbox() + "/environment"},
                             {{"libthree.so", cached}},
                             {support::sandbox() + "/system"}};
  EXPECT_EQ(missingOf(program, places), std::vector<std::string>{"libfour.so"});
}

TEST(SharedLibraries, OfAnotherArchitectureArePassedOver) {
  const std::string program = writeLibrary("program", {"libone.so"});
  Image other;
  other.header.e_machine = EM_AARCH64;
  write("first/libone.so", other.bytes());
  const LibraryPlaces places{
      {}, {}, {support::sandbox() + "/first", support::sandbox() + "/second"}};
  EXPECT_EQ(missingOf(program, places), std::vector<std::string>{"libone.so"});
  writeLibrary("second/libone.so", {});
  EXPECT_EQ(missingOf(program, places), std::vector<std::string>());
}

TEST(SharedLibraries, ThatNeedEachOtherAreReadOnce) {
  const std::string program = writeLibrary("program", {"libone.so"});
  writeLibrary("libone.so", {"libtwo.so"});
  writeLibrary("libtwo.so", {"libone.so"});
  EXPECT_EQ(missingOf(program, {{}, {}, {support::sandbox()}}), std::vector<std::string>());
}

TEST(LibraryCache, OfAnyContentIsReadWithinItsBounds) {
  std::string bytes = "older cache glibc-ld.so.cache1.1";
  bytes += std::string("\x01\0\0\0", 4) + std::string(24, '\0');
  bytes += std::string("\x01\0\0\0\x48\0\0\0\x52\0\0\0", 12) + std::string(12, '\0');
  bytes += std::string("libone.so\0/lib/libone.so", 25);
  if (std::endian::native == std::endian::little) {
    EXPECT_EQ(libraryCacheFromBytes(bytes),
              (std::multimap<std::string, std::string>{{"libone.so", "/lib/libone.so"}}));
  }
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    static_cast<void>(libraryCacheFromBytes(bytes.substr(0, size)));
  }
  std::string many = bytes;
  many[32] = many[33] = many[34] = many[35] = '\xff';
  static_cast<void>(libraryCacheFromBytes(many));
}

}  // namespace
