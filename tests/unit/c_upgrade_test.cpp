// The upgrade delegate of the C interface.

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "ClientComm/clientcomm.h"
#include "tests/support/recording_transport.h"

namespace {

using support::RecordingTransport;

using Strings = std::vector<std::string>;

constexpr char kReady[] = "productReadyToUpgrade:versionID:ready:";

/// What a program keeps for its delegate.
struct Listener {
  Strings told;
  int destroyed = 0;
  clientcomm_upgrade_delegate* delegate = nullptr;
  std::function<void()> whenTold;
};

void willUpgrade(void* context, const clientcomm_error* error) {
  auto& listener = *static_cast<Listener*>(context);
  listener.told.push_back(
      error == nullptr ? "upgrade"
                       : std::string(error->domain.bytes, error->domain.length) + " " +
                             std::to_string(error->code) + " " +
                             std::string(error->description.bytes, error->description.length));
  if (listener.whenTold) listener.whenTold();
}

void destroy(void* context) { ++static_cast<Listener*>(context)->destroyed; }

class CUpgrade : public testing::Test {
 protected:
  CUpgrade() {
    EXPECT_EQ(clientcomm_start(), CLIENTCOMM_OK);
    set(listener_);
    recorder_.forget();
  }
  // The library must not have the address of a listener that is gone.
  ~CUpgrade() override { clientcomm_upgrade_delegate_release(listener_.delegate); }

  static void set(Listener& listener) {
    EXPECT_EQ(clientcomm_set_upgrade_delegate(willUpgrade, &listener, destroy, &listener.delegate),
              CLIENTCOMM_OK);
  }

  /// The helper's call-back.
  void callBack(const std::string& code = "0", const std::string& description = "") {
    recorder_.call("TQHPUpgradeByHelper",
                   "productUpgradeCallBack::::", {"", "", code, description});
  }

  RecordingTransport& recorder_ = RecordingTransport::install();
  Listener listener_;
};

TEST_F(CUpgrade, ToldOfAnUpgradeItAnswersInsideTheCall) {
  listener_.whenTold = [] { EXPECT_EQ(clientcomm_ready_to_upgrade(true), CLIENTCOMM_OK); };
  callBack();
  callBack();
  EXPECT_EQ(listener_.told, (Strings{"upgrade", "upgrade"}));
  EXPECT_EQ(recorder_.countOf(kReady), 2);
  EXPECT_EQ(recorder_.last().arguments.back(), "1");
}

TEST_F(CUpgrade, ToldOfAnErrorItSeesDomainCodeAndDescription) {
  callBack("12", "no space");
  EXPECT_EQ(listener_.told, Strings{"HelperCommunicateErrorDomain 12 no space"});
}

TEST_F(CUpgrade, ReleasedItIsToldNoMoreAndDestroyedOnce) {
  EXPECT_EQ(clientcomm_upgrade_delegate_release(listener_.delegate), CLIENTCOMM_OK);
  EXPECT_EQ(listener_.destroyed, 1);
  callBack();
  EXPECT_TRUE(listener_.told.empty());
  EXPECT_EQ(clientcomm_upgrade_delegate_release(listener_.delegate), CLIENTCOMM_STALE_HANDLE);
  EXPECT_EQ(listener_.destroyed, 1);
}

TEST_F(CUpgrade, ReleasesItselfWhileItIsToldAndIsDestroyedAfterwards) {
  int destroyedInside = 0;
  listener_.whenTold = [&] {
    EXPECT_EQ(clientcomm_upgrade_delegate_release(listener_.delegate), CLIENTCOMM_OK);
    destroyedInside = listener_.destroyed;
    EXPECT_EQ(clientcomm_ready_to_upgrade(false), CLIENTCOMM_OK);
  };
  callBack();
  EXPECT_EQ(destroyedInside, 0);
  EXPECT_EQ(listener_.destroyed, 1);
  callBack();
  EXPECT_EQ(listener_.told, Strings{"upgrade"});
}

TEST_F(CUpgrade, ReplacesItselfWhileItIsTold) {
  Listener next;
  listener_.whenTold = [&] {
    set(next);
    clientcomm_upgrade_delegate_release(listener_.delegate);
    clientcomm_ready_to_upgrade(true);
  };
  callBack();
  callBack();
  EXPECT_EQ(listener_.told, Strings{"upgrade"});
  EXPECT_EQ(listener_.destroyed, 1);
  EXPECT_EQ(next.told, Strings{"upgrade"});
  EXPECT_EQ(clientcomm_upgrade_delegate_release(next.delegate), CLIENTCOMM_OK);
}

TEST_F(CUpgrade, ReleasedAfterItWasReplacedItLeavesTheOtherInPlace) {
  Listener next;
  set(next);
  EXPECT_EQ(clientcomm_upgrade_delegate_release(listener_.delegate), CLIENTCOMM_OK);
  callBack();
  EXPECT_TRUE(listener_.told.empty());
  EXPECT_EQ(next.told, Strings{"upgrade"});
  EXPECT_EQ(clientcomm_upgrade_delegate_release(next.delegate), CLIENTCOMM_OK);
}

TEST_F(CUpgrade, AnExceptionOfItEndsWithItsCall) {
  listener_.whenTold = [] { throw std::runtime_error("any"); };
  callBack();
  EXPECT_EQ(clientcomm_ready_to_upgrade(true), CLIENTCOMM_OK);
  listener_.whenTold = nullptr;
  callBack();
  EXPECT_EQ(listener_.told, (Strings{"upgrade", "upgrade"}));
}

TEST_F(CUpgrade, WithoutAFunctionItIsRefusedAndNotDestroyed) {
  Listener other;
  EXPECT_EQ(clientcomm_set_upgrade_delegate(nullptr, &other, destroy, &other.delegate),
            CLIENTCOMM_BAD_ARGUMENT);
  EXPECT_EQ(clientcomm_set_upgrade_delegate(willUpgrade, &other, destroy, nullptr),
            CLIENTCOMM_BAD_ARGUMENT);
  EXPECT_EQ(other.delegate, nullptr);
  EXPECT_EQ(other.destroyed, 0);
  callBack();
  EXPECT_EQ(listener_.told, Strings{"upgrade"});
}

}  // namespace
