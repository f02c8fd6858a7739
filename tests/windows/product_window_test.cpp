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

constexpr auto kLimit = 60s;

struct Product {
  const char* name;
  const char* bundle;
  const char* title;
  const char* product;  ///< Its ID.
};

void PrintTo(const Product& product, std::ostream* out) { *out << product.name; }

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
  void chooseForUpload(const std::string& path) {
    click("choose");
    ASSERT_TRUE(waitForWindow(productIdentifier(), "Choose a file"));
    typeInto("Choose a file", path);
    ASSERT_TRUE(waitForNoWindow(productIdentifier(), "Choose a file"));
  }
};

TEST_P(ProductWindow, ShowsThatTheHelperWasKilledAndRunsAgain) {
  const pid_t killed = runningHelper();
  support::sendSignal(killed, SIGKILL);
  EXPECT_TRUE(waitForWidget("status", "The helper does not run"));
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
  const std::string path = support::sandbox() + "/report.txt";
  support::writeFile(path, "what the user has chosen");
  chooseForUpload(path);
  EXPECT_TRUE(waitForWidget("upload", "In the helper's outbox"));
  EXPECT_EQ(progress(), 1);
  const auto made = deliveries("user-file");
  ASSERT_EQ(made.size(), 1U);
  EXPECT_EQ(made[0]["bundleIdentifier"], productIdentifier());
  EXPECT_EQ(support::readFile(made[0]["folder"].get<std::string>() + "/content"),
            "what the user has chosen");
}

// The helper is stopped while it copies, which takes it many turns of its loop.
TEST_P(ProductWindow, ShowsHowFarAnUploadIs) {
  const std::string path = support::sandbox() + "/large.bin";
  const std::string megabyte(std::size_t{1} << 20, 'x');
  std::ofstream file(path, std::ios::binary);
  for (int i = 0; i < 300; ++i) file << megabyte;
  file.close();
  const pid_t helper = runningHelper();
  chooseForUpload(path);
  const auto isCopying = [] {
    const auto report =
        Json::parse(support::readFile(dataFolder() + "/Deliveries.json"), nullptr, false);
    return report.is_object() && !report["deliveries"].empty() &&
           report["deliveries"][0].value("copied", 0) > 0;
  };
  ASSERT_TRUE(waitUntil(isCopying, kLimit));
  support::sendSignal(helper, SIGSTOP);
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
