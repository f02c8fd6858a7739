#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <iosfwd>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "ClientComm/diagnostics.h"
#include "ClientComm/platform/property_list.h"

/// A cause of failure in a real host, and what the diagnostic handler says to it.
namespace diagnosis {

/// What the handler was told, or has to be told.
struct Record {
  clientcomm::DiagnosticCause cause;
  std::string subject;
  std::string call;
  int code = 0;
  std::string detail = {};

  friend bool operator==(const Record&, const Record&) = default;
};

std::ostream& operator<<(std::ostream& stream, const Record& record);

/// A row of a table: produces a cause, and names every record that it leads to, in order.
struct Row {
  const char* name;
  /// What it shows.
  clientcomm::DiagnosticCause cause;
  /// Makes the files; the main bundle may not be used yet.
  std::function<void()> prepare;
  /// Runs into the cause with the handler set.
  std::function<void()> run;
  /// Evaluated after both.
  std::function<std::vector<Record>()> expected;
};

void PrintTo(const Row& row, std::ostream* stream);

/// The causes of all rows, which the tables note.
const std::set<clientcomm::DiagnosticCause>& shownCauses();

/// Notes the causes of a table.
class Rows {
 public:
  explicit Rows(std::span<const Row> rows);
};

class Table : public testing::TestWithParam<Row> {
 protected:
  /// Runs the row and compares.
  void runRow();
};

/// What has been reported so far.
const std::vector<Record>& records();
/// Forgets it: what `prepare` could not keep apart.
void forgetRecords();
bool hasRecord(clientcomm::DiagnosticCause cause);

std::string nameOf(const testing::TestParamInfo<Row>& info);

/// The start-up of a host.
void startHost();

/// Writes the Info.plist of the host, less `removed`, with `added`.
void writeInfo(const std::vector<std::string>& removed,
               const clientcomm::PropertyListDictionary& added = {});

/// A path in the private folder.
std::string at(const std::string& name);

}  // namespace diagnosis
