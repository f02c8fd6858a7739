#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "tests/integration/sample_helper_fixture.h"
#include "tests/integration/shipping/relay.h"
#include "tests/integration/shipping/web_server.h"

/// A sample helper that is set up for a web server, which it reaches through a relay.
class Shipping : public SampleHelperFixture {
 protected:
  void SetUp() override;
  void TearDown() override;

  WebServer& server() { return *server_; }
  Relay& relay() { return *relay_; }

  /// The address of `path` of the server, through the relay.
  std::string url(const std::string& path, const std::string& host = "127.0.0.1") const;
  /// Sets one key of the helper's Info dictionary.
  static void set(const char* key, const std::string& value) {
    rewriteInfo(prepareHelper(), key, value);
  }

  /// Hands a file with these bytes to the helper.
  static void upload(const std::string& bytes, const std::string& title = "title");
  /// Bytes that look like no others.
  static std::string noise(std::size_t count);

  /// What the helper says of its only upload; null while there is none.
  static Json onlyUpload();
  /// Waits longer than `waitForState`: there are more processes in it.
  static bool waitForHelper(const std::function<bool(const Json&)>& condition);
  /// Waits until `count` uploads are done.
  static bool waitForUploads(std::size_t count);
  /// Waits until the helper has noted a failure with this in its text.
  static bool waitForError(const std::string& text);
  /// Number of entries of the outbox, half-made ones too.
  static std::size_t outboxEntries();

 private:
  std::unique_ptr<WebServer> server_;
  std::unique_ptr<Relay> relay_;
};
