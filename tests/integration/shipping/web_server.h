#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tests/support/child_process.h"

/// nginx with TLS on a Unix socket, in the test's private folder, as the test's own user. It takes
/// files by PUT below /uploads/ and gives those below /feed/.
class WebServer {
 public:
  /// What the server's certificate is like.
  enum class Certificate { kGood, kOtherAuthority, kOtherHost };

  WebServer();

  /// Further directives of nginx.
  struct Directives {
    std::string uploads;  ///< For /uploads/.
    std::string feed;     ///< For /feed/.
  };

  /// Starts the server, or starts it anew.
  void start(Certificate certificate = Certificate::kGood) { start(certificate, {}); }
  void start(Certificate certificate, const Directives& extra);
  void stop();

  /// Path of the server's socket.
  std::string socket() const { return folder_ + "/s"; }
  /// The file with the certificate authority that helpers are to trust.
  std::string authority() const { return folder_ + "/ca.pem"; }
  /// Where the files are.
  std::string root() const { return folder_ + "/root"; }

  /// Answers uploads with 503 while it is set.
  void setUnavailable(bool isUnavailable) const;

  /// The batches that have arrived whole, by their names. Each is the bytes of its files, by their
  /// names. A batch whose parts are not those of its manifest fails the test.
  using Batch = std::map<std::string, std::string>;
  std::map<std::string, Batch> batches() const;

  /// The requests that were answered so far, as "PUT /uploads/... 201".
  std::vector<std::string> requests() const;
  /// How many of them begin with `text`.
  std::size_t count(const std::string& text) const;

 private:
  void makeKey(const std::string& name) const;
  void makeAuthority(const std::string& name) const;
  void makeCertificate(Certificate certificate) const;
  std::string configuration(Certificate certificate, const Directives& extra) const;

  std::string folder_;
  std::unique_ptr<support::ChildProcess> process_;
};
