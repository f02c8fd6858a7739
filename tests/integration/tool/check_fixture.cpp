#include "tests/integration/tool/check_fixture.h"

#include <sys/mount.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <ostream>
#include <set>

#include "tests/integration/tool/tool_fixture.h"
#include "tests/support/mounts.h"
#include "tests/support/product_applications.h"
#include "tests/support/test_application.h"
#include "tests/support/test_helper.h"
#include "tests/support/test_host.h"
#include "tests/support/test_sandbox.h"
#include "tools/clientcomm/check/finding.h"

namespace check_test {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> namesOf(const tool_test::Json& document) {
  std::vector<std::string> names;
  if (!document.is_object()) return names;
  for (const auto& finding : document["findings"]) names.push_back(finding["name"]);
  return names;
}

std::map<std::string, const Row*>& rows() {
  static auto* const all = new std::map<std::string, const Row*>;
  return *all;
}

TEST(Check, HasARowForEachCause) {
  std::set<std::string> names;
  for (const auto& [name, row] : rows()) names.insert(row->findings.begin(), row->findings.end());
  for (const auto& cause : clientcomm::tool::causes()) {
    EXPECT_TRUE(names.contains(cause.name)) << cause.name;
  }
}

TEST(Check, PageExplainsEachCause) {
  const std::string page =
      support::readFile(std::string(CLIENTCOMM_SOURCE_DIR) + "/docs/clientcomm-tool.md");
  for (const auto& cause : clientcomm::tool::causes()) {
    EXPECT_NE(page.find(std::string("\n| `") + cause.name + "` | " +
                        clientcomm::tool::nameOf(cause.severity) + " |"),
              std::string::npos)
        << cause.name;
  }
}

}  // namespace

Rows::Rows(std::span<const Row> rowsOfFile) {
  for (const Row& row : rowsOfFile) rows().emplace(row.name, &row);
}

const Row* rowNamed(const std::string& name) {
  const auto found = rows().find(name);
  return found != rows().end() ? found->second : nullptr;
}

void PrintTo(const Row& row, std::ostream* stream) { *stream << row.name; }

std::string nameOf(const testing::TestParamInfo<Row>& info) { return info.param.name; }

void prepareHost(const Row& row) {
  support::embedHelper("1.0");
  fs::create_directories(at("install"));
  row.prepare();
}

std::vector<std::string> findingsOfHost(const Row& row) {
  const auto outcome = tool_test::run({"check", support::hostBundlePath(), "--json"}, row.before);
  return namesOf(outcome.json());
}

void CheckTable::runRow() {
  const Row& row = GetParam();
  prepareHost(row);
  if (IsSkipped()) return;
  const auto outcome = tool_test::run({"check", support::hostBundlePath(), "--json"}, row.before);
  EXPECT_EQ(namesOf(outcome.json()), row.findings) << outcome.output << outcome.errors;
  EXPECT_EQ(outcome.status, row.status) << outcome.errors;
  const auto text = tool_test::run({"check", support::hostBundlePath()}, row.before);
  EXPECT_EQ(text.status, row.status) << text.errors;
  for (const std::string& name : row.findings) {
    EXPECT_NE(text.output.find(": " + name + "\n"), std::string::npos) << text.output;
  }
}

std::string at(const std::string& name) { return support::sandbox() + "/" + name; }

std::string embedded() { return support::helperIn(support::hostBundlePath()); }

std::string embeddedProgram() { return support::executableOf(embedded()); }

void changeInfo(const std::string& path, const std::vector<std::string>& removed,
                const clientcomm::PropertyListDictionary& added) {
  const std::string file = path + "/Contents/Info.plist";
  auto info = clientcomm::dictionaryWithContentsOfFile(file);
  ASSERT_TRUE(info) << file;
  for (const std::string& key : removed) info->erase(key);
  for (const auto& [key, value] : added) info->insert_or_assign(key, value);
  fs::remove(file);  // a reader may keep the old content of a file with the same signature
  support::writeFile(file, clientcomm::xmlPropertyList(*info));
}

void changeHostInfo(const std::vector<std::string>& removed,
                    const clientcomm::PropertyListDictionary& added) {
  changeInfo(support::hostBundlePath(), removed, added);
}

std::string installHelper(const std::string& version) {
  fs::rename(support::embedHelper(version, "other"), support::installedHelperPath());
  return support::installedHelperPath();
}

void patchProgram(const std::function<void(std::string& bytes)>& change) {
  const std::string path = embeddedProgram();
  std::string bytes = support::readFile(path);
  change(bytes);
  fs::remove(path);
  support::writeFile(path, bytes);
  fs::permissions(path, fs::perms::owner_all);
}

void mountInstallFolder(unsigned long flags, const char* options) {
  if (!support::ownMounts()) GTEST_SKIP() << "no mounts of our own";
  if (mount("tmpfs", at("install").c_str(), "tmpfs", flags, options) != 0) {
    GTEST_SKIP() << "mount: " << std::strerror(errno);
  }
}

}  // namespace check_test
