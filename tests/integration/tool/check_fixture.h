#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <iosfwd>
#include <span>
#include <string>
#include <vector>

#include "ClientComm/platform/property_list.h"

/// A deliberate mistake in a real host's set-up, and what `clientcomm check` has to say to it.
namespace check_test {

struct Row {
  const char* name;
  /// Makes the mistake. The host is complete and correct before. May skip the test.
  std::function<void()> prepare;
  /// Names of all findings, in order.
  std::vector<std::string> findings;
  int status = 1;
  /// Runs in the tool's process before the tool does.
  std::function<void()> before = nullptr;
};

/// Makes the rows of a file known to the test that looks whether there is one for each cause.
class Rows {
 public:
  explicit Rows(std::span<const Row> rowsOfFile);
};

void PrintTo(const Row& row, std::ostream* stream);

std::string nameOf(const testing::TestParamInfo<Row>& info);

/// The registered row of this name; null without one.
const Row* rowNamed(const std::string& name);

/// Makes a correct host with its helper, and the row's mistake.
void prepareHost(const Row& row);

/// Runs the tool over the host. @return names of all findings, in order.
std::vector<std::string> findingsOfHost(const Row& row);

class CheckTable : public testing::TestWithParam<Row> {
 protected:
  /// Makes a correct host with its helper, runs the row, and compares.
  void runRow();
};

/// A path in the private folder.
std::string at(const std::string& name);

/// Path of the helper in the host's bundle, and of its executable.
std::string embedded();
std::string embeddedProgram();

/// Writes the Info.plist of the host, less `removed`, with `added`.
void changeHostInfo(const std::vector<std::string>& removed,
                    const clientcomm::PropertyListDictionary& added = {});
/// The same for the bundle at `path`.
void changeInfo(const std::string& path, const std::vector<std::string>& removed,
                const clientcomm::PropertyListDictionary& added = {});

/// Puts a helper of this version into the install folder. @return its path.
std::string installHelper(const std::string& version);

/// Replaces the executable of the embedded helper by a copy of its own, and gives its bytes to
/// `change`.
void patchProgram(const std::function<void(std::string& bytes)>& change);

/// Mounts a tmpfs over the install folder, with these flags and options. Skips the test where that
/// is refused.
void mountInstallFolder(unsigned long flags, const char* options);

}  // namespace check_test
