#pragma once

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/async.h"

/// Hands uploads, usage records and queries about the product suite to the helper. Commands return
/// the send's own status; queries block until the helper answers or ends, and give nil when there
/// is no answer.
class CLIENTCOMM_EXPORT TQHPUploadByHelper : public TQHPAppEventBase {
 public:
  /// The one object, made on first use and never destroyed.
  static TQHPUploadByHelper& share();

  TQHPUploadByHelper() = default;

  /// The class by which the process's registry knows it.
  static const clientcomm::Class& staticClass();
  const clientcomm::Class& isa() const override { return staticClass(); }

  /// Whether the user joined the improvement programme; always false, nothing sets it.
  bool checkJoinImproveExp() const;

  /// Uploads the log file at `filePath`.
  OSErr uploadLog(const clientcomm::OptionalString& productID,
                  const clientcomm::OptionalString& versionID,
                  const clientcomm::OptionalString& email,
                  const clientcomm::OptionalString& filePath,
                  const clientcomm::OptionalString& title,
                  const clientcomm::OptionalString& description);
  /// Uploads the file of the user at `filePath`.
  OSErr uploadUserFile(const clientcomm::OptionalString& productID,
                       const clientcomm::OptionalString& versionID,
                       const clientcomm::OptionalString& email,
                       const clientcomm::OptionalString& filePath,
                       const clientcomm::OptionalString& title,
                       const clientcomm::OptionalString& description);
  /// Uploads the file of the product at `filePath`.
  OSErr uploadProductFile(const clientcomm::OptionalString& productID,
                          const clientcomm::OptionalString& versionID,
                          const clientcomm::OptionalString& email,
                          const clientcomm::OptionalString& filePath,
                          const clientcomm::OptionalString& title,
                          const clientcomm::OptionalString& description);

  /// Files one usage record.
  /// @param productID the product ID under which the record is filed.
  /// @param version the product's version.
  /// @param collectionType 3 a common counter, 4 an automatically created counter, 5 a string; sent
  ///        as a decimal string. Any other is sent as "".
  /// @param target what was used, such as a menu.
  /// @param keyID the counter; "" for a string.
  /// @param value the string; "" for a counter.
  /// @return the send's own status.
  OSErr collectData(const clientcomm::OptionalString& productID,
                    const clientcomm::OptionalString& version, int collectionType,
                    const clientcomm::OptionalString& target,
                    const clientcomm::OptionalString& keyID,
                    const clientcomm::OptionalString& value);
  /// Has the records collected so far uploaded at once.
  OSErr directUploadData(const clientcomm::OptionalString& productID,
                         const clientcomm::OptionalString& version);
  /// Switches the collection of usage data for the product: "1" or "0".
  OSErr setProductCollectStatus(const clientcomm::OptionalString& productID,
                                const clientcomm::OptionalString& version,
                                const clientcomm::OptionalString& status);
  /// @return "1" when usage data is collected for the product.
  clientcomm::OptionalString productCollectStatus(const clientcomm::OptionalString& productID,
                                                  const clientcomm::OptionalString& version);

  /// @return the suite page as "URL###width###height".
  clientcomm::OptionalString regSuiteInfo(const clientcomm::OptionalString& productID,
                                          const clientcomm::OptionalString& version);
  /// The same for a product that is not registered.
  clientcomm::OptionalString unRegSuiteInfo(const clientcomm::OptionalString& productID,
                                            const clientcomm::OptionalString& version);
  /// @return the path of the page to show when the network cannot be reached.
  clientcomm::OptionalString netErrorPagePath(const clientcomm::OptionalString& productID,
                                              const clientcomm::OptionalString& version);

  /// `productCollectStatus` without blocking; see ClientComm/async.h.
  [[nodiscard]] clientcomm::PendingQuery productCollectStatusAsync(
      const clientcomm::OptionalString& productID, const clientcomm::OptionalString& version,
      clientcomm::QueryCallback<std::string> callback, clientcomm::TimeLimit limit = std::nullopt);
  /// `regSuiteInfo` without blocking.
  [[nodiscard]] clientcomm::PendingQuery regSuiteInfoAsync(
      const clientcomm::OptionalString& productID, const clientcomm::OptionalString& version,
      clientcomm::QueryCallback<std::string> callback, clientcomm::TimeLimit limit = std::nullopt);
  /// `unRegSuiteInfo` without blocking.
  [[nodiscard]] clientcomm::PendingQuery unRegSuiteInfoAsync(
      const clientcomm::OptionalString& productID, const clientcomm::OptionalString& version,
      clientcomm::QueryCallback<std::string> callback, clientcomm::TimeLimit limit = std::nullopt);
  /// `netErrorPagePath` without blocking.
  [[nodiscard]] clientcomm::PendingQuery netErrorPagePathAsync(
      const clientcomm::OptionalString& productID, const clientcomm::OptionalString& version,
      clientcomm::QueryCallback<std::string> callback, clientcomm::TimeLimit limit = std::nullopt);
};
