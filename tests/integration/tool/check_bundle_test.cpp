#include <elf.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <string>

#include "ClientComm/platform/property_list.h"
#include "tests/integration/tool/check_fixture.h"
#include "tests/integration/tool/tool_fixture.h"
#include "tests/support/test_host.h"
#include "tests/support/test_sandbox.h"

// What `clientcomm check` says to mistakes in the bundles of a host and its helper.

namespace {

namespace fs = std::filesystem;
using check_test::at;
using check_test::changeHostInfo;
using check_test::changeInfo;
using check_test::embedded;
using check_test::embeddedProgram;
using check_test::patchProgram;
using check_test::Row;

constexpr char kName[] = "Helepr App name";
constexpr char kFolder[] = "Helper loaction path";
constexpr char kIdentifier[] = "Helper Bundle indentifiter";

std::string hostInfo() { return support::hostBundlePath() + "/Contents/Info.plist"; }

Row missingKey(const char* name, const char* key) {
  return {name, [key] { changeHostInfo({key}); }, {"info-key-missing"}};
}

Row misspeltKey(const char* name, const char* key, const char* found) {
  return {name,
          [key, found] {
            changeHostInfo({key}, {{found, support::defaultHostInfo().at(key)}});
          },
          {"info-key-misspelt"}};
}

void replaceInProgram(const std::string& text, const std::string& by) {
  patchProgram([&](std::string& bytes) {
    const std::size_t place = bytes.find(text);
    ASSERT_NE(place, std::string::npos) << text;
    bytes.replace(place, text.size(), by);
  });
}

const Row kRows[] = {
    {"NothingIsWrong", [] {}, {}, 0},
    {"HostIsNoBundle",
     [] { fs::rename(support::hostBundlePath() + "/Contents", at("elsewhere")); },
     {"host-without-bundle"}},
    {"InfoIsMissing", [] { fs::remove(hostInfo()); }, {"property-list-unreadable"}},
    {"InfoIsMalformed",
     [] {
       fs::remove(hostInfo());
       support::writeFile(hostInfo(), "<plist><dict><key>PID</key>");
     },
     {"property-list-malformed"}},
    {"InfoOfTheHelperIsMalformed",
     [] {
       fs::remove(embedded() + "/Contents/Info.plist");
       support::writeFile(embedded() + "/Contents/Info.plist", "no list");
     },
     {"property-list-malformed"}},
    {"InfoIsALink",
     [] {
       fs::rename(hostInfo(), at("Info.plist"));
       fs::create_symlink(at("Info.plist"), hostInfo());
     },
     {"info-file-refused"}},
    {"InfoIsTooLarge",
     [] {
       changeHostInfo({}, {{"Note", std::string(70000, 'x')}});
     },
     {"info-file-refused"}},
    {"OwnIdentifierIsMissing",
     [] { changeHostInfo({"CFBundleIdentifier"}); },
     {"own-identifier-missing"}},
    {"OwnIdentifierIsTooLong",
     [] {
       changeHostInfo({}, {{"CFBundleIdentifier", std::string(1025, 'x')}});
     },
     {"identifier-too-long"}},
    missingKey("IdentifierIsMissing", kIdentifier),
    missingKey("NameIsMissing", kName),
    missingKey("FolderIsMissing", kFolder),
    missingKey("ProductIDIsMissing", "PID"),
    missingKey("VersionIsMissing", "CFBundleVersion"),
    misspeltKey("IdentifierIsMisspelt", kIdentifier, "Helper Bundle identifier"),
    misspeltKey("NameIsMisspelt", kName, "Helepr App Nmae"),
    misspeltKey("FolderIsMisspelt", kFolder, "Helper lokation path"),
    misspeltKey("BlanksAreMissing", kFolder, "HelperLocationPath"),
    misspeltKey("CaseDiffers", "PID", "Pid"),
    misspeltKey("OwnIdentifierIsMisspelt", "CFBundleIdentifier", "CFBundleIdentifer"),
    {"SwitchIsMisspelt",
     [] {
       changeHostInfo({}, {{"TipEnable", true}});
     },
     {"info-key-misspelt"},
     0},
    {"ValueIsNoText",
     [] {
       changeHostInfo({}, {{"PID", 100}});
     },
     {"info-key-not-text"}},
    {"SecondKeySaysOtherwise",
     [] {
       changeHostInfo({}, {{"Helper App name", "Another Helper"}});
     },
     {"second-key-ignored"},
     0},
    {"SecondKeySaysTheSame",
     [] {
       changeHostInfo({}, {{"Helper App name", "Test Helper"}});
     },
     {},
     0},
    {"InfoCannotBeWritten",
     [] { chmod(hostInfo().c_str(), 0444); },
     {"host-not-writable"},
     0,
     tool_test::loseRightsOfRoot},
    {"RecoveryCopyIsLeft",
     [] {
       const std::string copy = support::hostBundlePath() + "/Contents/.Info.plist.recovery-" +
                                std::to_string(geteuid());
       support::writeFile(copy, "cut short");
       // Until the test ends, as a writer has it: a reader removes one that is not locked.
       flock(open(copy.c_str(), O_RDONLY | O_CLOEXEC), LOCK_EX);
     },
     {"recovery-copy-left"},
     0},
    {"HelperIsNotEmbedded", [] { fs::remove_all(embedded()); }, {"helper-not-embedded"}},
    {"NameHasItsExtension",
     [] {
       changeHostInfo({}, {{kName, "Test Helper.app"}});
     },
     {"helper-not-embedded"}},
    {"IdentifierDiffers",
     [] {
       changeInfo(embedded(), {}, {{"CFBundleIdentifier", "com.example.other"}});
     },
     {"helper-identifier-differs"}},
    {"IdentifierIsTheHosts",
     [] {
       changeHostInfo({}, {{"CFBundleIdentifier", support::helperIdentifier()}});
     },
     {"helper-identifier-of-host"}},
    {"HelperHasNoIdentifier",
     [] { changeInfo(embedded(), {"CFBundleIdentifier"}); },
     {"helper-without-identifier"}},
    {"HelperHasNoVersion",
     [] { changeInfo(embedded(), {"CFBundleVersion"}); },
     {"helper-without-version"},
     0},
    {"ExecutableIsMissing", [] { fs::remove(embeddedProgram()); }, {"executable-missing"}},
    {"ExecutableHasAnotherName",
     [] {
       changeInfo(embedded(), {}, {{"CFBundleExecutable", "Test helper"}});
     },
     {"executable-missing"}},
    {"ExecutableLeadsElsewhere",
     [] {
       changeInfo(embedded(), {}, {{"CFBundleExecutable", "../Linux/Test Helper"}});
     },
     {"executable-missing"}},
    {"ExecutableBitIsMissing",
     [] {
       patchProgram([](std::string&) {});
       chmod(embeddedProgram().c_str(), 0644);
     },
     {"executable-bit-missing"}},
    {"ExecutableIsAScript",
     [] { patchProgram([](std::string& bytes) { bytes = "#!/bin/sh\n"; }); },
     {"executable-is-script"}},
    {"ExecutableIsNoProgram",
     [] { patchProgram([](std::string& bytes) { bytes = "no program"; }); },
     {"executable-not-run"}},
    {"ExecutableIsCutShort",
     [] { patchProgram([](std::string& bytes) { bytes.resize(40); }); },
     {"executable-not-run"}},
    {"ProgramIsForAnotherProcessor",
     [] {
       patchProgram([](std::string& bytes) {
         bytes[offsetof(Elf64_Ehdr, e_machine)] = static_cast<char>(EM_SPARCV9);
       });
     },
     {"architecture-unsupported"}},
    {"LoaderIsMissing", [] { replaceInProgram("/ld-linux", "/ld-minix"); }, {"loader-missing"}},
    {"LibraryIsMissing",
     [] { replaceInProgram("libglib-2.0.so.0", "libglob-2.0.so.0"); },
     {"library-missing"}},
};

const check_test::Rows kRegistered(kRows);

using CheckBundle = check_test::CheckTable;

TEST_P(CheckBundle, IsFoundAndNamed) { runRow(); }

INSTANTIATE_TEST_SUITE_P(Mistake, CheckBundle, testing::ValuesIn(kRows), check_test::nameOf);

}  // namespace
