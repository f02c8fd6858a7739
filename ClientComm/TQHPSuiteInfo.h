#pragma once

#include <cstdint>
#include <string>

#include "ClientComm/TQHPTypes.h"

/// The page about the product suite, and the size to show it at. Immutable.
class CLIENTCOMM_EXPORT TQHPSuiteInfo {
 public:
  /// @param date the address of the page (so named by the system); nil when unknown.
  /// @param width,height in points.
  static TQHPSuiteInfo initWithDate(clientcomm::OptionalString date, std::int32_t width,
                                    std::int32_t height);

  const clientcomm::OptionalString& URL() const { return URL_; }
  std::int32_t width() const { return width_; }
  std::int32_t height() const { return height_; }

  /// "url = … width = … height = …"; a nil address reads "(null)".
  std::string description() const;

 private:
  TQHPSuiteInfo(clientcomm::OptionalString url, std::int32_t width, std::int32_t height);

  clientcomm::OptionalString URL_;
  std::int32_t width_;
  std::int32_t height_;
};
