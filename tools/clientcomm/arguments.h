#pragma once

#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tools/clientcomm/command.h"

namespace clientcomm::tool {

/// The command line is wrong; the text says how.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The options of every command.
inline constexpr Option kCommonOptions[] = {
    {"json", nullptr, "print JSON"},
    {"color", "WHEN", "use colors: auto (the default), always, never"},
    {"help", nullptr, "print this help"},
    {"version", nullptr, "print the version"},
};

/// What was given to a command. Texts are bytes, as the system passes them.
class Arguments {
 public:
  /// @param words what follows the name of the command. Options may stand anywhere before "--".
  /// @throws UsageError
  Arguments(const Command& command, std::span<char* const> words);

  /// The arguments that are no options.
  const std::vector<std::string>& texts() const { return texts_; }

  bool has(std::string_view option) const { return values_.contains(option); }

  /// What was given to an option last; nothing where it was not given.
  std::optional<std::string> valueOf(std::string_view option) const;

  /// Whether the number of texts is one that the command takes; otherwise throws a UsageError.
  void checkNumber(const Command& command) const;

 private:
  std::vector<std::string> texts_;
  std::map<std::string, std::string, std::less<>> values_;
};

}  // namespace clientcomm::tool
