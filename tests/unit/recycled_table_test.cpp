#include "ClientComm/platform/recycled_table.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tests/support/allocation_count.h"

namespace {

using Table = std::vector<std::uint64_t, clientcomm::RecyclingAllocator<std::uint64_t>>;

// In numbers of 8 bytes.
constexpr std::size_t kSmall = 100;
constexpr std::size_t kUsual = 500;
constexpr std::size_t kLarge = 5000;

/// How often memory is allocated for a table of `count` numbers.
std::uint64_t allocationsFor(std::size_t count) {
  const std::uint64_t before = support::allocationCount();
  const Table table(count, 7);
  EXPECT_EQ(table.back(), 7U);
  return support::allocationCount() - before;
}

TEST(RecycledTable, OneIsKeptForTheNext) {
  allocationsFor(kUsual);
  EXPECT_EQ(allocationsFor(kUsual), 0U);
  EXPECT_EQ(allocationsFor(kUsual / 2), 0U);
}

TEST(RecycledTable, OneThatIsTooSmallIsReplaced) {
  allocationsFor(kUsual);
  allocationsFor(kUsual / 2);
  EXPECT_EQ(allocationsFor(kUsual + 100), 1U);
  EXPECT_EQ(allocationsFor(kUsual + 100), 0U);
}

TEST(RecycledTable, NoneIsKeptThatIsLargeOrSmall) {
  allocationsFor(kLarge);
  EXPECT_EQ(allocationsFor(kLarge), 1U);
  allocationsFor(kSmall);
  EXPECT_EQ(allocationsFor(kSmall), 1U);
}

TEST(RecycledTable, TwoAtATimeAreApart) {
  allocationsFor(kUsual);
  Table outer(kUsual, 1);
  {
    const Table inner(kUsual, 2);
    EXPECT_NE(inner.data(), outer.data());
  }
  EXPECT_EQ(outer, Table(kUsual, 1));
}

}  // namespace
