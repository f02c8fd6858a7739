#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "tools/clientcomm/arguments.h"
#include "tools/clientcomm/commands.h"
#include "tools/clientcomm/output.h"
#include "tools/clientcomm/ps/applications.h"

namespace clientcomm::tool {
namespace {

constexpr std::size_t kColumns = 8;
using Row = std::array<std::string, kColumns>;

std::string textOf(std::chrono::seconds age) {
  const auto count = std::max<std::int64_t>(age.count(), 0);
  if (count < 60) return std::to_string(count) + " s";
  if (count < 3600) return std::to_string(count / 60) + " min";
  if (count < 86400) return std::to_string(count / 3600) + " h";
  return std::to_string(count / 86400) + " d";
}

Row rowOf(const Application& application) {
  const auto shown = [](const OptionalString& text) { return text ? printable(*text) : "-"; };
  return {shown(application.identifier),
          application.process > 0 ? std::to_string(application.process) : "-",
          shown(application.bundleVersion),
          shown(application.libraryVersion),
          application.wireVersion ? std::to_string(*application.wireVersion) : "-",
          application.age ? textOf(*application.age) : "-",
          application.waitingCalls ? std::to_string(*application.waitingCalls) : "-",
          shown(application.bundlePath)};
}

std::string lineOf(const Row& row, const std::array<std::size_t, kColumns>& widths) {
  std::string line;
  for (std::size_t k = 0; k + 1 < kColumns; ++k) {
    line += row[k] + std::string(widths[k] - row[k].size() + 2, ' ');
  }
  return line + row.back();
}

void printTable(const std::vector<Application>& all, Output& output) {
  if (all.empty()) return output.line("No application takes calls.");
  std::vector<Row> rows = {
      {"IDENTIFIER", "PID", "VERSION", "LIBRARY", "WIRE", "AGE", "WAITING", "BUNDLE"}};
  for (const Application& application : all) rows.push_back(rowOf(application));
  std::array<std::size_t, kColumns> widths = {};
  for (const Row& row : rows) {
    for (std::size_t k = 0; k < kColumns; ++k) widths[k] = std::max(widths[k], row[k].size());
  }
  output.line(output.styled(Style::kBold, lineOf(rows.front(), widths)));
  for (std::size_t k = 1; k < rows.size(); ++k) output.line(lineOf(rows[k], widths));
}

template <typename Value>
Json jsonOf(const std::optional<Value>& value) {
  return value ? Json(*value) : Json();
}

Json jsonOf(const Application& application) {
  const auto age = application.age;
  return {{"identifier", jsonOf(application.identifier)},
          {"pid", application.process > 0 ? Json(application.process) : Json()},
          {"bundle", jsonOf(application.bundlePath)},
          {"version", jsonOf(application.bundleVersion)},
          {"libraryVersion", jsonOf(application.libraryVersion)},
          {"wireVersion", jsonOf(application.wireVersion)},
          {"ageSeconds", age ? Json(age->count()) : Json()},
          {"waitingCalls", jsonOf(application.waitingCalls)},
          {"endpoint", application.endpoint}};
}

ExitStatus run(const Arguments& /*arguments*/, Output& output) {
  const std::vector<Application> all = applications();
  if (output.isJson()) {
    Json list = Json::array();
    for (const Application& application : all) list.push_back(jsonOf(application));
    output.document({{"applications", list}});
  } else {
    printTable(all, output);
  }
  return ExitStatus::kDone;
}

}  // namespace

const Command kPsCommand = {
    "ps",
    "",
    "list the applications that take calls",
    "Lists this user's applications that take calls now. VERSION is that of the bundle on the\n"
    "disk, LIBRARY and WIRE are of the running process. WAITING counts the calls in the kernel's\n"
    "queue, which the application has not begun to look at; the call that it carries out and\n"
    "those that it has put off are not among them. \"-\" is what cannot be told from here.",
    {},
    0,
    0,
    run,
};

}  // namespace clientcomm::tool
