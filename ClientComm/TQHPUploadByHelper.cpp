#include "ClientComm/TQHPUploadByHelper.h"

#include "ClientComm/internal/proxy_call.h"

namespace {

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
      {method<&Self::uploadLog>("uploadLog:versionID:email:filePath:title:description:"),
       method<&Self::uploadUserFile>("uploadUserFile:versionID:email:filePath:title:description:"),
       method<&Self::uploadProductFile>(
           "uploadProductFile:versionID:email:filePath:title:description:"),
       method<&Self::directUploadData>("directUploadData:version:"),
       method<&Self::setProductCollectStatus>("setProductCollectStatus:version:status:"),
       method<&Self::productCollectStatus>("productCollectStatus:version:"),
       method<&Self::regSuiteInfo>("regSuiteInfo:version:"),
       method<&Self::unRegSuiteInfo>("unRegSuiteInfo:version:"),
       method<&Self::netErrorPagePath>("netErrorPagePath:version:"),
       method<&Self::checkJoinImproveExp>("checkJoinImproveExp")});
  return *cls;
}

TQHPUploadByHelper& TQHPUploadByHelper::share() {
  static auto* const proxy = new TQHPUploadByHelper;
  return *proxy;
}

OSErr TQHPUploadByHelper::uploadLog(const OptionalString& productID,
                                    const OptionalString& versionID, const OptionalString& email,
                                    const OptionalString& filePath, const OptionalString& title,
                                    const OptionalString& description) {
  return sendCommand(*this, "uploadLog:versionID:email:filePath:title:description:", productID,
                     versionID, email, filePath, title, description);
}

OSErr TQHPUploadByHelper::uploadUserFile(const OptionalString& productID,
                                         const OptionalString& versionID,
                                         const OptionalString& email,
                                         const OptionalString& filePath,
                                         const OptionalString& title,
                                         const OptionalString& description) {
  return sendCommand(*this, "uploadUserFile:versionID:email:filePath:title:description:", productID,
                     versionID, email, filePath, title, description);
}

OSErr TQHPUploadByHelper::uploadProductFile(const OptionalString& productID,
                                            const OptionalString& versionID,
                                            const OptionalString& email,
                                            const OptionalString& filePath,
                                            const OptionalString& title,
                                            const OptionalString& description) {
  return sendCommand(*this,
                     "uploadProductFile:versionID:email:filePath:title:description:", productID,
                     versionID, email, filePath, title, description);
}

OSErr TQHPUploadByHelper::collectData(const OptionalString& productID,
                                      const OptionalString& version, int collectionType,
                                      const OptionalString& target, const OptionalString& keyID,
                                      const OptionalString& value) {
  return sendCommand(*this, "collectData:version:collectionType:target:keyID:value:", productID,
                     version, collectionTypeText(collectionType), target, keyID, value);
}

OSErr TQHPUploadByHelper::directUploadData(const OptionalString& productID,
                                           const OptionalString& version) {
  return sendCommand(*this, "directUploadData:version:", productID, version);
}

OSErr TQHPUploadByHelper::setProductCollectStatus(const OptionalString& productID,
                                                  const OptionalString& version,
                                                  const OptionalString& status) {
  return sendCommand(*this, "setProductCollectStatus:version:status:", productID, version, status);
}

OptionalString TQHPUploadByHelper::productCollectStatus(const OptionalString& productID,
                                                        const OptionalString& version) {
  return sendQuery(*this, "productCollectStatus:version:", productID, version);
}

OptionalString TQHPUploadByHelper::regSuiteInfo(const OptionalString& productID,
                                                const OptionalString& version) {
  return sendQuery(*this, "regSuiteInfo:version:", productID, version);
}

OptionalString TQHPUploadByHelper::unRegSuiteInfo(const OptionalString& productID,
                                                  const OptionalString& version) {
  return sendQuery(*this, "unRegSuiteInfo:version:", productID, version);
}

OptionalString TQHPUploadByHelper::netErrorPagePath(const OptionalString& productID,
                                                    const OptionalString& version) {
  return sendQuery(*this, "netErrorPagePath:version:", productID, version);
}
