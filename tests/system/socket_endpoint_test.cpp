#include "ClientComm/platform/linux/socket_endpoint.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <chrono>

#include "ClientComm/platform/wire_format.h"
#include "tests/support/test_sandbox.h"

namespace {

using clientcomm::SocketEndpoint;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// When the main context wakes up next though nothing arrives, at the latest.
Clock::time_point nextWakeUp() {
  GMainContext* const context = g_main_context_default();
  g_main_context_acquire(context);
  gint priority = 0;
  gint timeout = 0;
  g_main_context_prepare(context, &priority);
  g_main_context_query(context, priority, &timeout, nullptr, 0);
  g_main_context_release(context);
  return timeout < 0 ? Clock::time_point::max() : Clock::now() + milliseconds(timeout);
}

TEST(SocketEndpoint, OfASenderThatIsPunctualDoesNotWakeUpToLookAtItsFiles) {
  constexpr auto kPause = clientcomm::kIdleVerifyInterval + milliseconds(100);
  SocketEndpoint endpoint("com.example.ticking", [](auto&&...) { return clientcomm::noErr; });
  const auto opened = Clock::now();
  ASSERT_EQ(endpoint.open(), clientcomm::noErr);
  EXPECT_GE(nextWakeUp(), opened + kPause);
  ASSERT_TRUE(support::waitUntil(
      [&] { return Clock::now() >= opened + clientcomm::kVerifyInterval + milliseconds(100); }));
  const auto sent = Clock::now();
  endpoint.verify();
  EXPECT_GE(nextWakeUp(), sent + kPause);
}

}  // namespace
