#include "ClientComm/platform/types.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <vector>

namespace {

using clientcomm::OSErr;

// Hosts compare with the numbers, and helpers built with other versions of the library send them.
TEST(Types, StatusesHaveTheNumbersThatHostsAndHelpersExchange) {
  const std::vector<OSErr> statuses = {clientcomm::noErr,
                                       clientcomm::paramErr,
                                       clientcomm::memFullErr,
                                       clientcomm::procNotFound,
                                       clientcomm::connectionInvalid,
                                       clientcomm::errAEEventNotHandled,
                                       clientcomm::errAETimeout,
                                       clientcomm::errAEEventNotPermitted};
  EXPECT_EQ(statuses, (std::vector<OSErr>{0, -50, -108, -600, -609, -1708, -1712, -1743}));
}

TEST(Types, AStatusHas16BitsAndASign) {
  EXPECT_EQ(sizeof(OSErr), 2U);
  EXPECT_TRUE(std::is_signed_v<OSErr>);
}

}  // namespace
