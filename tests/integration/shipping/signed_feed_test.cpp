// Signed upgrade feeds, in the test's own process.

#include "examples/helper/network/signed_feed.h"

#include <glib.h>
#include <gtest/gtest.h>
#include <sodium.h>

#include <filesystem>
#include <string>

#include "examples/helper/network/package_file.h"
#include "tests/support/test_sandbox.h"

namespace {

using sample::FeedError;
using sample::FeedFault;
using sample::FeedStore;
using sample::SignedFeed;

class SignedFeeds : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_GE(sodium_init(), 0);
    crypto_sign_keypair(publicKey_, secretKey_);
  }

  std::string publicKey() const {
    gchar* const text = g_base64_encode(publicKey_, sizeof publicKey_);
    std::string base64 = text;
    g_free(text);
    return base64;
  }
  std::string sign(const std::string& bytes) const {
    std::string signature(crypto_sign_BYTES, '\0');
    crypto_sign_detached(reinterpret_cast<unsigned char*>(signature.data()), nullptr,
                         reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
                         secretKey_);
    return signature;
  }
  SignedFeed open(const std::string& bytes) const { return {bytes, sign(bytes), publicKey()}; }

  static std::string feed(int sequence, const std::string& products = "{}",
                          const std::string& expires = "2999-01-01T00:00:00Z") {
    return R"({"format": 1, "sequence": )" + std::to_string(sequence) + R"(, "expires": ")" +
           expires + R"(", "products": )" + products + "}";
  }

  template <typename Action>
  static int faultOf(const Action& action) {
    try {
      action();
    } catch (const FeedError& error) {
      return static_cast<int>(error.fault());
    }
    return 0;
  }

  unsigned char publicKey_[crypto_sign_PUBLICKEYBYTES] = {};
  unsigned char secretKey_[crypto_sign_SECRETKEYBYTES] = {};
};

TEST_F(SignedFeeds, GiveWhatTheyHoldOfAProduct) {
  const std::string sum(64, 'a');
  const auto opened = open(feed(7, R"({"P1": {"version": "2.0"},
      "P2": {"version": "3.0", "url": "p2", "size": 5, "sha256": ")" +
                                       sum + R"("},
      "P3": {"error": {"code": 12, "description": "closed"}}})"));
  EXPECT_EQ(opened.sequence(), 7);
  EXPECT_EQ(opened.entryFor("P1")->version, "2.0");
  EXPECT_FALSE(opened.entryFor("P1")->package);
  EXPECT_EQ(opened.entryFor("P2")->package->size, 5);
  EXPECT_EQ(opened.entryFor("P3")->code, 12);
  EXPECT_FALSE(opened.entryFor("P4"));
}

TEST_F(SignedFeeds, AreRefusedWithAnyByteChanged) {
  const std::string bytes = feed(1);
  const std::string signature = sign(bytes);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    std::string changed = bytes;
    changed[i] = static_cast<char>(changed[i] ^ 1);
    EXPECT_EQ(faultOf([&] { SignedFeed(changed, signature, publicKey()); }), 102) << i;
  }
  for (std::size_t i = 0; i < signature.size(); ++i) {
    std::string changed = signature;
    changed[i] = static_cast<char>(changed[i] ^ 1);
    EXPECT_EQ(faultOf([&] { SignedFeed(bytes, changed, publicKey()); }), 102) << i;
  }
  for (const std::string& key : {std::string(), std::string("AAAA"), publicKey() + publicKey()}) {
    EXPECT_EQ(faultOf([&] { SignedFeed(bytes, signature, key); }), 102);
  }
  EXPECT_EQ(faultOf([&] { SignedFeed(bytes, signature + "x", publicKey()); }), 102);
}

TEST_F(SignedFeeds, OfAnotherFormatAreUnreadable) {
  for (const std::string& bytes :
       {std::string(), std::string("{"), std::string("[]"), std::string("{}"),
        std::string(R"({"format": 2, "sequence": 1, "expires": "2999-01-01", "products": {}})"),
        std::string(R"({"format": 1, "sequence": "1", "expires": "2999-01-01", "products": {}})"),
        feed(1, "[]"), feed(1, "{}", "tomorrow"), std::string(100'000, '[')}) {
    EXPECT_EQ(faultOf([&] { open(bytes); }), 100) << bytes.substr(0, 80);
  }
  for (const char* entry :
       {"1", "[]", "{}", R"({"version": 2})", R"({"error": {}})",
        R"({"error": {"code": "x", "description": ""}})", R"({"version": "2", "url": "u"})",
        R"({"version": "2", "url": "u", "size": -1, "sha256": "00"})",
        R"({"version": "2", "url": "u", "size": 1, "sha256": "../../../etc/passwd"})"}) {
    const auto opened = open(feed(1, R"({"P1": )" + std::string(entry) + "}"));
    EXPECT_EQ(faultOf([&] { opened.entryFor("P1"); }), 100) << entry;
  }
}

TEST_F(SignedFeeds, OlderThanOneSeenBeforeAreRefused) {
  const std::string folder = support::sandbox() + "/feeds";
  FeedStore(folder, publicKey()).accept(open(feed(5)));
  FeedStore store(folder, publicKey());
  EXPECT_EQ(store.newest()->sequence(), 5);
  EXPECT_EQ(faultOf([&] { store.accept(open(feed(4))); }), 103);
  EXPECT_EQ(faultOf([&] { store.accept(open(feed(5, R"({"P1": {}})"))); }), 103);
  EXPECT_EQ(faultOf([&] { store.accept(open(feed(5))); }), 0);
  EXPECT_EQ(faultOf([&] { store.accept(open(feed(6))); }), 0);
  EXPECT_EQ(faultOf([&] { store.accept(open(feed(5))); }), 103);
}

TEST_F(SignedFeeds, ThatHaveExpiredAreRefused) {
  FeedStore store(support::sandbox() + "/feeds", publicKey());
  for (const char* past : {"2001-01-01T00:00:00Z", "1970-01-01T00:00:00Z"}) {
    EXPECT_EQ(faultOf([&] { store.accept(open(feed(1, "{}", past))); }), 104) << past;
  }
  EXPECT_FALSE(store.newest());
}

TEST(PackageFile, TakesItsNameOnlyWithTheRightLengthAndSum) {
  const std::string folder = support::sandbox() + "/packages";
  sample::UpgradePackage package;
  package.size = 3;
  package.sha256 = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
  for (const char* bytes : {"abd", "ab", ""}) {
    sample::PackageWriter writer(folder, package);
    EXPECT_TRUE(writer.take(bytes));
    EXPECT_THROW(writer.finish(), FeedError) << bytes;
  }
  EXPECT_FALSE(sample::PackageWriter(folder, package).take("abcd"));
  EXPECT_TRUE(std::filesystem::is_empty(folder));
  sample::PackageWriter writer(folder, package);
  EXPECT_TRUE(writer.take("a"));
  EXPECT_TRUE(writer.take("bc"));
  writer.finish();
  EXPECT_EQ(support::readFile(packagePath(folder, package)), "abc");
}

}  // namespace
