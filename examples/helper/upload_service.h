#pragma once

#include "examples/helper/wire_object.h"

namespace sample {

/// Uploads, usage data and pages. On the wire: "TQHPUploadByHelper".
class UploadService : public WireObject {
 public:
  static const clientcomm::Class& wireClass();
  const clientcomm::Class& isa() const override { return wireClass(); }

  void uploadLog(const clientcomm::OptionalString& productID,
                 const clientcomm::OptionalString& version, const clientcomm::OptionalString& email,
                 const clientcomm::OptionalString& path, const clientcomm::OptionalString& title,
                 const clientcomm::OptionalString& description);
  void uploadUserFile(const clientcomm::OptionalString& productID,
                      const clientcomm::OptionalString& version,
                      const clientcomm::OptionalString& email,
                      const clientcomm::OptionalString& path,
                      const clientcomm::OptionalString& title,
                      const clientcomm::OptionalString& description);
  void uploadProductFile(const clientcomm::OptionalString& productID,
                         const clientcomm::OptionalString& version,
                         const clientcomm::OptionalString& email,
                         const clientcomm::OptionalString& path,
                         const clientcomm::OptionalString& title,
                         const clientcomm::OptionalString& description);

  /// Takes a usage record, unless its type is unknown or the collection is switched off for the
  /// product ID that it is filed under, or for a product that its sender has started the helper
  /// for.
  void collectData(const clientcomm::OptionalString& productID,
                   const clientcomm::OptionalString& version,
                   const clientcomm::OptionalString& type, const clientcomm::OptionalString& target,
                   const clientcomm::OptionalString& key, const clientcomm::OptionalString& value);
  void directUploadData(const clientcomm::OptionalString& productID,
                        const clientcomm::OptionalString& version);
  /// @param status "1" or "0"; any other text changes nothing.
  void setCollectStatus(const clientcomm::OptionalString& productID,
                        const clientcomm::OptionalString& version,
                        const clientcomm::OptionalString& status);
  /// @return "1" or "0".
  clientcomm::OptionalString collectStatus(const clientcomm::OptionalString& productID,
                                           const clientcomm::OptionalString& version);

  /// @return "URL###width###height"; nil where no page is known for the product.
  clientcomm::OptionalString suiteInfo(const clientcomm::OptionalString& productID,
                                       const clientcomm::OptionalString& version);
  clientcomm::OptionalString suiteInfoAtEnd(const clientcomm::OptionalString& productID,
                                            const clientcomm::OptionalString& version);
  /// @return the path of a page in the helper's bundle.
  clientcomm::OptionalString networkErrorPage(const clientcomm::OptionalString& productID,
                                              const clientcomm::OptionalString& version);

 private:
  void takeFile(const char* kind, const clientcomm::OptionalString& productID,
                const clientcomm::OptionalString& version, const clientcomm::OptionalString& email,
                const clientcomm::OptionalString& path, const clientcomm::OptionalString& title,
                const clientcomm::OptionalString& description);
  bool isCollectingFor(const std::string& productID) const;
};

}  // namespace sample
