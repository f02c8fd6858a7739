// The helper of examples/desktop-helper, under a product with a window.

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <string>

#include "tests/support/child_process.h"
#include "tests/support/test_sandbox.h"
#include "tests/windows/window_fixture.h"

namespace {

constexpr char kProductTitle[] = "GTK product";
constexpr char kHelperTitle[] = "Helper";

class DesktopHelper : public WindowFixture {
 protected:
  void showByTheProduct() {
    runProduct(GTK_PRODUCT_BUNDLE);
    ASSERT_TRUE(waitForText(productIdentifier(), kProductTitle, "status", "The helper runs"));
    ASSERT_TRUE(windowOf(identifier(), kHelperTitle).is_null());
    click(productIdentifier(), kProductTitle, "show");
    ASSERT_TRUE(waitForWindow(identifier(), kHelperTitle));
  }
  bool waitForList(const std::string& list, const std::string& line) const {
    return waitForText(identifier(), kHelperTitle, list, line);
  }
  support::ChildProcess startHelperAlone() {
    prepareProduct(GTK_PRODUCT_BUNDLE);
    auto helper = support::ChildProcess::spawn(
        {productBundle() + "/Contents/Resources/DesktopHelper.app/Contents/Linux/DesktopHelper"});
    EXPECT_TRUE(support::waitUntil([] { return runningHelper() != 0; }, std::chrono::seconds(120)));
    return helper;
  }
};

TEST_F(DesktopHelper, IsShownAndHiddenByTheProduct) {
  showByTheProduct();
  EXPECT_TRUE(waitForList("products", "GTK-100 1.0, " + productIdentifier()));
  EXPECT_FALSE(visibleWindow(kHelperTitle).empty());
  keepScreenshot();
  click(productIdentifier(), kProductTitle, "hide");
  EXPECT_TRUE(waitForNoWindow(identifier(), kHelperTitle));
  click(productIdentifier(), kProductTitle, "show");
  EXPECT_TRUE(waitForWindow(identifier(), kHelperTitle));
}

TEST_F(DesktopHelper, ListsWhatItHasCollectedAndItsOutbox) {
  showByTheProduct();
  EXPECT_TRUE(waitForList("collected", "None"));
  EXPECT_TRUE(waitForList("outbox", "None"));
  const std::string file = support::sandbox() + "/report.txt";
  support::writeFile(file, "a report");
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(call("TQHPUploadByHelper", "collectData:version:collectionType:target:keyID:value:",
                   {"GTK-100", "1.0", "4", "menu", "open", ""}),
              0);
  }
  EXPECT_EQ(call("TQHPUploadByHelper", "uploadUserFile:versionID:email:filePath:title:description:",
                 {"GTK-100", "1.0", "", file, "Report \x01", ""}),
            0);
  EXPECT_TRUE(waitForList("collected", "GTK-100: menu, open: 2"));
  EXPECT_TRUE(waitForList("outbox", "of GTK-100, user-file: in the outbox"));
  EXPECT_FALSE(visibleWindow(kHelperTitle).empty());
  keepScreenshot();
}

TEST_F(DesktopHelper, IsHiddenByItsUserAndShownAgainByTheProduct) {
  showByTheProduct();
  click(identifier(), kHelperTitle, "close");
  EXPECT_TRUE(waitForNoWindow(identifier(), kHelperTitle));
  EXPECT_TRUE(waitForState([](const Json& helper) { return helper["isShown"] == false; }));
  click(productIdentifier(), kProductTitle, "show");
  EXPECT_TRUE(waitForWindow(identifier(), kHelperTitle));
}

TEST_F(DesktopHelper, IsShownAgainAfterAKill) {
  showByTheProduct();
  const pid_t killed = runningHelper();
  support::sendSignal(killed, SIGKILL);
  EXPECT_TRUE(support::waitUntil(
      [&] { return reporterOf(identifier()) != 0 && reporterOf(identifier()) != killed; },
      std::chrono::seconds(120)));
  EXPECT_TRUE(waitForWindow(identifier(), kHelperTitle));
}

TEST_F(DesktopHelper, EndsInOrderOnASignal) {
  auto helper = startHelperAlone();
  helper.signal(SIGTERM);
  EXPECT_EQ(helper.wait(), 0);
}

TEST_F(DesktopHelper, WorksWithoutADisplay) {
  unsetenv("DISPLAY");
  auto helper = startHelperAlone();
  EXPECT_EQ(call("TQHPHelperControl", "show:prodeuctVersion:", {"GTK-100", "1.0"}), 0);
  EXPECT_TRUE(waitForState([](const Json& known) { return known["isShown"] == true; }));
  helper.signal(SIGTERM);
  EXPECT_EQ(helper.wait(), 0);
}

}  // namespace
