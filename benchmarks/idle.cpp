#include "benchmarks/idle.h"

#include <glib.h>
#include <unistd.h>

#include <cstdio>
#include <vector>

#include "ClientComm/TQHPHelper.h"
#include "benchmarks/support/peers.h"
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
  const support::ChildProcess floor = startTicking();
  const struct {
    const char* name;
    pid_t pid;
  } processes[] = {{"host", getpid()},
                   {"helper", helper},
                   {"floor of the host", floor.pid()},
                   {"floor of the helper", socketServer().process.pid()}};
  runMainLoopFor(1);
  std::vector<ProcessorUse> before;
  for (const auto& process : processes) before.push_back(processorUseOf(process.pid));
  runMainLoopFor(seconds);
  std::printf("{\n  \"seconds\": %d,\n  \"processes\": [\n", seconds);
  for (std::size_t i = 0; i < before.size(); ++i) {
    if (i > 0) std::printf(",\n");
    print(processes[i].name, before[i], processorUseOf(processes[i].pid), seconds);
  }
  std::printf("\n  ]\n}\n");
  return 0;
}

}  // namespace bench
