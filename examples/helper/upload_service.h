#pragma once

#include "examples/helper/wire_object.h"

namespace sample {

/// Uploads, usage data and pages. On the wire: "TQHPUploadByHelper".
class UploadService : public WireObject {
 public:
  static const clientcomm::Class& wireClass();
  const clientcomm::Class& isa() const override { return wireClass(); }

  void uploadLog(const OptionalString& productID, const OptionalString& version,
                 const OptionalString& email, const OptionalString& path,
                 const OptionalString& title, const OptionalString& description);
  void uploadUserFile(const OptionalString& productID, const OptionalString& version,
                      const OptionalString& email, const OptionalString& path,
                      const OptionalString& title, const OptionalString& description);
  void uploadProductFile(const OptionalString& productID, const OptionalString& version,
                         const OptionalString& email, const OptionalString& path,
                         const OptionalString& title, const OptionalString& description);

  /// Takes a usage record, unless its type is unknown or the collection is switched off for the
  /// product ID that it is filed under, or for a product that its sender has started the helper
  /// for.
  void collectData(const OptionalString& productID, const OptionalString& version,
                   const OptionalString& type, const OptionalString& target,
                   const OptionalString& key, const OptionalString& value);
  void directUploadData(const OptionalString& productID, const OptionalString& version);
  /// @param status "1" or "0"; any other text changes nothing.
  void setCollectStatus(const OptionalString& productID, const OptionalString& version,
                        const OptionalString& status);
  /// @return "1" or "0".
  OptionalString collectStatus(const OptionalString& productID, const OptionalString& version);

  /// @return "URL###width###height"; nil where no page is known for the product.
  OptionalString suiteInfo(const OptionalString& productID, const OptionalString& version);
  OptionalString suiteInfoAtEnd(const OptionalString& productID, const OptionalString& version);
  /// @return the path of a page in the helper's bundle.
  OptionalString networkErrorPage(const OptionalString& productID, const OptionalString& version);

 private:
  void takeFile(const char* kind, const OptionalString& productID, const OptionalString& version,
                const OptionalString& email, const OptionalString& path,
                const OptionalString& title, const OptionalString& description);
  bool isCollectingFor(const std::string& productID) const;
};

}  // namespace sample
