#include "ClientComm/platform/types.h"

#include <gtest/gtest.h>

TEST(Types, NilAndEmptyStringAreDifferentValues) {
  EXPECT_NE(platform::OptionalString(), platform::OptionalString(""));
}
