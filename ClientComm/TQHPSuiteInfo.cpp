#include "ClientComm/TQHPSuiteInfo.h"

#include <utility>

using clientcomm::OptionalString;

struct CLIENTCOMM_LOCAL TQHPSuiteInfo::State {
  OptionalString url;
  std::int32_t width;
  std::int32_t height;
};

TQHPSuiteInfo TQHPSuiteInfo::initWithDate(OptionalString date, std::int32_t width,
                                          std::int32_t height) {
  return TQHPSuiteInfo(std::make_shared<const State>(State{std::move(date), width, height}));
}

TQHPSuiteInfo::TQHPSuiteInfo(std::shared_ptr<const State> state) : state_(std::move(state)) {}

const OptionalString& TQHPSuiteInfo::URL() const { return state_->url; }

std::int32_t TQHPSuiteInfo::width() const { return state_->width; }

std::int32_t TQHPSuiteInfo::height() const { return state_->height; }

std::string TQHPSuiteInfo::description() const {
  return "url = " + state_->url.value_or("(null)") + " width = " + std::to_string(state_->width) +
         " height = " + std::to_string(state_->height);
}
