#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/file_tree.h"
#include "tests/support/test_sandbox.h"

namespace {

using Names = std::vector<std::string>;

class FileTreeConformance : public testing::Test {
 protected:
  Names contents() const {
    Names names = clientcomm::contentsOfDirectoryAtPath(folder_);
    std::sort(names.begin(), names.end());
    return names;
  }

  const std::string folder_ = support::sandbox() + "/tree";
};

TEST_F(FileTreeConformance, MakesAFolderWithThoseAboveItAndTakesOneThatIsThere) {
  EXPECT_FALSE(clientcomm::createDirectoryAtPath(folder_ + "/a/b"));
  EXPECT_TRUE(support::isFolder(folder_ + "/a/b"));
  EXPECT_FALSE(clientcomm::createDirectoryAtPath(folder_ + "/a//b/"));
}

TEST_F(FileTreeConformance, MakesNoFolderBelowAFile) {
  support::writeFile(folder_ + "/file", "text");
  const auto error = clientcomm::createDirectoryAtPath(folder_ + "/file/below");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, clientcomm::kFileErrorDomain);
  EXPECT_EQ(support::readFile(folder_ + "/file"), "text");
}

TEST_F(FileTreeConformance, CopiesATreeWholeAndLeavesTheSource) {
  support::writeFile(folder_ + "/from/deep/file", "bytes");
  ASSERT_TRUE(clientcomm::copyPath(folder_ + "/from", folder_ + "/to").isOk());
  EXPECT_EQ(support::readFile(folder_ + "/to/deep/file"), "bytes");
  EXPECT_EQ(support::readFile(folder_ + "/from/deep/file"), "bytes");
  EXPECT_EQ(contents(), (Names{"from", "to"})) << "nothing of the copying is left";
}

TEST_F(FileTreeConformance, CopiesNothingOverWhatIsThereAndNothingThatIsMissing) {
  support::writeFile(folder_ + "/from", "new");
  support::writeFile(folder_ + "/to", "old");
  EXPECT_FALSE(clientcomm::copyPath(folder_ + "/from", folder_ + "/to").isOk());
  EXPECT_EQ(support::readFile(folder_ + "/to"), "old");
  EXPECT_FALSE(clientcomm::copyPath(folder_ + "/missing", folder_ + "/copy").isOk());
  EXPECT_FALSE(clientcomm::fileExistsAtPath(folder_ + "/copy"));
}

TEST_F(FileTreeConformance, RemovesATreeAndNothingBesideIt) {
  support::writeFile(folder_ + "/tree/deep/file", "");
  support::writeFile(folder_ + "/tree.txt", "");
  EXPECT_TRUE(clientcomm::removeItemAtPath(folder_ + "/tree").isOk());
  EXPECT_EQ(contents(), Names{"tree.txt"});
  EXPECT_TRUE(clientcomm::removeItemAtPath(folder_ + "/tree").isOk())
      << "nothing to remove is no error";
}

TEST_F(FileTreeConformance, ListsTheEntriesOfAFolderAlone) {
  support::writeFile(folder_ + "/a/below", "");
  support::writeFile(folder_ + "/.hidden", "");
  EXPECT_EQ(contents(), (Names{".hidden", "a"}));
  EXPECT_EQ(clientcomm::contentsOfDirectoryAtPath(folder_ + "/missing"), Names{});
}

TEST_F(FileTreeConformance, ExpandsATildeAloneAndBeforeASlash) {
  const std::string home = clientcomm::stringByExpandingTildeInPath("~");
  EXPECT_TRUE(support::isFolder(home)) << home;
  EXPECT_EQ(clientcomm::stringByExpandingTildeInPath("~/x"), home + "/x");
  EXPECT_EQ(clientcomm::stringByExpandingTildeInPath("/~/~x"), "/~/~x");
}

}  // namespace
