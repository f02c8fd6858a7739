#include "ClientComm/platform/dictionary.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace {

using clientcomm::PropertyListDictionary;

const PropertyListDictionary kDictionary = {
    {"text", "Notes"},
    {"flag", true},
    {"flagText", "YES"},
    {"number", std::int64_t{7}},
    {"negative", std::int64_t{-7}},
    {"large", std::numeric_limits<std::uint64_t>::max()},
    {"real", 7.0},
};

TEST(Dictionary, GivesTheValueOfAKeyAndNullWithoutIt) {
  ASSERT_NE(valueFor(kDictionary, "flag"), nullptr);
  EXPECT_EQ(*valueFor(kDictionary, "flag"), clientcomm::PropertyListValue(true));
  EXPECT_EQ(valueFor(kDictionary, "absent"), nullptr);
}

TEST(Dictionary, GivesAStringOnlyForAString) {
  EXPECT_EQ(stringFor(kDictionary, "text"), "Notes");
  EXPECT_EQ(stringFor(kDictionary, "number"), std::nullopt);
  EXPECT_EQ(stringFor(kDictionary, "absent"), std::nullopt);
}

TEST(Dictionary, ReadsAFlagAsPropertyListsDoAndAnAbsentOneAsFalse) {
  EXPECT_TRUE(flagFor(kDictionary, "flag"));
  EXPECT_TRUE(flagFor(kDictionary, "flagText"));
  EXPECT_TRUE(flagFor(kDictionary, "number"));
  EXPECT_FALSE(flagFor(kDictionary, "text"));
  EXPECT_FALSE(flagFor(kDictionary, "absent"));
}

TEST(Dictionary, GivesANumberOfEitherIntegerTypeUnlessItIsNegative) {
  EXPECT_EQ(unsignedFor(kDictionary, "number"), 7U);
  EXPECT_EQ(unsignedFor(kDictionary, "large"), std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(unsignedFor(kDictionary, "negative"), std::nullopt);
  EXPECT_EQ(unsignedFor(kDictionary, "real"), std::nullopt);
  EXPECT_EQ(unsignedFor(kDictionary, "absent"), std::nullopt);
}

}  // namespace
