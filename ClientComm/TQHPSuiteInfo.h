#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "ClientComm/TQHPTypes.h"

/// The page about the product suite, and the size to show it at. Immutable.
class CLIENTCOMM_EXPORT TQHPSuiteInfo {
 public:
  /// @param date the address of the page (so named by the system); nil when unknown.
  /// @param width,height in points.
  static TQHPSuiteInfo initWithDate(clientcomm::OptionalString date, std::int32_t width,
                                    std::int32_t height);

  /// The address of the page; nil when unknown.
  const clientcomm::OptionalString& URL() const;
  /// In points.
  std::int32_t width() const;
  /// In points.
  std::int32_t height() const;

  /// "url = … width = … height = …"; a nil address reads "(null)".
  std::string description() const;

 private:
  struct State;
  explicit CLIENTCOMM_LOCAL TQHPSuiteInfo(std::shared_ptr<const State> state);

  std::shared_ptr<const State> state_;
};
