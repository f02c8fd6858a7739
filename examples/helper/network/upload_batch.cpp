#include "examples/helper/network/upload_batch.h"

#include <algorithm>
#include <filesystem>

#include "examples/helper/durable_file.h"
#include "examples/helper/json_text.h"

namespace sample {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr const char kRecord[] = "record.json";
constexpr const char kContent[] = "content";
constexpr const char kUsage[] = "usage.json";

std::int64_t sizeOf(const std::string& path) {
  std::error_code error;
  const auto size = fs::file_size(path, error);
  if (error) throw FileError("cannot read " + path + ": " + error.message());
  return static_cast<std::int64_t>(size);
}

// What a host knows its upload by.
json aboutDelivery(const std::string& path) {
  json about = json::object();
  const json record = json::parse(readFile(path), nullptr, false);
  for (const char* key : {"kind", "bundleIdentifier", "productID", "path", "title"}) {
    if (record.is_object() && record.contains(key)) about[key] = record[key];
  }
  return about;
}

}  // namespace

UploadBatch::UploadBatch(const std::string& path, std::int64_t partSize) : name_(nameOf(path)) {
  if (fs::is_directory(path)) {
    about_ = aboutDelivery(path + "/" + kRecord);
    const std::string content = path + "/" + kContent;
    if (fs::exists(fs::symlink_status(content))) addFile(kContent, content, partSize);
    addFile(kRecord, path + "/" + kRecord, partSize);
  } else {
    about_ = {{"kind", "usage"}};
    addFile(kUsage, path, partSize);
  }
}

void UploadBatch::addFile(const std::string& name, const std::string& path, std::int64_t partSize) {
  const std::int64_t total = sizeOf(path);
  std::int64_t offset = 0;
  int index = 0;
  do {
    const std::int64_t size = std::min(partSize, total - offset);
    parts_.push_back({name + "." + std::to_string(index++), path, offset, size});
    offset += size;
  } while (offset < total);
  size_ += total;
}

std::string UploadBatch::manifest(const std::map<std::string, std::string>& sums) const {
  json parts = json::array();
  for (const UploadPart& part : parts_) {
    parts.push_back({{"name", part.name}, {"size", part.size}, {"sha256", sums.at(part.name)}});
  }
  return jsonText({{"batch", name_}, {"size", size_}, {"parts", parts}});
}

std::string UploadBatch::nameOf(const std::string& path) {
  const fs::path entry(path);
  const std::string name = entry.filename().string();
  std::error_code error;
  const fs::file_status status = fs::symlink_status(entry, error);
  if (name.starts_with('.')) return "";
  if (fs::is_directory(status) && fs::exists(entry / kRecord, error)) return name;
  if (fs::is_regular_file(status) && entry.extension() == ".json") return entry.stem().string();
  return "";
}

}  // namespace sample
