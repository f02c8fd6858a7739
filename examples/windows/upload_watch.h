#pragma once

#include <string>

namespace sample {

/// How far an upload is.
struct UploadProgress {
  std::string text;     ///< For people to read; empty before the first upload.
  double fraction = 0;  ///< From 0 to 1.
};

/// Follows one upload in the files that the helper writes for its hosts: Deliveries.json says how
/// far it is on its way into the helper's outbox, Uploads.json how far on its way to the server, if
/// there is one. Reading them does not wait for the helper.
class UploadWatch {
 public:
  UploadWatch();

  /// Follows the upload of the file at `path` from now on.
  /// @return the title to upload it under, by which the helper's record is found.
  std::string begin(const std::string& path);
  /// Follows nothing, since the upload was not taken.
  void giveUp();

  UploadProgress look() const;

 private:
  std::string folder_;
  std::string title_;
};

}  // namespace sample
