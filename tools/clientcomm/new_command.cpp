#include <algorithm>
#include <cctype>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

#include "tools/clientcomm/arguments.h"
#include "tools/clientcomm/commands.h"
#include "tools/clientcomm/output.h"
#include "tools/clientcomm/project_files.h"

namespace clientcomm::tool {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLongestIdentifier = 200;
constexpr std::size_t kLongestName = 100;

/// What is written, and where.
struct Project {
  fs::path folder;
  std::span<const ProjectFile> files;
  std::string name;
  std::string identifier;
};

bool isLetterOrDigit(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; }

// What every part of a build takes without quotes.
std::string checkedIdentifier(std::string identifier) {
  const bool isValid =
      identifier.size() <= kLongestIdentifier && identifier.find('.') != std::string::npos &&
      isLetterOrDigit(identifier.front()) && isLetterOrDigit(identifier.back()) &&
      std::all_of(identifier.begin(), identifier.end(),
                  [](char c) { return isLetterOrDigit(c) || c == '.' || c == '-'; });
  if (isValid) return identifier;
  throw UsageError(
      "an identifier has letters, digits, dots and dashes, and at least one dot, as "
      "com.example.host; not " +
      identifier);
}

// Names a file, and is a part of a CMake file and of a shell command.
std::string checkedName(std::string name) {
  const bool isValid = !name.empty() && name.size() <= kLongestName &&
                       isLetterOrDigit(name.front()) && name.back() != ' ' &&
                       std::all_of(name.begin(), name.end(), [](char c) {
                         return isLetterOrDigit(c) || c == ' ' || c == '.' || c == '-' || c == '_';
                       });
  if (isValid) return name;
  throw UsageError(
      "a name begins with a letter or digit and has letters, digits, blanks, dots, "
      "dashes and \"_\"; not " +
      name);
}

Project projectOf(const Arguments& arguments) {
  const std::string& kind = arguments.texts()[0];
  const bool isHost = kind == "host";
  if (!isHost && kind != "helper") throw UsageError("a project is a host or a helper, not " + kind);
  const auto given = [&](const char* option, const char* host, const char* helper) {
    return arguments.valueOf(option).value_or(isHost ? host : helper);
  };
  return {arguments.texts()[1], isHost ? hostFiles() : helperFiles(),
          checkedName(given("name", "My Host", "My Helper")),
          checkedIdentifier(given("identifier", "com.example.host", "com.example.helper"))};
}

void replaceAll(std::string& text, std::string_view what, const std::string& with) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size()) {
    text.replace(at, what.size(), with);
  }
}

void writeFile(const Project& project, const ProjectFile& file) {
  std::string text = file.text;
  replaceAll(text, "@NAME@", project.name);
  replaceAll(text, "@IDENTIFIER@", project.identifier);
  replaceAll(text, "@VERSION@", CLIENTCOMM_VERSION);
  std::ofstream stream(project.folder / file.name, std::ios::binary);
  stream << text;
  stream.close();
  if (!stream) throw std::runtime_error("cannot write " + (project.folder / file.name).string());
}

void makeFolder(const fs::path& folder) {
  std::error_code error;
  fs::create_directories(folder, error);
  if (error && !fs::is_directory(folder)) {
    throw std::runtime_error("cannot make " + folder.string() + ": " + error.message());
  }
  const bool isEmpty = fs::is_empty(folder, error);
  if (error) throw std::runtime_error("cannot read " + folder.string() + ": " + error.message());
  if (!isEmpty) throw std::runtime_error(folder.string() + " is not empty");
}

ExitStatus run(const Arguments& arguments, Output& output) {
  const Project project = projectOf(arguments);
  makeFolder(project.folder);
  Json written = Json::array();
  for (const ProjectFile& file : project.files) {
    writeFile(project, file);
    written.push_back((project.folder / file.name).string());
  }
  if (output.isJson()) {
    output.document({{"files", written}});
    return ExitStatus::kDone;
  }
  for (const auto& path : written) output.line("wrote " + printable(path.get<std::string>()));
  output.line("");
  output.line("In " + output.styled(Style::kBold, printable(project.folder.string())) + ":");
  output.line("  cmake -B build && cmake --build build");
  output.line("  \"build/" + project.name + ".app/Contents/Linux/" + project.name + "\"");
  return ExitStatus::kDone;
}

constexpr Option kOptions[] = {
    {"identifier", "ID", "bundle identifier, as com.example.host"},
    {"name", "NAME", "name of the application"},
};

}  // namespace

const Command kNewCommand = {
    "new",
    "host|helper DIRECTORY",
    "write a small project that builds",
    "Writes a complete project into DIRECTORY, which must be empty or missing: a host with a "
    "helper\n"
    "of its own, or a helper for any host. It builds with CMake against the installed library.",
    kOptions,
    2,
    2,
    run,
};

}  // namespace clientcomm::tool
