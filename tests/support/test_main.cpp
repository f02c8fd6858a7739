#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

#include "tests/support/supervisor.h"

namespace {

bool wantsListOnly(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (std::string_view(argv[i]) == "--gtest_list_tests") return true;
  }
  return false;
}

/// Ends the program by SIGALRM when one test takes longer than CTest allows any. CTest ends it too;
/// this is for a suite that runs by itself, where a wait without an end would last for ever. What
/// the test started ends with it.
class TestLimit : public testing::EmptyTestEventListener {
 public:
  void OnTestStart(const testing::TestInfo& /*test*/) override { alarm(kLimit); }
  void OnTestEnd(const testing::TestInfo& /*test*/) override { alarm(0); }

 private:
  static constexpr unsigned kLimit = 900;  // seconds
};

int runTests(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  // Stress tests of the full size take hours.
  if (std::getenv("CLIENTCOMM_STRESS") == nullptr) {
    testing::UnitTest::GetInstance()->listeners().Append(new TestLimit);
  }
  return RUN_ALL_TESTS();
}

}  // namespace

int main(int argc, char** argv) {
  // What the tests are called can be told without a private folder.
  return wantsListOnly(argc, argv) ? runTests(argc, argv)
                                   : support::runSupervised(argc, argv, runTests);
}
