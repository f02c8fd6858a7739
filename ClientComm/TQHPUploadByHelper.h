#pragma once

#include "ClientComm/TQHPAppEventBase.h"

/// Hands uploads, usage records and queries about the product suite to the helper. Commands return
/// the send's own status; queries block until the helper answers or ends, and give nil when there
/// is no answer.
class CLIENTCOMM_EXPORT TQHPUploadByHelper : public TQHPAppEventBase {
 public:
  static TQHPUploadByHelper& share();

  TQHPUploadByHelper() = default;

  /// The class by which the process's registry knows it.
  static const clientcomm::Class& staticClass();
  const clientcomm::Class& isa() const override { return staticClass(); }

  /// Whether the user joined the improvement programme; always false, nothing sets it.
  bool checkJoinImproveExp() const { return checkJoinImproveExp_; }

  OSErr uploadLog(const OptionalString& productID, const OptionalString& versionID,
                  const OptionalString& email, const OptionalString& filePath,
                  const OptionalString& title, const OptionalString& description);
  OSErr uploadUserFile(const OptionalString& productID, const OptionalString& versionID,
                       const OptionalString& email, const OptionalString& filePath,
                       const OptionalString& title, const OptionalString& description);
  OSErr uploadProductFile(const OptionalString& productID, const OptionalString& versionID,
                          const OptionalString& email, const OptionalString& filePath,
                          const OptionalString& title, const OptionalString& description);

  /// Files one usage record.
  /// @param collectionType 3 a common counter, 4 an automatically created counter, 5 a string; sent
  ///        as a decimal string. Any other is sent as "".
  OSErr collectData(const OptionalString& productID, const OptionalString& version,
                    int collectionType, const OptionalString& target, const OptionalString& keyID,
                    const OptionalString& value);
  /// Has the records collected so far uploaded at once.
  OSErr directUploadData(const OptionalString& productID, const OptionalString& version);
  OSErr setProductCollectStatus(const OptionalString& productID, const OptionalString& version,
                                const OptionalString& status);
  /// @return "1" when usage data is collected for the product.
  OptionalString productCollectStatus(const OptionalString& productID,
                                      const OptionalString& version);

  /// @return the suite page as "URL###width###height".
  OptionalString regSuiteInfo(const OptionalString& productID, const OptionalString& version);
  OptionalString unRegSuiteInfo(const OptionalString& productID, const OptionalString& version);
  /// @return the path of the page to show when the network cannot be reached.
  OptionalString netErrorPagePath(const OptionalString& productID, const OptionalString& version);

 private:
  bool checkJoinImproveExp_ = false;
};
