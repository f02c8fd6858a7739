#include "tools/clientcomm/arguments.h"
#include "tools/clientcomm/check/examination.h"
#include "tools/clientcomm/check/report.h"
#include "tools/clientcomm/commands.h"
#include "tools/clientcomm/output.h"

namespace clientcomm::tool {
namespace {

ExitStatus run(const Arguments& arguments, Output& output) {
  const Examination examination = examine(arguments.texts()[0]);
  report(examination, output);
  return examination.findings.count(Severity::kError) == 0 ? ExitStatus::kDone
                                                           : ExitStatus::kFailed;
}

}  // namespace

const Command kCheckCommand = {
    "check",
    "HOST.app",
    "say what is wrong with a host's bundle, its helper and its folders",
    "Reads the bundle of a host as the library does when the host starts, looks at the helper, "
    "the\n"
    "install folder, the runtime folder and the running processes, and explains each finding.\n"
    "Installs, launches and executes nothing. The exit status is 1 where an error was found.",
    {},
    1,
    1,
    run,
};

}  // namespace clientcomm::tool
