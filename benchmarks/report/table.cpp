#include "benchmarks/report/table.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <vector>

namespace report {
namespace {

constexpr double kMicrosecond = 1e3;
constexpr double kMillisecond = 1e6;

/// A row and what it must reach; 0 where it need not reach anything.
struct Row {
  const char* name;
  const char* title;
  double mostTimesFloor = 0;
  double leastTimesFaster = 0;  ///< Than the alternative.
  double mostNanoseconds = 0;
};

constexpr Row kRows[] = {
    {"send", "no-reply send, 2 arguments, helper asleep", 1.5, 5},
    {"send-alone", "the same, helper held still: the sender's own work", 1.5},
    {"send-to-nobody", "no-reply send, helper not running", 2, 1},
    {"query", "query with a reply, two processors", 1.25, 1},
    {"query-one-processor", "query with a reply, one processor", 1.25, 1},
    {"dispatch/0", "decode to reply, no argument", 0, 1, kMicrosecond},
    {"dispatch/2", "decode to reply, 2 arguments", 0, 1, kMicrosecond},
    {"dispatch/6", "decode to reply, 6 arguments", 0, 1},
    {"dispatch/100", "decode to reply, 100 arguments", 0, 1},
    {"dispatch/1000", "decode to reply, 1,000 arguments", 0, 1},
    {"large-argument/131072", "argument of 128 KiB, there and back", 2, 1},
    {"large-argument/16777216", "argument of 16 MiB, there and back", 2, 1},
    {"many-senders/8", "10,000 events from each of 8 senders, per event", 1.5, 1},
    {"process-list/100", "is it running, 100 other processes", 1.3, 1},
    {"process-list/1000", "is it running, 1,000 other processes", 1.3, 1},
    {"process-list/5000", "is it running, 5,000 other processes", 1.3, 1},
    {"version", "comparison of two versions", 0, 1, 150},
    {"install", "installing 64 MiB in 2,000 files", 1.1},
    {"tick", "one idle tick", 2},
    {"share", "`share()`, helper installed and running", 0, 0, 2 * kMillisecond},
    {"first-start", "first start: install, launch, started", 1.2},
};

/// The number with so many digits behind the point.
std::string fixed(double value, int digits) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%.*f", digits, value);
  return text.data();
}

std::string spread(const Figure& figure) {
  return duration(figure.median) + " (" + duration(figure.least) + " – " + duration(figure.most) +
         ")";
}

std::string cell(const std::optional<Figure>& figure) { return figure ? spread(*figure) : "-"; }

/// What is demanded of a row, and by how much it falls short.
class Verdict {
 public:
  void demand(const std::string& what, bool isReached) {
    demands_ += (demands_.empty() ? "" : ", ") + what;
    isReached_ = isReached_ && isReached;
  }
  std::string demands() const { return demands_.empty() ? "-" : demands_; }
  const char* result() const {
    if (demands_.empty()) return "-";
    return isReached_ ? "yes" : "**no**";
  }

 private:
  std::string demands_;
  bool isReached_ = true;
};

std::string line(const Row& row, const Results& results) {
  const std::string name = row.name;
  const auto ours = results.figure(name + "/clientcomm");
  if (!ours) return {};
  const auto floor = results.figure(name + "/floor");
  const auto alternative = results.figure(name + "/alternative");
  const double timesFloor = floor ? ours->median / floor->median : 0;
  const double timesFaster = alternative ? alternative->median / ours->median : 0;
  Verdict verdict;
  if (row.mostTimesFloor > 0) {
    verdict.demand("≤ " + fixed(row.mostTimesFloor, 2) + " × floor",
                   timesFloor <= row.mostTimesFloor);
  }
  if (row.leastTimesFaster > 0) {
    verdict.demand(row.leastTimesFaster > 1
                       ? "≥ " + fixed(row.leastTimesFaster, 0) + " × faster than the alternative"
                       : "faster than the alternative",
                   timesFaster >= row.leastTimesFaster);
  }
  if (row.mostNanoseconds > 0) {
    verdict.demand("< " + duration(row.mostNanoseconds), ours->median < row.mostNanoseconds);
  }
  return std::string("| ") + row.title + " | " + spread(*ours) + " | " + cell(floor) + " | " +
         (floor ? fixed(timesFloor, 2) : "-") + " | " + cell(alternative) + " | " +
         (alternative ? fixed(timesFaster, 1) : "-") + " | " + verdict.demands() + " | " +
         verdict.result() + " |\n";
}

/// What a host pays, which is not a time.
struct Cost {
  const char* counter;
  const char* title;
  int digits;
  const char* unit;
  double limit;  ///< The least that is too much; negative where nothing is demanded.
  const char* demand;
};

constexpr Cost kCosts[] = {
    {"stripped_kib", "size of the library, stripped", 0, " KiB", 400, "< 400 KiB"},
    {"pss_kib", "memory added (PSS)", 0, " KiB", 1024, "< 1 MiB"},
    {"private_kib", "of it private", 0, " KiB", -1, "-"},
    {"start_ms", "start-up time added", 2, " ms", 5, "< 5 ms"},
    {"relocations", "relocations", 0, "", -1, "-"},
    {"threads_added", "threads added", 0, "", 0.5, "0"},
    {"descriptors_added", "descriptors added", 0, "", 1.5, "1"},
};

std::string costs(const Results& results) {
  std::string text =
      "\n| what a host pays | measured | must reach | reached |\n|---|---|---|---|\n";
  for (const Cost& cost : kCosts) {
    const auto value = results.counter("footprint", cost.counter);
    if (!value) return {};
    const char* const reached = cost.limit < 0 ? "-" : (*value < cost.limit ? "yes" : "**no**");
    text += std::string("| ") + cost.title + " | " + fixed(*value, cost.digits) + cost.unit +
            " | " + cost.demand + " | " + reached + " |\n";
  }
  return text;
}

std::string steps(const Results& results) {
  const auto names = results.countersOf("share-steps");
  if (names.empty()) return {};
  std::string text = "\n| step of `share()` | time |\n|---|---|\n";
  for (const std::string& name : names) {
    text += "| " + name + " | " + duration(*results.counter("share-steps", name) * kMicrosecond) +
            " |\n";
  }
  return text;
}

}  // namespace

std::string duration(double nanoseconds) {
  constexpr const char* kUnits[] = {" ns", " µs", " ms", " s"};
  std::size_t unit = 0;
  for (; nanoseconds >= 1000 && unit + 1 < std::size(kUnits); ++unit) nanoseconds /= 1000;
  return fixed(nanoseconds, nanoseconds < 10 ? 2 : (nanoseconds < 100 ? 1 : 0)) + kUnits[unit];
}

std::string table(const Results& results) {
  std::string text =
      results.context() +
      "\n\n"
      "| what | ClientComm | floor | × floor | alternative | × faster | must reach | "
      "reached |\n|---|---|---|---|---|---|---|---|\n";
  for (const Row& row : kRows) text += line(row, results);
  return text + costs(results) + steps(results);
}

}  // namespace report
