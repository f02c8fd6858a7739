#include "tools/clientcomm/help.h"

#include <algorithm>
#include <cstddef>

#include "tools/clientcomm/arguments.h"

namespace clientcomm::tool {
namespace {

constexpr std::size_t kColumn = 24;

std::string row(const std::string& left, const std::string& right) {
  const std::size_t blanks = left.size() + 2 < kColumn ? kColumn - left.size() - 2 : 2;
  return "  " + left + std::string(blanks, ' ') + right + "\n";
}

std::string rowOf(const Option& option) {
  std::string left = std::string("--") + option.name;
  if (option.argument != nullptr) left.append("=").append(option.argument);
  return row(left, option.help);
}

}  // namespace

std::string programHelp() {
  std::string text =
      "Usage: clientcomm COMMAND [OPTION...] [ARGUMENT...]\n"
      "\n"
      "Looks into applications that use ClientComm.\n"
      "\n"
      "Commands:\n";
  for (const Command* command : commands()) text += row(command->name, command->summary);
  text += "\nOptions of every command:\n";
  for (const Option& option : kCommonOptions) text += rowOf(option);
  text +=
      "\n\"clientcomm COMMAND --help\" describes a command; \"man clientcomm\" all of them.\n"
      "Exit status: 0 done; 1 an error was found, or the command failed; 2 wrong usage.\n";
  return text;
}

std::string helpOf(const Command& command) {
  std::string text = std::string("Usage: clientcomm ") + command.name + " [OPTION...]";
  if (*command.arguments != '\0') text.append(" ").append(command.arguments);
  text.append("\n\n").append(command.description).append("\n\nOptions:\n");
  for (const Option& option : command.options) text += rowOf(option);
  for (const Option& option : kCommonOptions) text += rowOf(option);
  return text;
}

}  // namespace clientcomm::tool
