#include "benchmarks/idle.h"

#include <glib.h>
#include <unistd.h>

#include <cstdio>

#include "ClientComm/TQHPHelper.h"
#include "benchmarks/support/process_status.h"
#include "benchmarks/support/product.h"

namespace bench {
namespace {

void runMainLoopFor(int seconds) {
  GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
  const auto quit = [](gpointer data) -> gboolean {
    g_main_loop_quit(static_cast<GMainLoop*>(data));
    return G_SOURCE_REMOVE;
  };
  g_timeout_add(static_cast<guint>(seconds) * 1000, quit, loop);
  g_main_loop_run(loop);
  g_main_loop_unref(loop);
}

void print(const char* who, const ProcessorUse& before, const ProcessorUse& after, int seconds) {
  constexpr double kSecondsPerDay = 86400;
  const double days = seconds / kSecondsPerDay;
  std::printf(
      "    {\"process\": \"%s\", \"cpu_seconds\": %.6f, \"wake_ups\": %.0f, "
      "\"cpu_seconds_per_day\": %.3f, \"wake_ups_per_day\": %.0f}",
      who, after.seconds - before.seconds, after.wakeUps - before.wakeUps,
      (after.seconds - before.seconds) / days, (after.wakeUps - before.wakeUps) / days);
}

}  // namespace

int measureIdling(int seconds) {
  embedHelper("TestHost");
  TQHPHelper::share();
  const pid_t helper = helperProcess();
  if (helper == 0) return 1;
  runMainLoopFor(1);
  const ProcessorUse hostBefore = processorUseOf(getpid());
  const ProcessorUse helperBefore = processorUseOf(helper);
  runMainLoopFor(seconds);
  std::printf("{\n  \"seconds\": %d,\n  \"processes\": [\n", seconds);
  print("host", hostBefore, processorUseOf(getpid()), seconds);
  std::printf(",\n");
  print("helper", helperBefore, processorUseOf(helper), seconds);
  std::printf("\n  ]\n}\n");
  return 0;
}

}  // namespace bench
