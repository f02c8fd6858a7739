#include "ClientComm/TQHPSuiteInfo.h"

#include <utility>

using clientcomm::OptionalString;

TQHPSuiteInfo TQHPSuiteInfo::initWithDate(OptionalString date, std::int32_t width,
                                          std::int32_t height) {
  return {std::move(date), width, height};
}

TQHPSuiteInfo::TQHPSuiteInfo(OptionalString url, std::int32_t width, std::int32_t height)
    : URL_(std::move(url)), width_(width), height_(height) {}

std::string TQHPSuiteInfo::description() const {
  return "url = " + URL_.value_or("(null)") + " width = " + std::to_string(width_) +
         " height = " + std::to_string(height_);
}
