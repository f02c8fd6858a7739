#include "benchmarks/hosts.h"

#include <glib.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "ClientComm/TQHPHelper.h"
#include "benchmarks/support/peers.h"
#include "benchmarks/support/process_status.h"
#include "benchmarks/support/product.h"
#include "tests/support/child_process.h"
#include "tests/support/test_application.h"

namespace bench {
namespace {

constexpr char kRole[] = "benchmark-one-of-many";

// Says when it has started its helper, and ticks.
int runHost(const std::vector<std::string>& /*arguments*/) {
  TQHPHelper::share();
  std::puts("ready");
  std::fflush(stdout);
  GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
  g_main_loop_run(loop);
  g_main_loop_unref(loop);
  return 0;
}

const support::Role role(kRole, runHost);

/// A host of its own bundle and identifier, as each product is one.
support::ChildProcess startHost(std::size_t number) {
  const std::string name = "Host" + std::to_string(number);
  support::ChildProcess host = support::runApplication(makeHost(name, kRole));
  if (host.readLine() != "ready") std::fprintf(stderr, "%s failed\n", name.c_str());
  return host;
}

struct Use {
  ProcessorUse host;
  ProcessorUse helper;
  ProcessorUse server;  ///< The floor of the helper: takes the packets of as many bare processes.
  double calls = 0;
};

Use useOf(pid_t host, pid_t helper) {
  return {processorUseOf(host), processorUseOf(helper),
          processorUseOf(socketServer().process.pid()), static_cast<double>(aliveCalls().value())};
}

void print(std::size_t hosts, const Use& before, const Use& after, int seconds) {
  constexpr double kPercent = 100;
  std::printf(
      "    {\"hosts\": %zu, \"helper_cpu_percent\": %.4f, \"helper_wake_ups_per_second\": %.2f, "
      "\"floor_cpu_percent\": %.4f, \"calls_per_second\": %.2f, \"host_cpu_percent\": %.4f}",
      hosts, (after.helper.seconds - before.helper.seconds) / seconds * kPercent,
      (after.helper.wakeUps - before.helper.wakeUps) / seconds,
      (after.server.seconds - before.server.seconds) / seconds * kPercent,
      (after.calls - before.calls) / seconds,
      (after.host.seconds - before.host.seconds) / seconds * kPercent);
}

}  // namespace

int measureHosts(int seconds, bool isSmoke) {
  const std::vector<std::size_t> counts =
      isSmoke ? std::vector<std::size_t>{1, 3} : std::vector<std::size_t>{1, 10, 50, 100, 200, 500};
  std::vector<support::ChildProcess> hosts;
  std::vector<support::ChildProcess> bare;
  std::printf("{\n  \"seconds\": %d,\n  \"counts\": [\n", seconds);
  for (const std::size_t count : counts) {
    while (hosts.size() < count) {
      hosts.push_back(startHost(hosts.size()));
      bare.push_back(startTicking());
    }
    const pid_t helper = helperProcess();
    if (helper == 0) return 1;
    std::this_thread::sleep_for(std::chrono::seconds(1));  // the last start is over
    const Use before = useOf(hosts.front().pid(), helper);
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    print(count, before, useOf(hosts.front().pid(), helper), seconds);
    std::printf(count == counts.back() ? "\n" : ",\n");
    std::fflush(stdout);
  }
  std::printf("  ]\n}\n");
  endHelper();
  return 0;
}

}  // namespace bench
