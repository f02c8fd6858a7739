// The products of examples/gtk and examples/qt, clicked as a user clicks them, with the helper that
// they bring.

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/test_sandbox.h"
#include "tests/windows/window_fixture.h"

namespace {

using namespace std::chrono_literals;
using support::waitUntil;

constexpr auto kLimit = 120s;

struct Product {
  const char* name;
  const char* bundle;
  const char* title;
  const char* product;  ///< Its ID.
};

void PrintTo(const Product& product, std::ostream* out) { *out << product.name; }

/// The helper's list of deliveries, the newest first.
nlohmann::json deliveriesIn(const std::string& dataFolder) {
  const auto list =
      nlohmann::json::parse(support::readFile(dataFolder + "/Deliveries.json"), nullptr, false);
  return list.is_object() ? list["deliveries"] : nlohmann::json::array();
}

bool isBegun(const nlohmann::json& delivery) {
  return delivery["state"] == "done" || delivery.value("copied", 0) > 0;
}

bool isStoppedProcess(pid_t process) {
  const std::string stat = support::readFile("/proc/" + std::to_string(process) + "/stat");
  return stat.find(") T ") != std::string::npos;
}

class ProductWindow : public WindowFixture, public testing::WithParamInterface<Product> {
 protected:
  void SetUp() override {
    WindowFixture::SetUp();
    runProduct(GetParam().bundle);
    ASSERT_TRUE(waitForWidget("status", "The helper runs"));
  }

