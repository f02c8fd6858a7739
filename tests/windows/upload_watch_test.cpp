// What a window shows of an upload, by the files that the helper writes.

#include "examples/windows/upload_watch.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/integration/sample_helper_fixture.h"
#include "tests/support/test_sandbox.h"

namespace {

class UploadWatch : public SampleHelperFixture {
 protected:
  static void write(const char* name, const Json& contents) {
    support::writeFile(dataFolder() + "/" + name, contents.dump());
  }
};

TEST_F(UploadWatch, FollowsAnUploadThroughTheOutboxToTheServer) {
  sample::UploadWatch watch;
  EXPECT_EQ(watch.look().text, "");
  Json delivery{{"name", "user-file-1"}, {"title", watch.begin("/tmp/report.txt")}};
  const Json other{{"name", "user-file-2"}, {"title", watch.begin("/tmp/report.txt")}};
  EXPECT_NE(delivery["title"], other["title"]);
  delivery["title"] = other["title"];
  EXPECT_EQ(watch.look().text, "Waiting for the helper");
  delivery.update({{"state", "copying"}, {"copied", 1}, {"size", 4}});
  write("Deliveries.json", {{"deliveries", Json::array({delivery})}});
  EXPECT_EQ(watch.look().fraction, 0.25);
  delivery["state"] = "done";
  write("Deliveries.json", {{"deliveries", Json::array({delivery})}});
  EXPECT_EQ(watch.look().text, "In the helper's outbox");
  Json upload{{"name", "user-file-1"}, {"state", "sending"}, {"sent", 3}, {"size", 4}};
  write("Uploads.json", {{"uploads", Json::array({upload})}});
  EXPECT_EQ(watch.look().text, "On its way to the server");
  EXPECT_EQ(watch.look().fraction, 0.75);
  upload["state"] = "done";
  write("Uploads.json", {{"uploads", Json::array({upload})}});
  EXPECT_EQ(watch.look().text, "On the server");
}

TEST_F(UploadWatch, WaitsWhileTheFilesSaySomethingElse) {
  sample::UploadWatch watch;
  const std::string title = watch.begin("/tmp/report.txt");
  for (const char* text : {"", "{", "[]", "{\"deliveries\": 1}", "{\"deliveries\": [1, {}]}"}) {
    support::writeFile(dataFolder() + "/Deliveries.json", text);
    EXPECT_EQ(watch.look().text, "Waiting for the helper") << text;
  }
  const Json delivery{{"title", title}, {"state", "copying"}, {"copied", "x"}, {"size", 0}};
  write("Deliveries.json", {{"deliveries", Json::array({delivery})}});
  EXPECT_EQ(watch.look().fraction, 0);
}

}  // namespace
