#include "ClientComm/TQHPUploadByHelper.h"

#include <utility>

#include "ClientComm/internal/proxy_call.h"
#include "ClientComm/platform/shared_object.h"

using clientcomm::OptionalString;

namespace {

// Selectors, as they travel; each is used by the method table and by the call.
constexpr char kUploadLog[] = "uploadLog:versionID:email:filePath:title:description:";
constexpr std::string_view kUploadUserFile =
    "uploadUserFile:versionID:email:filePath:title:description:";
constexpr std::string_view kUploadProductFile =
    "uploadProductFile:versionID:email:filePath:title:description:";
constexpr char kCollectData[] = "collectData:version:collectionType:target:keyID:value:";
constexpr char kDirectUploadData[] = "directUploadData:version:";
constexpr char kSetProductCollectStatus[] = "setProductCollectStatus:version:status:";
constexpr char kProductCollectStatus[] = "productCollectStatus:version:";
constexpr char kRegSuiteInfo[] = "regSuiteInfo:version:";
constexpr char kUnRegSuiteInfo[] = "unRegSuiteInfo:version:";
constexpr char kNetErrorPagePath[] = "netErrorPagePath:version:";

OptionalString collectionTypeText(int collectionType) {
  switch (collectionType) {
    case 3:
      return "3";
    case 4:
      return "4";
    case 5:
      return "5";
    default:
      return std::nullopt;
  }
}

}  // namespace

// `collectData` takes a number and so is not among the methods that can be called by name.
const clientcomm::Class& TQHPUploadByHelper::staticClass() {
  using clientcomm::method;
  using Self = TQHPUploadByHelper;
  static const auto* const cls = new clientcomm::Class(
      "TQHPUploadByHelper", clientcomm::makeShared<Self>,
      {method<&Self::uploadLog>(kUploadLog), method<&Self::uploadUserFile>(kUploadUserFile),
       method<&Self::uploadProductFile>(kUploadProductFile),
       method<&Self::directUploadData>(kDirectUploadData),
       method<&Self::setProductCollectStatus>(kSetProductCollectStatus),
       method<&Self::productCollectStatus>(kProductCollectStatus),
       method<&Self::regSuiteInfo>(kRegSuiteInfo), method<&Self::unRegSuiteInfo>(kUnRegSuiteInfo),
       method<&Self::netErrorPagePath>(kNetErrorPagePath),
       method<&Self::checkJoinImproveExp>("checkJoinImproveExp")});
  return *cls;
}

TQHPUploadByHelper& TQHPUploadByHelper::share() {
  static clientcomm::SharedObject<TQHPUploadByHelper> proxy;
  return proxy.get([] { return new TQHPUploadByHelper; });
}

bool TQHPUploadByHelper::checkJoinImproveExp() const { return false; }

OSErr TQHPUploadByHelper::uploadLog(const OptionalString& productID,
                                    const OptionalString& versionID, const OptionalString& email,
                                    const OptionalString& filePath, const OptionalString& title,
                                    const OptionalString& description) {
  return clientcomm::sendCommand(*this, kUploadLog, productID, versionID, email, filePath, title,
                                 description);
}

OSErr TQHPUploadByHelper::uploadUserFile(const OptionalString& productID,
                                         const OptionalString& versionID,
                                         const OptionalString& email,
                                         const OptionalString& filePath,
                                         const OptionalString& title,
                                         const OptionalString& description) {
  return clientcomm::sendCommand(*this, kUploadUserFile, productID, versionID, email, filePath,
                                 title, description);
}

OSErr TQHPUploadByHelper::uploadProductFile(const OptionalString& productID,
                                            const OptionalString& versionID,
                                            const OptionalString& email,
                                            const OptionalString& filePath,
                                            const OptionalString& title,
                                            const OptionalString& description) {
  return clientcomm::sendCommand(*this, kUploadProductFile, productID, versionID, email, filePath,
                                 title, description);
}

OSErr TQHPUploadByHelper::collectData(const OptionalString& productID,
                                      const OptionalString& version, int collectionType,
                                      const OptionalString& target, const OptionalString& keyID,
                                      const OptionalString& value) {
  return clientcomm::sendCommand(*this, kCollectData, productID, version,
                                 collectionTypeText(collectionType), target, keyID, value);
}

OSErr TQHPUploadByHelper::directUploadData(const OptionalString& productID,
                                           const OptionalString& version) {
  return clientcomm::sendCommand(*this, kDirectUploadData, productID, version);
}

OSErr TQHPUploadByHelper::setProductCollectStatus(const OptionalString& productID,
                                                  const OptionalString& version,
                                                  const OptionalString& status) {
  return clientcomm::sendCommand(*this, kSetProductCollectStatus, productID, version, status);
}

OptionalString TQHPUploadByHelper::productCollectStatus(const OptionalString& productID,
                                                        const OptionalString& version) {
  return clientcomm::sendQuery(*this, kProductCollectStatus, productID, version);
}

OptionalString TQHPUploadByHelper::regSuiteInfo(const OptionalString& productID,
                                                const OptionalString& version) {
  return clientcomm::sendQuery(*this, kRegSuiteInfo, productID, version);
}

OptionalString TQHPUploadByHelper::unRegSuiteInfo(const OptionalString& productID,
                                                  const OptionalString& version) {
  return clientcomm::sendQuery(*this, kUnRegSuiteInfo, productID, version);
}

OptionalString TQHPUploadByHelper::netErrorPagePath(const OptionalString& productID,
                                                    const OptionalString& version) {
  return clientcomm::sendQuery(*this, kNetErrorPagePath, productID, version);
}

clientcomm::PendingQuery TQHPUploadByHelper::productCollectStatusAsync(
    const OptionalString& productID, const OptionalString& version,
    clientcomm::QueryCallback<std::string> callback, clientcomm::TimeLimit limit) {
  return clientcomm::sendQueryAsync(*this, kProductCollectStatus, std::move(callback), limit,
                                    productID, version);
}

clientcomm::PendingQuery TQHPUploadByHelper::regSuiteInfoAsync(
    const OptionalString& productID, const OptionalString& version,
    clientcomm::QueryCallback<std::string> callback, clientcomm::TimeLimit limit) {
  return clientcomm::sendQueryAsync(*this, kRegSuiteInfo, std::move(callback), limit, productID,
                                    version);
}

clientcomm::PendingQuery TQHPUploadByHelper::unRegSuiteInfoAsync(
    const OptionalString& productID, const OptionalString& version,
    clientcomm::QueryCallback<std::string> callback, clientcomm::TimeLimit limit) {
  return clientcomm::sendQueryAsync(*this, kUnRegSuiteInfo, std::move(callback), limit, productID,
                                    version);
}

clientcomm::PendingQuery TQHPUploadByHelper::netErrorPagePathAsync(
    const OptionalString& productID, const OptionalString& version,
    clientcomm::QueryCallback<std::string> callback, clientcomm::TimeLimit limit) {
  return clientcomm::sendQueryAsync(*this, kNetErrorPagePath, std::move(callback), limit, productID,
                                    version);
}
