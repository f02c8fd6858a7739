#include "ClientComm/platform/shared_object.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using clientcomm::SharedObject;
using clientcomm::SharedObjects;

std::vector<std::string>& destroyed() {
  static std::vector<std::string> names;
  return names;
}

struct Named {
  explicit Named(const char* text) : name(text) {}
  ~Named() { destroyed().push_back(name); }
  Named(const Named&) = delete;
  Named& operator=(const Named&) = delete;
  std::string name;
};

class SharedObjectTest : public testing::Test {
 protected:
  SharedObjectTest() { destroyed().clear(); }
};

TEST_F(SharedObjectTest, IsMadeOnceOnFirstUse) {
  static SharedObject<Named> shared;
  EXPECT_EQ(shared.existing(), nullptr);
  Named& first = shared.get([] { return new Named("first"); });
  EXPECT_EQ(&shared.get([] { return new Named("second"); }), &first);
  EXPECT_EQ(shared.existing(), &first);
}

TEST_F(SharedObjectTest, IsDestroyedBeforeThoseThatWereThereAlready) {
  static SharedObject<Named> older;
  static SharedObject<Named> newer;
  older.get([] { return new Named("older"); });
  newer.get([] { return new Named("newer"); });
  SharedObjects::destroyAll();
  EXPECT_EQ(destroyed(), (std::vector<std::string>{"newer", "older"}));
  EXPECT_EQ(older.existing(), nullptr);
}

TEST_F(SharedObjectTest, IsMadeAnewAfterItsDestruction) {
  static SharedObject<Named> shared;
  shared.get([] { return new Named("first"); });
  SharedObjects::destroyAll();
  EXPECT_EQ(shared.get([] { return new Named("second"); }).name, "second");
}

TEST_F(SharedObjectTest, IsDestroyedAlsoWhereAnotherOnesDestructionMakesIt) {
  static SharedObject<Named> late;
  SharedObjects::add([] { late.get([] { return new Named("late"); }); });
  SharedObjects::destroyAll();
  EXPECT_EQ(late.existing(), nullptr);
  EXPECT_EQ(destroyed(), std::vector<std::string>{"late"});
}

}  // namespace
