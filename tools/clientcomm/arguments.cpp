#include "tools/clientcomm/arguments.h"

#include <getopt.h>

#include <cstddef>

namespace clientcomm::tool {
namespace {

std::vector<Option> optionsOf(const Command& command) {
  std::vector<Option> all(command.options.begin(), command.options.end());
  all.insert(all.end(), std::begin(kCommonOptions), std::end(kCommonOptions));
  return all;
}

std::vector<option> systemForm(const std::vector<Option>& options) {
  std::vector<option> result;
  for (const Option& each : options) {
    const int argument = each.argument != nullptr ? required_argument : no_argument;
    result.push_back({each.name, argument, nullptr, 0});
  }
  result.push_back({});
  return result;
}

}  // namespace

Arguments::Arguments(const Command& command, std::span<char* const> words) {
  const std::vector<Option> options = optionsOf(command);
  const std::vector<option> forms = systemForm(options);
  // getopt_long() moves the words, and passes over the first.
  std::string name(command.name);
  std::vector<char*> line{name.data()};
  line.insert(line.end(), words.begin(), words.end());
  line.push_back(nullptr);
  const int count = static_cast<int>(line.size()) - 1;
  optind = 0;  // begin anew
  int index = 0;
  for (;;) {
    const int found = getopt_long(count, line.data(), ":h", forms.data(), &index);
    if (found == -1) break;
    if (found == 'h') {
      values_["help"] = "";
    } else if (found == 0) {
      values_[options[static_cast<std::size_t>(index)].name] = optarg != nullptr ? optarg : "";
    } else {
      const std::string word = line[static_cast<std::size_t>(optind) - 1];
      throw UsageError(found == ':' ? word + " needs an argument"
                                    : "there is no option " + word + ", or it takes no argument");
    }
  }
  for (int i = optind; i < count; ++i) texts_.emplace_back(line[static_cast<std::size_t>(i)]);
}

std::optional<std::string> Arguments::valueOf(std::string_view option) const {
  const auto found = values_.find(option);
  return found != values_.end() ? std::optional(found->second) : std::nullopt;
}

void Arguments::checkNumber(const Command& command) const {
  if (texts_.size() < command.fewestArguments) throw UsageError("an argument is missing");
  if (texts_.size() > command.mostArguments) throw UsageError("there are too many arguments");
}

}  // namespace clientcomm::tool
