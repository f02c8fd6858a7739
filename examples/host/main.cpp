#include <cstdio>
#include <string>
#include <string_view>

#include "examples/host/session.h"

namespace {

void printHelp(const char* program) {
  std::printf(
      "Use: %s run\n"
      "     %s COMMAND [ARGUMENT...]\n\n"
      "\"run\" stays until \"quit\" or the end of standard input, prints what happens, and "
      "carries\n"
      "out the commands that it reads, one a line. Any other command is carried out at once.\n\n"
      "Commands:\n",
      program, program);
  for (const sample::Command& command : sample::commands()) {
    const std::string use = std::string(command.name) + " " + std::string(command.parameters);
    std::printf("  %-46s  %s\n", use.c_str(), std::string(command.purpose).c_str());
  }
  std::printf(
      "\nEvery event is one line: time, who, what, status, and what else there is to say.\n"
      "Exit status: 0 when the library's status was 0, or the question was answered; 1 when not;\n"
      "2 when the command is not one of the above.\n");
}

bool isHelp(std::string_view word) { return word == "--help" || word == "-h" || word == "help"; }

}  // namespace

int main(int argc, char** argv) {
  const sample::Arguments words(argv + 1, argv + argc);
  if (words.empty() || isHelp(words.front())) {
    printHelp("SampleHost");
    return words.empty() ? 2 : 0;
  }
  const bool stays = words.front() == "run";
  if (stays ? words.size() > 1 : sample::commandNamed(words.front()) == nullptr) {
    std::fprintf(stderr, "SampleHost: cannot make sense of \"%s\"; try --help\n",
                 words.back().c_str());
    return 2;
  }
  sample::Session session(stays ? sample::Session::Mode::kInteractive
                                : sample::Session::Mode::kOneCommand);
  if (!stays) return session.carryOut(words);
  session.stay();
  return 0;
}
