// The parts of the sample helper's network code, each in the test's own process.

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>

#include "examples/helper/durable_file.h"
#include "examples/helper/network/request_body.h"
#include "examples/helper/network/retry_delay.h"
#include "examples/helper/network/upload_batch.h"
#include "examples/helper/network/upload_record.h"
#include "tests/support/test_sandbox.h"

namespace {

using std::chrono::milliseconds;
using support::sandbox;

std::string folder(const std::string& name) { return sandbox() + "/" + name; }

TEST(RetryDelay, DoublesUpToItsLimitAndVaries) {
  sample::RetryDelay delay({milliseconds(100), milliseconds(1000)});
  for (const int bound : {100, 200, 400, 800, 1000, 1000}) {
    const milliseconds next = delay.next();
    EXPECT_GE(next, milliseconds(bound / 2));
    EXPECT_LE(next, milliseconds(bound));
  }
  delay.reset();
  EXPECT_LE(delay.next(), milliseconds(100));
  std::set<milliseconds> drawn;
  for (int i = 0; i < 50; ++i) {
    delay.reset();
    drawn.insert(delay.next());
  }
  EXPECT_GT(drawn.size(), 5U);
}

TEST(UploadBatch, CoversAFileWithoutGapOrOverlap) {
  support::writeFile(folder("log-1/record.json"), "{}");
  support::writeFile(folder("log-1/content"), std::string(2'500, 'x'));
  const sample::UploadBatch batch(folder("log-1"), 1000);
  EXPECT_EQ(batch.name(), "log-1");
  EXPECT_EQ(batch.size(), 2'502);
  ASSERT_EQ(batch.parts().size(), 4U);
  std::int64_t end = 0;
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(batch.parts()[i].name, "content." + std::to_string(i));
    EXPECT_EQ(batch.parts()[i].offset, end);
    end += batch.parts()[i].size;
  }
  EXPECT_EQ(end, 2'500);
}

TEST(UploadBatch, IsNothingElseThanADeliveryOrAUsageFile) {
  support::writeFile(folder("out/.partial-log-1/record.json"), "{}");
  support::writeFile(folder("out/empty/other"), "");
  support::writeFile(folder("out/notes.txt"), "");
  support::writeFile(folder("out/usage-1.json"), "{}");
  std::filesystem::create_symlink("/etc/passwd", folder("out/link.json"));
  for (const char* name : {".partial-log-1", "empty", "notes.txt", "link.json", "missing"}) {
    EXPECT_EQ(sample::UploadBatch::nameOf(folder("out/") + name), "") << name;
  }
  EXPECT_EQ(sample::UploadBatch::nameOf(folder("out/usage-1.json")), "usage-1");
}

TEST(FilePartBody, GivesItsPieceAgainAfterRewindingAndKnowsItsSum) {
  support::writeFile(folder("file"), "0123456789");
  sample::FilePartBody body(folder("file"), 2, 3);
  char buffer[16];
  EXPECT_EQ(body.read(buffer, sizeof buffer), 3U);
  body.rewind();
  EXPECT_EQ(body.read(buffer, 2), 2U);
  EXPECT_EQ(body.read(buffer, 2), 1U);
  EXPECT_EQ(body.read(buffer, 2), 0U);
  EXPECT_EQ(body.sha256(), "114bd151f8fb0c58642d2170da4ae7d7c57977260ac2cc8905306cab6b2acabc");
}

TEST(FilePartBody, FailsWhenTheFileHasBecomeShorter) {
  support::writeFile(folder("file"), "0123456789");
  sample::FilePartBody body(folder("file"), 5, 10);
  char buffer[16];
  EXPECT_EQ(body.read(buffer, sizeof buffer), 5U);
  EXPECT_THROW(body.read(buffer, sizeof buffer), sample::FileError);
}

TEST(UploadRecord, RemembersWhatTheServerHasAcknowledged) {
  support::writeFile(folder("usage-1.json"), "{}");
  const sample::UploadBatch batch(folder("usage-1.json"), 1);
  {
    sample::UploadRecord record(folder("data"));
    EXPECT_FALSE(record.find("usage-1"));
    record.begin(batch, 1);
    record.notePart("usage-1", batch.parts()[0], "first");
    record.notePart("usage-1", batch.parts()[1], "second");
    record.forgetPart("usage-1", batch.parts()[1]);
  }
  sample::UploadRecord record(folder("data"));
  const auto progress = record.find("usage-1");
  ASSERT_TRUE(progress);
  EXPECT_FALSE(progress->isDone);
  EXPECT_EQ(progress->partSize, 1);
  EXPECT_EQ(progress->parts, (std::map<std::string, std::string>{{"usage.json.0", "first"}}));
  EXPECT_EQ(record.contents()[0]["sent"], 1);
  record.finish("usage-1");
  EXPECT_TRUE(record.find("usage-1")->isDone);
}

}  // namespace
