#include "tests/integration/shipping/web_server.h"

#include <glib.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/support/test_sandbox.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

void openssl(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), OPENSSL_PROGRAM);
  auto process = support::ChildProcess::spawn(arguments);
  process.readAll();
  ASSERT_EQ(process.wait(), 0) << "openssl " << arguments[1];
}

bool accepts(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const bool accepts = connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  close(client);
  return accepts;
}

std::string nameOf(WebServer::Certificate certificate) {
  switch (certificate) {
    case WebServer::Certificate::kGood:
      return "good";
    case WebServer::Certificate::kOtherAuthority:
      return "other-authority";
    case WebServer::Certificate::kOtherHost:
      return "other-host";
  }
  return "";
}

std::string sha256(const std::string& bytes) {
  gchar* const sum = g_compute_checksum_for_data(
      G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(bytes.data()), bytes.size());
  std::string text = sum;
  g_free(sum);
  return text;
}

WebServer::Batch batchIn(const fs::path& folder, const json& manifest) {
  WebServer::Batch batch;
  for (const json& part : manifest.at("parts")) {
    const std::string name = part.at("name").get<std::string>();
    const std::string bytes = support::readFile(folder / name);
    EXPECT_EQ(bytes.size(), part.at("size").get<std::size_t>()) << folder / name;
    EXPECT_EQ(sha256(bytes), part.at("sha256")) << folder / name;
    batch[name.substr(0, name.rfind('.'))] += bytes;
  }
  return batch;
}

}  // namespace

WebServer::WebServer() : folder_(support::sandbox() + "/web") {
  for (const char* name : {"root/uploads", "root/feed", "tmp"}) {
    fs::create_directories(folder_ + "/" + name);
  }
  makeAuthority("ca");
}

void WebServer::makeKey(const std::string& name) const {
  openssl({"genpkey", "-quiet", "-algorithm", "EC", "-pkeyopt", "ec_paramgen_curve:prime256v1",
           "-out", folder_ + "/" + name + ".key"});
}

void WebServer::makeAuthority(const std::string& name) const {
  const std::string path = folder_ + "/" + name;
  if (fs::exists(path + ".pem")) return;
  makeKey(name);
  openssl({"req", "-x509", "-key", path + ".key", "-out", path + ".pem", "-subj", "/CN=" + name,
           "-days", "30"});
}

void WebServer::makeCertificate(Certificate certificate) const {
  const std::string name = nameOf(certificate);
  const std::string path = folder_ + "/" + name;
  if (fs::exists(path + ".pem")) return;
  const std::string authority =
      certificate == Certificate::kOtherAuthority ? "other-authority-ca" : "ca";
  makeAuthority(authority);
  makeKey(name);
  const char* const hosts = certificate == Certificate::kOtherHost
                                ? "DNS:other.example.com"
                                : "DNS:localhost,DNS:uploads.example.com,IP:127.0.0.1";
  openssl({"req", "-x509", "-key", path + ".key", "-out", path + ".pem", "-subj", "/CN=" + name,
           "-CA", folder_ + "/" + authority + ".pem", "-CAkey", folder_ + "/" + authority + ".key",
           "-addext", std::string("subjectAltName=") + hosts, "-addext",
           "basicConstraints=critical,CA:FALSE", "-days", "30"});
}

std::string WebServer::configuration(Certificate certificate, const Directives& extra) const {
  std::string text = R"(
daemon off;
master_process off;
pid tmp/pid;
error_log error.log info;
events { worker_connections 64; }
http {
  log_format short '$request_method $uri $status';
  access_log access.log short;
  client_body_temp_path tmp/body;
  proxy_temp_path tmp/proxy;
  fastcgi_temp_path tmp/fastcgi;
  uwsgi_temp_path tmp/uwsgi;
  scgi_temp_path tmp/scgi;
  client_max_body_size 64m;
  server {
    listen unix:FOLDER/s ssl;
    ssl_certificate FOLDER/NAME.pem;
    ssl_certificate_key FOLDER/NAME.key;
    root FOLDER/root;
    location /uploads/ {
      if (-f FOLDER/unavailable) { return 503; }
      dav_methods PUT;
      create_full_put_path on;
      EXTRA
    }
    location /feed/ {
      EXTRA_FEED
    }
  }
}
)";
  for (const auto& [from, to] :
       std::vector<std::pair<std::string, std::string>>{{"FOLDER", folder_},
                                                        {"NAME", nameOf(certificate)},
                                                        {"EXTRA_FEED", extra.feed},
                                                        {"EXTRA", extra.uploads}}) {
    for (auto at = text.find(from); at != std::string::npos; at = text.find(from)) {
      text.replace(at, from.size(), to);
    }
  }
  return text;
}

void WebServer::start(Certificate certificate, const Directives& extra) {
  stop();
  makeCertificate(certificate);
  support::writeFile(folder_ + "/nginx.conf", configuration(certificate, extra));
  process_ = std::make_unique<support::ChildProcess>(support::ChildProcess::spawn(
      {NGINX_PROGRAM, "-p", folder_, "-e", "error.log", "-c", "nginx.conf"}));
  ASSERT_TRUE(support::waitUntil([this] { return accepts(socket()); }))
      << support::readFile(folder_ + "/error.log");
}

void WebServer::stop() {
  if (!process_) return;
  process_->signal(SIGKILL);
  process_->wait();
  process_.reset();
  fs::remove(socket());
}

void WebServer::setUnavailable(bool isUnavailable) const {
  if (isUnavailable) {
    support::writeFile(folder_ + "/unavailable", "");
  } else {
    fs::remove(folder_ + "/unavailable");
  }
}

std::map<std::string, WebServer::Batch> WebServer::batches() const {
  std::map<std::string, Batch> batches;
  for (const auto& folder : fs::directory_iterator(root() + "/uploads")) {
    const json manifest =
        json::parse(support::readFile(folder.path() / "manifest.json"), nullptr, false);
    if (!manifest.is_object()) continue;
    const std::string name = folder.path().filename();
    EXPECT_EQ(manifest.at("batch"), name);
    batches[name] = batchIn(folder, manifest);
  }
  return batches;
}

std::vector<std::string> WebServer::requests() const {
  std::istringstream log(support::readFile(folder_ + "/access.log"));
  std::vector<std::string> requests;
  for (std::string line; std::getline(log, line);) requests.push_back(line);
  return requests;
}

std::size_t WebServer::count(const std::string& text) const {
  std::size_t count = 0;
  for (const std::string& request : requests()) count += request.starts_with(text) ? 1U : 0U;
  return count;
}
