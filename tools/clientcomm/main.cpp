#include <cstddef>
#include <cstdio>
#include <exception>
#include <span>
#include <string>
#include <string_view>

#include "tools/clientcomm/arguments.h"
#include "tools/clientcomm/command.h"
#include "tools/clientcomm/help.h"
#include "tools/clientcomm/output.h"

namespace clientcomm::tool {
namespace {

ExitStatus print(const std::string& text) {
  std::fputs(text.c_str(), stdout);
  return ExitStatus::kDone;
}

ExitStatus printVersion() { return print("clientcomm " CLIENTCOMM_VERSION "\n"); }

ExitStatus complain(const std::string& who, std::string_view what, const std::string& help) {
  std::fprintf(stderr, "%s: %s\nTry \"%s\".\n", who.c_str(), printable(what).c_str(), help.c_str());
  return ExitStatus::kUsage;
}

ColorUse colorOf(const Arguments& arguments) {
  const std::string when = arguments.valueOf("color").value_or("auto");
  if (when == "auto") return ColorUse::kAuto;
  if (when == "always") return ColorUse::kAlways;
  if (when == "never") return ColorUse::kNever;
  throw UsageError("--color takes auto, always or never, not " + when);
}

ExitStatus runCommand(const Command& command, std::span<char* const> words) {
  const std::string name = std::string("clientcomm ") + command.name;
  try {
    const Arguments arguments(command, words);
    if (arguments.has("help")) return print(helpOf(command));
    if (arguments.has("version")) return printVersion();
    arguments.checkNumber(command);
    Output output(arguments.has("json") ? OutputFormat::kJson : OutputFormat::kText,
                  colorOf(arguments));
    return command.run(arguments, output);
  } catch (const UsageError& error) {
    return complain(name, error.what(), name + " --help");
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", name.c_str(), printable(error.what()).c_str());
    return ExitStatus::kFailed;
  }
}

ExitStatus run(std::span<char* const> words) {
  const std::string_view first = words.empty() ? "" : words.front();
  if (first == "--help" || first == "-h" || first == "help") return print(programHelp());
  if (first == "--version") return printVersion();
  for (const Command* command : commands()) {
    if (first == command->name) return runCommand(*command, words.subspan(1));
  }
  const std::string what =
      first.empty() ? "a command is missing" : "there is no command " + std::string(first);
  return complain("clientcomm", what, "clientcomm --help");
}

}  // namespace
}  // namespace clientcomm::tool

int main(int argc, char* argv[]) {
  using clientcomm::tool::ExitStatus;
  const std::span<char* const> words(argv, static_cast<std::size_t>(argc));
  ExitStatus status = clientcomm::tool::run(words.empty() ? words : words.subspan(1));
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    std::fputs("clientcomm: the output cannot be written\n", stderr);
    status = ExitStatus::kFailed;
  }
  return static_cast<int>(status);
}
