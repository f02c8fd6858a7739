#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <string>

#include "ClientComm/TQHPHelperError.h"
#include "ClientComm/platform/runtime.h"

namespace {

using UserInfo = std::map<std::string, std::string>;

TEST(HelperError, CarriesTheDomainTheCodeAndTheDescriptionAlone) {
  const clientcomm::Error error = TQHPHelperError::errorWithCode("42", "disk full");
  EXPECT_EQ(error.domain, "HelperCommunicateErrorDomain");
  EXPECT_EQ(error.code, 42);
  EXPECT_EQ(error.userInfo, (UserInfo{{"HelperCommunicateErrorDescription", "disk full"}}));
}

TEST(HelperError, TheDescriptionIsKeptUnchanged) {
  for (const std::string& text : {std::string(), std::string(" x\n"), std::string("a\0b", 3),
                                  std::string("\xFF\xFE"), std::string(100000, 'd')}) {
    EXPECT_EQ(TQHPHelperError::errorWithCode("1", text).userInfo,
              (UserInfo{{"HelperCommunicateErrorDescription", text}}));
  }
}

TEST(HelperError, ACodeCanBeNegative) {
  EXPECT_EQ(TQHPHelperError::errorWithCode("-7", "d").code, -7);
}

TEST(HelperError, ACodeWithoutLeadingDigitsIsZero) {
  EXPECT_EQ(TQHPHelperError::errorWithCode("x7", "d").code, 0);
  EXPECT_EQ(TQHPHelperError::errorWithCode("", "d").code, 0);
  EXPECT_EQ(TQHPHelperError::errorWithCode(std::nullopt, "d").code, 0);
}

TEST(HelperError, OnlyTheLeadingIntegerOfTheCodeCounts) {
  EXPECT_EQ(TQHPHelperError::errorWithCode(" 12 apples", "d").code, 12);
  EXPECT_EQ(TQHPHelperError::errorWithCode("3.9", "d").code, 3);
}

TEST(HelperError, ACodeOutOfRangeSaturates) {
  EXPECT_EQ(TQHPHelperError::errorWithCode("99999999999", "d").code,
            std::numeric_limits<std::int32_t>::max());
  EXPECT_EQ(TQHPHelperError::errorWithCode("-99999999999", "d").code,
            std::numeric_limits<std::int32_t>::min());
}

TEST(HelperError, WithoutADescriptionItRaises) {
  EXPECT_THROW(TQHPHelperError::errorWithCode("1", std::nullopt),
               clientcomm::InvalidArgumentException);
}

}  // namespace
