#include <gtest/gtest.h>

#include <string_view>

#include "tests/support/supervisor.h"

namespace {

bool wantsListOnly(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (std::string_view(argv[i]) == "--gtest_list_tests") return true;
  }
  return false;
}

int runTests(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}

}  // namespace

int main(int argc, char** argv) {
  // What the tests are called can be told without a private folder.
  return wantsListOnly(argc, argv) ? runTests(argc, argv)
                                   : support::runSupervised(argc, argv, runTests);
}
