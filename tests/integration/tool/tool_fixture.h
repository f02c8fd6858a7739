#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/clientcomm/output.h"

/// Runs the command-line tool as a process of its own.
namespace tool_test {

using clientcomm::tool::Json;

struct Outcome {
  int status = -1;     ///< Exit status; 128 + the signal's number when one ended it.
  std::string output;  ///< Standard output.
  std::string errors;  ///< Standard error.

  /// The output as a document; null where it is none.
  Json json() const { return Json::parse(output, nullptr, false); }
};

/// Runs the tool to its end. `prepare` runs in the forked process before.
Outcome run(const std::vector<std::string>& arguments,
            const std::function<void()>& prepare = nullptr);

/// Has this process, when it executes a program, bound by file permissions even as root.
void loseRightsOfRoot();

}  // namespace tool_test
