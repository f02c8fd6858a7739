#include <glib.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "ClientComm/platform/wire_format.h"
#include "tools/clientcomm/arguments.h"
#include "tools/clientcomm/commands.h"
#include "tools/clientcomm/output.h"
#include "tools/clientcomm/watch/call_watch.h"

namespace clientcomm::tool {
namespace {

using std::chrono::microseconds;

// Of a text in a line, in bytes.
constexpr std::size_t kLongestShown = 60;

std::string fractionOf(microseconds time) {
  char text[16] = {};
  std::snprintf(text, sizeof text, ".%06d", static_cast<int>(time.count() % 1'000'000));
  return text;
}

std::string localTime(microseconds time) {
  const auto second = static_cast<std::time_t>(time.count() / 1'000'000);
  std::tm parts{};
  localtime_r(&second, &parts);
  char text[16] = {};
  std::strftime(text, sizeof text, "%H:%M:%S", &parts);
  return text + fractionOf(time);
}

std::string universalTime(microseconds time) {
  const auto second = static_cast<std::time_t>(time.count() / 1'000'000);
  std::tm parts{};
  gmtime_r(&second, &parts);
  char text[64] = {};
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
  return text + fractionOf(time) + "Z";
}

// A cut must not end within a character.
std::string beginningOf(const std::string& text, std::size_t size) {
  if (text.size() <= size) return text;
  while (size > 0 && (static_cast<unsigned char>(text[size]) & 0xC0U) == 0x80) --size;
  return text.substr(0, size);
}

std::string shown(const WatchedText& text) {
  if (!text.text) return "nil";
  const std::string beginning = beginningOf(*text.text, kLongestShown);
  const std::string quoted = "\"" + printable(beginning) + "\"";
  const auto size = static_cast<std::size_t>(text.size);
  return beginning.size() == size ? quoted : quoted + "... (" + std::to_string(size) + " bytes)";
}

std::string shownArguments(const WatchedCall& call) {
  std::string all;
  for (const WatchedText& argument : call.arguments) {
    all += (all.empty() ? "" : ", ") + shown(argument);
  }
  const auto more = call.argumentCount - static_cast<std::int64_t>(call.arguments.size());
  return more > 0 ? all + " and " + std::to_string(more) + " more" : all;
}

std::string shownCall(const WatchedCall& call) {
  if (!call.className.text && call.status == errAEEventNotPermitted) {
    return "refused: the caller has no identity";
  }
  return printable(call.className.text.value_or("nil")) + " " +
         printable(call.selector.text.value_or("nil")) + " (" + shownArguments(call) + ")";
}

std::string shownOutcome(const WatchedCall& call, const Output& output) {
  if (call.status != noErr) {
    return output.styled(Style::kRed, "status " + std::to_string(call.status));
  }
  return call.wantsReply ? "-> " + shown(call.answer) : "handed over";
}

void printLine(const WatchedCall& call, bool showsProcess, Output& output) {
  if (call.missed > 0) {
    output.line(output.styled(Style::kYellow, std::to_string(call.missed) + " missed"));
  }
  std::string caller = printable(call.caller.text.value_or("unknown"));
  if (showsProcess) caller += "[" + std::to_string(call.process) + "]";
  output.line(output.styled(Style::kDim, localTime(call.time)) + "  " +
              output.styled(Style::kBlue, caller) + "  " + shownCall(call) + "  " +
              shownOutcome(call, output) + "  " + std::to_string(call.duration.count()) + " us");
  std::fflush(stdout);
}

// A text that was cut says so, as its reader may look for a whole one.
Json jsonOf(const WatchedText& text) {
  if (!text.text) return {};
  if (text.isWhole()) return *text.text;
  return {{"beginning", beginningOf(*text.text, kLongestWatchedText - 1)}, {"bytes", text.size}};
}

Json jsonOf(const WatchedCall& call) {
  Json arguments = Json::array();
  for (const WatchedText& argument : call.arguments) arguments.push_back(jsonOf(argument));
  return {{"time", universalTime(call.time)},
          {"caller", jsonOf(call.caller)},
          {"pid", call.process > 0 ? Json(call.process) : Json()},
          {"class", jsonOf(call.className)},
          {"selector", jsonOf(call.selector)},
          {"arguments", arguments},
          {"argumentCount", call.argumentCount},
          {"wantsReply", call.wantsReply},
          {"status", call.status},
          {"answer", jsonOf(call.answer)},
          {"microseconds", call.duration.count()},
          {"missed", call.missed}};
}

// From here on each call is told, which a script may wait for.
void begin(const std::string& identifier, pid_t process, Output& output) {
  if (output.isJson()) {
    return output.jsonLine({{"identifier", identifier}, {"pid", process}});
  }
  output.line("Watching " + printable(identifier) + ", process " + std::to_string(process) + ".");
  std::fflush(stdout);
}

// @return 0 for no limit.
std::uint64_t limitOf(const Arguments& arguments) {
  const auto text = arguments.valueOf("count");
  if (!text) return 0;
  std::uint64_t count = 0;
  constexpr std::uint64_t kMost = 1'000'000'000;
  if (g_ascii_string_to_unsigned(text->c_str(), 10, 1, kMost, &count, nullptr) == FALSE) {
    throw UsageError("--count takes a number from 1, not " + *text);
  }
  return count;
}

ExitStatus run(const Arguments& arguments, Output& output) {
  const std::uint64_t limit = limitOf(arguments);
  const std::string& identifier = arguments.texts()[0];
  CallWatch watch(identifier);
  begin(identifier, watch.process(), output);
  for (std::uint64_t count = 0; limit == 0 || count < limit; ++count) {
    const auto call = watch.next();
    if (!call) {
      if (!output.isJson()) output.line("The application has ended.");
      break;
    }
    if (output.isJson()) {
      output.jsonLine(jsonOf(*call));
    } else {
      printLine(*call, arguments.has("pid"), output);
    }
  }
  return ExitStatus::kDone;
}

constexpr Option kOptions[] = {
    {"pid", nullptr, "show the process ID of each caller"},
    {"count", "NUMBER", "end after so many calls"},
};

}  // namespace

const Command kWatchCommand = {
    "watch",
    "IDENTIFIER",
    "show the calls that an application takes",
    "Shows the calls that the application with the bundle identifier IDENTIFIER takes, each when\n"
    "it has ended: time, caller, class, selector, arguments, status or answer, and how long it\n"
    "took. Long texts are shortened. The application never waits for this program; calls that it\n"
    "could not tell are shown as \"missed\". With --json the first line says\n"
    "which process is watched, and each call is a document on one line.",
    kOptions,
    1,
    1,
    run,
};

}  // namespace clientcomm::tool
