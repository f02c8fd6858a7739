#include "tests/integration/diagnosis_fixture.h"

#include <algorithm>
#include <ostream>

#include "ClientComm/TQHPHelperCommunicate.h"
#include "tests/support/test_host.h"
#include "tests/support/test_sandbox.h"

namespace diagnosis {
namespace {

std::vector<Record>& mutableRecords() {
  static auto* const all = new std::vector<Record>;
  return *all;
}

std::set<clientcomm::DiagnosticCause>& mutableCauses() {
  static auto* const all = new std::set<clientcomm::DiagnosticCause>;
  return *all;
}

void note(const clientcomm::Diagnostic& diagnostic) {
  mutableRecords().push_back({diagnostic.cause, std::string(diagnostic.subject), diagnostic.call,
                              diagnostic.code, std::string(diagnostic.detail)});
  EXPECT_FALSE(clientcomm::descriptionOf(diagnostic).empty());
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const Record& record) {
  return stream << static_cast<int>(record.cause) << " \"" << record.subject << "\" " << record.call
                << " " << record.code << " \"" << record.detail << "\"";
}

void PrintTo(const Row& row, std::ostream* stream) { *stream << row.name; }

const std::set<clientcomm::DiagnosticCause>& shownCauses() { return mutableCauses(); }

Rows::Rows(std::span<const Row> rows) {
  for (const Row& row : rows) mutableCauses().insert(row.cause);
}

void Table::runRow() {
  const Row& row = GetParam();
  if (row.prepare) row.prepare();
  clientcomm::setDiagnosticHandler(note);
  row.run();
  const std::vector<Record> expected = row.expected();
  EXPECT_EQ(records(), expected);
  // Some need a superuser, who alone makes files of another user.
  EXPECT_TRUE(expected.empty() || hasRecord(row.cause));
  clientcomm::setDiagnosticHandler(nullptr);
}

const std::vector<Record>& records() { return mutableRecords(); }

void forgetRecords() { mutableRecords().clear(); }

bool hasRecord(clientcomm::DiagnosticCause cause) {
  return std::any_of(records().begin(), records().end(),
                     [cause](const Record& record) { return record.cause == cause; });
}

std::string nameOf(const testing::TestParamInfo<Row>& info) { return info.param.name; }

void startHost() { TQHPHelperCommunicate::share(); }

void writeInfo(const std::vector<std::string>& removed,
               const clientcomm::PropertyListDictionary& added) {
  clientcomm::PropertyListDictionary info = support::defaultHostInfo();
  for (const std::string& key : removed) info.erase(key);
  for (const auto& [key, value] : added) info.insert_or_assign(key, value);
  support::writeHostInfo(info);
}

std::string at(const std::string& name) { return support::sandbox() + "/" + name; }

}  // namespace diagnosis
