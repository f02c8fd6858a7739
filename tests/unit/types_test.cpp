#include <gtest/gtest.h>

#include "platform/types.h"

TEST(Types, NilAndEmptyStringAreDifferentValues) {
  EXPECT_NE(platform::OptionalString(), platform::OptionalString(""));
}
