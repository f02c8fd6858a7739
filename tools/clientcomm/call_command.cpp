#include <glib.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <span>
#include <string>

#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/async.h"
#include "tools/clientcomm/arguments.h"
#include "tools/clientcomm/commands.h"
#include "tools/clientcomm/output.h"
#include "tools/clientcomm/status_text.h"

namespace clientcomm::tool {
namespace {

constexpr double kLongestTimeout = 1e6;

/// A call, and what became of it.
struct Call {
  std::string identifier;
  std::string className;
  std::string selector;
  std::span<const std::string> texts;
  OSErr status = noErr;
  OptionalString answer;
};

TimeLimit timeLimitOf(const Arguments& arguments) {
  const auto text = arguments.valueOf("timeout");
  if (!text) return std::nullopt;
  if (!arguments.has("wait")) throw UsageError("--timeout needs --wait");
  char* end = nullptr;
  const double seconds = g_ascii_strtod(text->c_str(), &end);
  if (text->empty() || *end != '\0' || !(seconds >= 0 && seconds <= kLongestTimeout)) {
    throw UsageError("--timeout takes a number of seconds, not " + *text);
  }
  return std::chrono::milliseconds(std::llround(seconds * 1000));
}

void makeAndWait(Call& call, TimeLimit limit) {
  bool isOver = false;
  const PendingQuery query = TQHPAppleEventSender::share().sendEvnetAsync(
      call.identifier, call.className, call.selector, call.texts,
      [&](OSErr status, const OptionalString& answer) {
        call.status = status;
        call.answer = answer;
        isOver = true;
      },
      limit);
  while (query.isPending() && !isOver) g_main_context_iteration(nullptr, TRUE);
  if (!isOver) call.status = memFullErr;  // it was never begun
}

void printText(const Call& call, bool isAnswered, Output& output) {
  if (call.status != noErr) {
    output.line(output.styled(Style::kRed, "Status " + std::to_string(call.status)) + ": " +
                textOf(call.status));
  } else if (!isAnswered) {
    output.line(textOf(call.status));
  } else if (call.answer) {
    output.content(*call.answer);
  } else {
    output.line(output.styled(Style::kDim,
                              "The answer is nil: the application has no such class "
                              "or selector, or the method returned nothing."));
  }
}

void printJson(const Call& call, bool isAnswered, Output& output) {
  Json json = {{"identifier", call.identifier},
               {"class", call.className},
               {"selector", call.selector},
               {"status", call.status},
               {"explanation", textOf(call.status)}};
  if (isAnswered) json["answer"] = call.answer ? Json(*call.answer) : Json();
  output.document(json);
}

ExitStatus run(const Arguments& arguments, Output& output) {
  const auto& texts = arguments.texts();
  const TimeLimit limit = timeLimitOf(arguments);
  const bool waits = arguments.has("wait");
  Call call{texts[0], texts[1], texts[2], std::span(texts).subspan(3), noErr, {}};
  if (waits) {
    makeAndWait(call, limit);
  } else {
    call.status = TQHPAppleEventSender::share().sendEvnet(call.identifier, call.className,
                                                          call.selector, call.texts);
  }
  const bool isAnswered = waits && call.status == noErr;
  if (output.isJson()) {
    printJson(call, isAnswered, output);
  } else {
    printText(call, isAnswered, output);
  }
  return call.status == noErr ? ExitStatus::kDone : ExitStatus::kFailed;
}

constexpr Option kOptions[] = {
    {"wait", nullptr, "wait for the answer and print it"},
    {"timeout", "SECONDS", "how long to wait; without it there is no limit"},
};

}  // namespace

const Command kCallCommand = {
    "call",
    "IDENTIFIER CLASS SELECTOR [TEXT...]",
    "make a call to a running application",
    "Calls the method SELECTOR, with its colons, of the class CLASS in the application whose\n"
    "bundle identifier is IDENTIFIER, with the texts as its arguments. Write \"--\" before texts\n"
    "that begin with a dash. Without --wait the command ends when the call is handed over.",
    kOptions,
    3,
    kAnyNumber,
    run,
};

}  // namespace clientcomm::tool
