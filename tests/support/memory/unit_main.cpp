#include <gtest/gtest.h>

#include "tests/support/memory/memory_system.h"

namespace {

/// Gives each test a system of its own.
class FreshSystem : public testing::EmptyTestEventListener {
 public:
  void OnTestStart(const testing::TestInfo& /*test*/) override { support::MemorySystem::reset(); }
};

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  testing::UnitTest::GetInstance()->listeners().Append(new FreshSystem);
  return RUN_ALL_TESTS();
}
