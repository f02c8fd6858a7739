#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "tests/integration/tool/tool_fixture.h"
#include "tests/support/test_sandbox.h"

// `clientcomm new`. That its projects build and run is tested against an installation, by
// package.tool.

namespace {

namespace fs = std::filesystem;
using tool_test::run;

std::string at(const std::string& name) { return support::sandbox() + "/" + name; }

TEST(New, WritesAWholeProject) {
  for (const std::string kind : {"host", "helper"}) {
    const auto outcome =
        run({"new", kind, at(kind), "--identifier=com.example.some", "--name=Some Name", "--json"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    const auto document = outcome.json();
    for (const auto& file : document["files"]) {
      const std::string text = support::readFile(file.get<std::string>());
      EXPECT_FALSE(text.empty()) << file;
      EXPECT_EQ(text.find('@'), std::string::npos) << file;
    }
    const std::string project = support::readFile(at(kind + "/CMakeLists.txt"));
    EXPECT_NE(project.find("NAME \"Some Name\"\n  IDENTIFIER com.example.some\n"),
              std::string::npos)
        << project;
  }
}

TEST(New, TakesAnEmptyFolderAndNoOther) {
  fs::create_directories(at("empty"));
  EXPECT_EQ(run({"new", "helper", at("empty")}).status, 0);
  const std::string before = support::readFile(at("empty/CMakeLists.txt"));
  const auto again = run({"new", "host", at("empty")});
  EXPECT_EQ(again.status, 1);
  EXPECT_NE(again.errors.find("is not empty"), std::string::npos) << again.errors;
  EXPECT_EQ(support::readFile(at("empty/CMakeLists.txt")), before);
  EXPECT_FALSE(fs::exists(at("empty/host.cpp")));
}

TEST(New, FailsWhereNothingCanBeWritten) {
  support::writeFile(at("file"), "");
  EXPECT_EQ(run({"new", "host", at("file")}).status, 1);
  EXPECT_EQ(run({"new", "host", at("file/below")}).status, 1);
  fs::create_directory(at("sealed"));
  chmod(at("sealed").c_str(), 0555);
  EXPECT_EQ(run({"new", "host", at("sealed")}, tool_test::loseRightsOfRoot).status, 1);
}

TEST(New, RefusesWhatABuildWouldNotTake) {
  for (const char* identifier : {"", "nodot", ".a.b", "a.b.", "a b.c", "a;b.c", "a.b/c", "ä.b"}) {
    EXPECT_EQ(run({"new", "host", at("a"), std::string("--identifier=") + identifier}).status, 2)
        << identifier;
  }
  for (const char* name : {"", " a", "a ", "a/b", "a;b", "a\"b", "$HOME", "a\nb", ".a"}) {
    EXPECT_EQ(run({"new", "host", at("a"), std::string("--name=") + name}).status, 2) << name;
  }
  EXPECT_EQ(run({"new", "service", at("a")}).status, 2);
  EXPECT_FALSE(fs::exists(at("a")));
}

}  // namespace
