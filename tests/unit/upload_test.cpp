#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/TQHPUploadByHelper.h"
#include "tests/support/helper_files.h"
#include "tests/support/recording_transport.h"

using clientcomm::OptionalString;

namespace {

using support::RecordingTransport;

using Strings = std::vector<std::string>;
using OptionalStrings = std::vector<OptionalString>;

constexpr char kIsAlive[] = "isAlive:prodeuctVersion:";

/// A request of the controller, with the remote call behind it.
struct Request {
  const char* name;
  const char* className;
  const char* selector;
  std::size_t argumentCount;  // beside the product's identity
  bool restartsHelper;
  std::function<OSErr(TQHPHelperCommunicate&, const OptionalStrings&)> call;
};

std::ostream& operator<<(std::ostream& stream, const Request& request) {
  return stream << request.name;
}

const Request kRequests[] = {
    {"uploadLogByEmail", "TQHPUploadByHelper",
     "uploadLog:versionID:email:filePath:title:description:", 4, true,
     [](auto& controller, const auto& a) {
       return controller.uploadLogByEmail(a[0], a[1], a[2], a[3]);
     }},
    {"uploadUserFile", "TQHPUploadByHelper",
     "uploadUserFile:versionID:email:filePath:title:description:", 4, true,
     [](auto& controller, const auto& a) {
       return controller.uploadUserFile(a[0], a[1], a[2], a[3]);
     }},
    {"uploadProductFile", "TQHPUploadByHelper",
     "uploadProductFile:versionID:email:filePath:title:description:", 4, false,
     [](auto& controller, const auto& a) {
       return controller.uploadProductFile(a[0], a[1], a[2], a[3]);
     }},
    {"checkForHeleprMessage", "TQHPCustomerServiceByHelepr", "checkForHeleprMessage:versionID:", 0,
     true, [](auto& controller, const auto&) { return controller.checkForHeleprMessage(); }},
    {"customerserviceByEmail", "TQHPCustomerServiceByHelepr",
     "customerService:versionID:email:attachment:", 2, true,
     [](auto& controller, const auto& a) { return controller.customerserviceByEmail(a[0], a[1]); }},
};

class RequestTest : public testing::TestWithParam<Request> {
 protected:
  OSErr request(const OptionalStrings& arguments) {
    recorder_.forget();
    return GetParam().call(controller_, arguments);
  }
  OSErr request() { return request(distinctArguments()); }

  static OptionalStrings distinctArguments() {
    OptionalStrings arguments;
    for (std::size_t i = 0; i < GetParam().argumentCount; ++i) {
      arguments.emplace_back("~/argument " + std::to_string(i) + "\xFF");
    }
    return arguments;
  }

  static Strings withIdentity(const OptionalStrings& arguments) {
    Strings all = {"P100", "1.2.3"};
    for (const OptionalString& argument : arguments) all.push_back(argument.value_or(""));
    return all;
  }

  RecordingTransport& recorder_ = RecordingTransport::install();
  TQHPHelperCommunicate& controller_ = TQHPHelperCommunicate::share();
};

TEST_P(RequestTest, CarriesTheProductsIdentityAndTheHostsTextsUntouched) {
  EXPECT_EQ(request(), 0);
  EXPECT_EQ(recorder_.last().className, GetParam().className);
  EXPECT_EQ(recorder_.last().selector, GetParam().selector);
  EXPECT_EQ(recorder_.last().arguments, withIdentity(distinctArguments()));
}

TEST_P(RequestTest, CarriesNilInAnyPositionAsAnEmptyString) {
  for (std::size_t i = 0; i < GetParam().argumentCount; ++i) {
    OptionalStrings arguments = distinctArguments();
    arguments[i] = std::nullopt;
    request(arguments);
    EXPECT_EQ(recorder_.last().arguments, withIdentity(arguments));
  }
}

TEST_P(RequestTest, MakesSureThatTheHelperRunsWhereItNeedsTo) {
  controller_.startHelper();
  request();
  const Strings plain = {GetParam().selector};
  const Strings withRestart = {kIsAlive, GetParam().selector};
  EXPECT_EQ(recorder_.selectors(), GetParam().restartsHelper ? withRestart : plain);
}

TEST_P(RequestTest, ReturnsItsOwnSendsStatus) {
  recorder_.setStatus(GetParam().selector, -1712);
  EXPECT_EQ(request(), -1712);
}

TEST_P(RequestTest, WithoutAHelperIsSentOnlyWhereItDoesNotRestartIt) {
  recorder_.setStatus(-600);
  EXPECT_EQ(request(), GetParam().restartsHelper ? 1 : -600);
  EXPECT_EQ(recorder_.countOf(GetParam().selector), GetParam().restartsHelper ? 0 : 1);
}

TEST_P(RequestTest, ToAClosedServerIsSentOnlyWhereItDoesNotRestartTheHelper) {
  support::writeHelperPreferences({{"TQHPServerClosed", true}});
  EXPECT_EQ(request(), GetParam().restartsHelper ? 10 : 0);
  EXPECT_EQ(recorder_.calls().size(), GetParam().restartsHelper ? 0U : 1U);
}

std::string nameOfRequest(const testing::TestParamInfo<Request>& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(All, RequestTest, testing::ValuesIn(kRequests), nameOfRequest);

TEST(Upload, NobodyHasJoinedTheImprovementProgramme) {
  RecordingTransport::install();
  EXPECT_FALSE(TQHPUploadByHelper::share().checkJoinImproveExp());
  TQHPHelperCommunicate::share().setProductCollectStatus(true);
  EXPECT_FALSE(TQHPUploadByHelper::share().checkJoinImproveExp());
}

}  // namespace
