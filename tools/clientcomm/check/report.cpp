#include "tools/clientcomm/check/report.h"

#include <string>

#include "ClientComm/internal/settings_keys.h"
#include "ClientComm/platform/linux/runtime_folder.h"

namespace clientcomm::tool {
namespace {

constexpr std::size_t kColumn = 12;

Json orNull(const OptionalString& text) { return text ? Json(*text) : Json(); }

std::string orNone(const OptionalString& text) {
  return text ? "\"" + printable(*text) + "\"" : "none";
}

const char* nameOf(Plan plan) {
  switch (plan) {
    case Plan::kInstall:
      return "install";
    case Plan::kReplace:
      return "replace";
    case Plan::kKeep:
      return "keep";
    case Plan::kNothing:
      break;
  }
  return "nothing";
}

Json helperJson(const Examination& examination) {
  Json processes = Json::array();
  for (const HelperProcess& process : examination.processes) {
    processes.push_back(
        {{"pid", process.pid}, {"bundle", process.path}, {"takesCalls", process.takesCalls}});
  }
  const bool isInstalled = examination.isInstalled;
  return {{"identifier", orNull(examination.helperIdentifier)},
          {"name", orNull(examination.helperName)},
          {"installFolder", orNull(examination.installFolder)},
          {"embedded", orNull(examination.embedded)},
          {"embeddedVersion", orNull(examination.embeddedVersion)},
          {"installed", isInstalled ? orNull(examination.installed) : Json()},
          {"installedVersion", orNull(examination.installedVersion)},
          {"nextStart", nameOf(examination.plan)},
          {"processes", std::move(processes)}};
}

Json findingsJson(const Findings& findings) {
  Json list = Json::array();
  for (const Finding& finding : findings.all()) {
    list.push_back({{"name", tool::nameOf(finding.cause)},
                    {"severity", tool::nameOf(finding.severity)},
                    {"path", finding.path},
                    {"sentence", finding.sentence},
                    {"remedy", finding.remedy}});
  }
  return list;
}

void printJson(const Examination& examination, Output& output) {
  const Bundle& host = examination.host;
  const Findings& findings = examination.findings;
  output.document({{"bundle", host.bundlePath()},
                   {"identifier", orNull(host.bundleIdentifier())},
                   {"version", orNull(host.infoString(kCFBundleVersionKey))},
                   {"productID", orNull(host.infoString(kPIDKey))},
                   {"runtimeFolder", runtimeFolderPath()},
                   {"helper", helperJson(examination)},
                   {"findings", findingsJson(findings)},
                   {"errors", findings.count(Severity::kError)},
                   {"warnings", findings.count(Severity::kWarning)},
                   {"notes", findings.count(Severity::kNote)}});
}

void printFact(const std::string& name, const std::string& value, Output& output) {
  const std::size_t blanks = name.size() < kColumn ? kColumn - name.size() : 1;
  output.line(output.styled(Style::kDim, name) + std::string(blanks, ' ') + value);
}

std::string planText(const Examination& examination) {
  const std::string embedded = "version " + orNone(examination.embeddedVersion);
  const std::string installed = "version " + orNone(examination.installedVersion);
  switch (examination.plan) {
    case Plan::kInstall:
      return "not yet; the next start installs " + embedded;
    case Plan::kReplace:
      return installed + "; the next start replaces it by " + embedded;
    case Plan::kKeep:
      return installed + "; it stays";
    case Plan::kNothing:
      break;
  }
  return examination.isInstalled ? installed : "no";
}

void printFacts(const Examination& examination, Output& output) {
  const Bundle& host = examination.host;
  output.line(output.styled(Style::kBold, printable(host.bundlePath())));
  if (!examination.hasInfo) return;
  printFact("host",
            orNone(host.bundleIdentifier()) + ", version " +
                orNone(host.infoString(kCFBundleVersionKey)) + ", product " +
                orNone(host.infoString(kPIDKey)),
            output);
  printFact("helper", orNone(examination.helperIdentifier), output);
  if (examination.installed) printFact("folder", printable(*examination.installFolder), output);
  printFact("installed", planText(examination), output);
  for (const HelperProcess& process : examination.processes) {
    printFact("process",
              std::to_string(process.pid) + " from " + printable(process.path) +
                  (process.takesCalls ? "" : "; it takes no calls"),
              output);
  }
  if (examination.processes.empty()) printFact("process", "none", output);
}

Style styleOf(Severity severity) {
  if (severity == Severity::kError) return Style::kRed;
  return severity == Severity::kWarning ? Style::kYellow : Style::kBlue;
}

void printFinding(const Finding& finding, Output& output) {
  output.line("");
  output.line(output.styled(styleOf(finding.severity), tool::nameOf(finding.severity)) + ": " +
              tool::nameOf(finding.cause));
  if (!finding.path.empty()) output.line("  " + printable(finding.path));
  output.line("  " + printable(finding.sentence));
  output.line("  " + output.styled(Style::kGreen, "What to do:") + " " + printable(finding.remedy));
}

std::string counted(std::size_t count, const char* noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

void printText(const Examination& examination, Output& output) {
  const Findings& findings = examination.findings;
  printFacts(examination, output);
  for (const Finding& finding : findings.all()) printFinding(finding, output);
  output.line("");
  output.line(findings.all().empty() ? output.styled(Style::kGreen, "Nothing is wrong.")
                                     : counted(findings.count(Severity::kError), "error") + ", " +
                                           counted(findings.count(Severity::kWarning), "warning") +
                                           ", " + counted(findings.count(Severity::kNote), "note"));
}

}  // namespace

void report(const Examination& examination, Output& output) {
  if (output.isJson()) {
    printJson(examination, output);
  } else {
    printText(examination, output);
  }
}

}  // namespace clientcomm::tool
