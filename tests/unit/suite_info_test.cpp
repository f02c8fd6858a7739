#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/TQHPSuiteInfo.h"
#include "tests/support/recording_transport.h"

using clientcomm::OptionalString;

namespace {

using support::RecordingTransport;

using Strings = std::vector<std::string>;

constexpr char kPage[] = "netErrorPagePath:version:";

// --- The record ---

TEST(SuiteInfo, HoldsWhatItWasMadeWith) {
  const TQHPSuiteInfo info = TQHPSuiteInfo::initWithDate("page.html", 640, -480);
  EXPECT_EQ(info.URL(), "page.html");
  EXPECT_EQ(info.width(), 640);
  EXPECT_EQ(info.height(), -480);
}

TEST(SuiteInfo, IsDescribedByItsFields) {
  EXPECT_EQ(TQHPSuiteInfo::initWithDate("page.html", 640, 480).description(),
            "url = page.html width = 640 height = 480");
  EXPECT_EQ(TQHPSuiteInfo::initWithDate(std::nullopt, 0, 0).description(),
            "url = (null) width = 0 height = 0");
}

// --- The two requests, which are one but for the selector ---

struct SuiteRequest {
  const char* name;
  const char* selector;
  std::function<TQHPSuiteInfo(TQHPHelperCommunicate&)> call;
};

const SuiteRequest kSuiteRequests[] = {
    {"regSuiteInfo", "regSuiteInfo:version:", [](auto& c) { return c.regSuiteInfo(); }},
    {"unRegSuiteInfo", "unRegSuiteInfo:version:", [](auto& c) { return c.unRegSuiteInfo(); }},
};

class SuiteRequestTest : public testing::TestWithParam<SuiteRequest> {
 protected:
  TQHPSuiteInfo request() { return GetParam().call(controller_); }

  TQHPSuiteInfo infoFor(const std::string& reply) {
    recorder_.setReply(GetParam().selector, reply);
    return request();
  }

  void expectInfo(const std::string& reply, const OptionalString& url, int width, int height) {
    const TQHPSuiteInfo info = infoFor(reply);
    EXPECT_EQ(info.URL(), url) << reply;
    EXPECT_EQ(info.width(), width) << reply;
    EXPECT_EQ(info.height(), height) << reply;
  }

  RecordingTransport& recorder_ = RecordingTransport::install();
  TQHPHelperCommunicate& controller_ = TQHPHelperCommunicate::share();
};

TEST_P(SuiteRequestTest, AsksUnderTheProductsIdentityWithoutRestartingTheHelper) {
  request();
  ASSERT_EQ(recorder_.selectors(), Strings{GetParam().selector});
  EXPECT_EQ(recorder_.last().className, "TQHPUploadByHelper");
  EXPECT_EQ(recorder_.last().arguments, (Strings{"P100", "1.2.3"}));
  EXPECT_EQ(recorder_.last().sendMode, 3);
  EXPECT_EQ(recorder_.last().timeOut, -2);
}

TEST_P(SuiteRequestTest, ReadsAddressWidthAndHeight) {
  expectInfo("page.html###640###480", "page.html", 640, 480);
}

TEST_P(SuiteRequestTest, ReadsSizesThatAreNoNumbersAsZero) {
  expectInfo("page.html###abc###", "page.html", 0, 0);
}

TEST_P(SuiteRequestTest, ReadsSizesLeniently) {
  expectInfo("u### 12px###-3", "u", 12, -3);
  expectInfo("u###+7###007", "u", 7, 7);
  expectInfo("u###99999999999###-99999999999", "u", 2147483647, -2147483647 - 1);
}

TEST_P(SuiteRequestTest, AnAddressWithTheSeparatorShiftsTheFields) {
  expectInfo("a###5###6###7", "a", 5, 6);
  expectInfo("page###x.html###640###480", "page", 0, 640);
}

TEST_P(SuiteRequestTest, FieldsBeyondTheThirdAreIgnored) {
  expectInfo("u###1###2###3###4", "u", 1, 2);
}

TEST_P(SuiteRequestTest, MissingFieldsReadAsZero) {
  expectInfo("u###640", "u", 640, 0);
  expectInfo("u", "u", 0, 0);
  expectInfo("u###", "u", 0, 0);
}

TEST_P(SuiteRequestTest, AnEmptyReplyIsAnEmptyAddress) { expectInfo("", "", 0, 0); }

TEST_P(SuiteRequestTest, ShorterRunsOfTheSeparatorsSignDivideNothing) {
  expectInfo("u##1###2###3", "u##1", 2, 3);
  expectInfo("u####1###2", "u", 0, 2);
}

TEST_P(SuiteRequestTest, WithoutAReplyTheRecordIsEmpty) {
  const TQHPSuiteInfo silent = request();
  EXPECT_EQ(silent.URL(), std::nullopt);
  recorder_.setReply(GetParam().selector, "page.html###640###480");
  recorder_.setStatus(-600);
  const TQHPSuiteInfo failed = request();
  EXPECT_EQ(failed.URL(), std::nullopt);
  EXPECT_EQ(failed.width(), 0);
  EXPECT_EQ(failed.height(), 0);
}

std::string nameOfRequest(const testing::TestParamInfo<SuiteRequest>& info) {
  return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(All, SuiteRequestTest, testing::ValuesIn(kSuiteRequests), nameOfRequest);

// --- The network-error page ---

class NetErrorPageTest : public testing::Test {
 protected:
  RecordingTransport& recorder_ = RecordingTransport::install();
  TQHPHelperCommunicate& controller_ = TQHPHelperCommunicate::share();
};

TEST_F(NetErrorPageTest, IsAskedForUnderTheProductsIdentityWithoutRestartingTheHelper) {
  controller_.netErrorPagePath();
  ASSERT_EQ(recorder_.selectors(), Strings{kPage});
  EXPECT_EQ(recorder_.last().className, "TQHPUploadByHelper");
  EXPECT_EQ(recorder_.last().arguments, (Strings{"P100", "1.2.3"}));
}

TEST_F(NetErrorPageTest, ComesBackUnchanged) {
  for (const std::string& path : {std::string("/a b/page.html"), std::string(), std::string("\xFF"),
                                  std::string("a###1###2")}) {
    recorder_.setReply(kPage, path);
    EXPECT_EQ(controller_.netErrorPagePath(), path);
  }
}

TEST_F(NetErrorPageTest, IsNilWithoutAReply) {
  EXPECT_EQ(controller_.netErrorPagePath(), std::nullopt);
  recorder_.setReply(kPage, "/page.html");
  recorder_.setStatus(-609);
  EXPECT_EQ(controller_.netErrorPagePath(), std::nullopt);
}

}  // namespace
