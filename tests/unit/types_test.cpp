#include "ClientComm/platform/types.h"

#include <gtest/gtest.h>

TEST(Types, NilAndEmptyStringAreDifferentValues) {
  EXPECT_NE(clientcomm::OptionalString(), clientcomm::OptionalString(""));
}