  bool waitForWidget(const std::string& widget, const std::string& text) const {
    return waitForText(productIdentifier(), GetParam().title, widget, text);
  }
  void click(const std::string& widget) {
    WindowFixture::click(productIdentifier(), GetParam().title, widget);
  }
  double progress() const {
    return std::stod(textOf(productIdentifier(), GetParam().title, "progress").value_or("0"));
  }
  static Json reported() { return deliveriesIn(dataFolder()); }
  /// Types few keys: each makes the dialog draw itself, which takes long on a loaded machine.
  void chooseForUpload(const std::string& path) {
    click("choose");
    ASSERT_TRUE(waitForWindow(productIdentifier(), "Choose a file"));
    typeInto("Choose a file", path);
    ASSERT_TRUE(waitForNoWindow(productIdentifier(), "Choose a file"));
  }
};

// Without the bundles no tick can launch the helper again, so the window keeps showing that it does
// not run.
TEST_P(ProductWindow, ShowsThatTheHelperWasKilledAndRunsAgain) {
  const pid_t killed = runningHelper();
  hideHelperBundles();
  support::sendSignal(killed, SIGKILL);
  EXPECT_TRUE(waitForWidget("status", "The helper does not run"));
  bringBackHelperBundles();
  EXPECT_TRUE(waitForWidget("status", "The helper runs"));
  EXPECT_NE(runningHelper(), killed);
}

TEST_P(ProductWindow, ShowsAndHidesTheHelper) {
  click("show");
  EXPECT_TRUE(waitForState([](const Json& helper) { return helper["isShown"] == true; }));
  EXPECT_TRUE(waitForWidget("outcome", "Show the helper: done"));
  keepScreenshot();
  click("hide");
  EXPECT_TRUE(waitForState([](const Json& helper) { return helper["isShown"] == false; }));
}

TEST_P(ProductWindow, SwitchesTheTipsInTheProductsSettings) {
  const auto areTipsOn = [this] {
    const auto info =
        clientcomm::dictionaryWithContentsOfFile(productBundle() + "/Contents/Info.plist");
    return info && info->at("TipsEnable").boolValue();
  };
  ASSERT_TRUE(areTipsOn());
  click("tips");
  EXPECT_TRUE(waitForWidget("tips", "off"));
  EXPECT_TRUE(waitUntil([&] { return !areTipsOn(); }, kLimit));
  click("tips");
  EXPECT_TRUE(waitForWidget("tips", "on"));
  EXPECT_TRUE(waitUntil(areTipsOn, kLimit));
}

TEST_P(ProductWindow, UploadsTheFileThatTheUserChooses) {
  support::writeFile(support::sandbox() + "/home/report.txt", "what the user has chosen");
  chooseForUpload("~/report.txt");
  EXPECT_TRUE(waitForWidget("upload", "In the helper's outbox"));
  EXPECT_EQ(progress(), 1);
  const auto made = deliveries("user-file");
  ASSERT_EQ(made.size(), 1U);
  EXPECT_EQ(made[0]["bundleIdentifier"], productIdentifier());
  EXPECT_EQ(support::readFile(made[0]["folder"].get<std::string>() + "/content"),
            "what the user has chosen");
}

// The helper is stopped while it copies, which takes it many turns of its loop. Where it was faster
// than this test, there is another upload.
TEST_P(ProductWindow, ShowsHowFarAnUploadIs) {
  std::ofstream(support::sandbox() + "/home/large", std::ios::binary)
      << std::string(std::size_t{200} << 20, 'x');
  const pid_t helper = runningHelper();
  bool isStopped = false;
  for (std::size_t uploads = 1; !isStopped && uploads <= 5; ++uploads) {
    chooseForUpload("~/large");
    ASSERT_TRUE(
        waitUntil([&] { return reported().size() == uploads && isBegun(reported()[0]); }, kLimit));
    support::sendSignal(helper, SIGSTOP);
    ASSERT_TRUE(waitUntil([&] { return isStoppedProcess(helper); }, kLimit));
    isStopped = reported()[0]["state"] == "copying";
    if (!isStopped) support::sendSignal(helper, SIGCONT);
  }
  ASSERT_TRUE(isStopped);
  EXPECT_TRUE(waitForWidget("upload", "The helper copies the file"));
  EXPECT_TRUE(waitUntil([this] { return progress() > 0 && progress() < 1; }, kLimit));
  keepScreenshot();
  support::sendSignal(helper, SIGCONT);
  EXPECT_TRUE(waitForWidget("upload", "In the helper's outbox"));
  EXPECT_EQ(progress(), 1);
}

TEST_P(ProductWindow, AsksTheUserWhetherToUpgradeAndTellsTheHelper) {
  support::writeFile(dataFolder() + "/Feed/" + GetParam().product + ".json",
                     R"({"version": "9.0"})");
  const auto outcomeIs = [](std::size_t count, const char* outcome) {
    return waitForState([=](const Json& helper) {
      return helper["upgrades"].size() == count &&
             helper["upgrades"][count - 1]["outcome"] == outcome;
    });
  };
  click("upgrade");
  ASSERT_TRUE(waitForWindow(productIdentifier(), "Upgrade"));
  EXPECT_TRUE(outcomeIs(1, "offered"));
  EXPECT_FALSE(visibleWindow("Upgrade").empty());
  keepScreenshot();
  WindowFixture::click(productIdentifier(), "Upgrade", "yes");
  EXPECT_TRUE(outcomeIs(1, "ready"));
  EXPECT_TRUE(waitForNoWindow(productIdentifier(), "Upgrade"));
  click("upgrade");
  ASSERT_TRUE(waitForWindow(productIdentifier(), "Upgrade"));
  WindowFixture::click(productIdentifier(), "Upgrade", "no");
  EXPECT_TRUE(outcomeIs(2, "not ready"));
}

TEST_P(ProductWindow, ShowsTheHelpersNetworkErrorPage) {
  click("error-page");
  EXPECT_TRUE(
      waitForText(productIdentifier(), "No connection", "page", "This page needs the internet"));
  EXPECT_FALSE(visibleWindow("No connection").empty());
  keepScreenshot();
  WindowFixture::click(productIdentifier(), "No connection", "close-page");
  EXPECT_TRUE(waitForNoWindow(productIdentifier(), "No connection"));
}

TEST_P(ProductWindow, StaysAtWorkBesideAStoppedHelper) {
  const pid_t helper = runningHelper();
  support::sendSignal(helper, SIGSTOP);
  click("error-page");
  click("tips");
  EXPECT_TRUE(waitForWidget("tips", "off"));
  EXPECT_TRUE(waitForWidget("outcome", "Fetch the error page: the helper does not answer"));
  support::sendSignal(helper, SIGCONT);
  click("error-page");
  EXPECT_TRUE(waitForWindow(productIdentifier(), "No connection"));
}

TEST_P(ProductWindow, EndsWhenItsWindowIsClosedAndLeavesTheHelperRunning) {
  const pid_t helper = runningHelper();
  click("quit");
  EXPECT_EQ(product().wait(), 0);
  EXPECT_EQ(runningHelper(), helper);
}

std::vector<Product> products() {
  std::vector<Product> all;
#ifdef GTK_PRODUCT_BUNDLE
  all.push_back({"Gtk", GTK_PRODUCT_BUNDLE, "GTK product", "GTK-100"});
#endif
#ifdef QT_PRODUCT_BUNDLE
  all.push_back({"Qt", QT_PRODUCT_BUNDLE, "Qt product", "QT-100"});
#endif
  return all;
}

INSTANTIATE_TEST_SUITE_P(Products, ProductWindow, testing::ValuesIn(products()),
                         [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
