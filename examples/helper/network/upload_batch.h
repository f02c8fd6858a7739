#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace sample {

/// A piece of a file that goes to the server in one request.
struct UploadPart {
  std::string name;  ///< On the server, below the batch's folder: "content.0".
  std::string path;  ///< Of the file.
  std::int64_t offset = 0;
  std::int64_t size = 0;
};

/// One entry of the outbox as it goes to the server: the parts of its files, and a manifest that
/// lists them and goes last.
class UploadBatch {
 public:
  /// @param path the entry: a folder with the files of a delivery, or one file of usage data.
  /// @throws FileError when it cannot be read.
  UploadBatch(const std::string& path, std::int64_t partSize);

  /// The identity of the batch, on the server and in the helper's records.
  const std::string& name() const noexcept { return name_; }
  const std::vector<UploadPart>& parts() const noexcept { return parts_; }
  std::int64_t size() const noexcept { return size_; }

  /// What the batch is, for its host to know it again.
  const nlohmann::json& about() const noexcept { return about_; }

  /// The same bytes for the same batch. @param sums the SHA-256 of each part, by its name.
  std::string manifest(const std::map<std::string, std::string>& sums) const;

  /// The name of the batch at `path` of the outbox; empty when that is not one.
  static std::string nameOf(const std::string& path);

 private:
  void addFile(const std::string& name, const std::string& path, std::int64_t partSize);

  std::string name_;
  std::vector<UploadPart> parts_;
  std::int64_t size_ = 0;
  nlohmann::json about_;
};

}  // namespace sample
