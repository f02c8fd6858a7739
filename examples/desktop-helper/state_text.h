#pragma once

#include <nlohmann/json.hpp>
#include <string>

/// What the helper knows, as lines for people to read.
namespace sample {

/// One line for each product that the helper works for.
std::string productLines(const nlohmann::json& state);

/// One line for each usage record that has not left yet.
std::string collectedLines(const nlohmann::json& state);

/// One line for each of the latest deliveries. @param deliveries as of Outbox::deliveries; a helper
/// with a server knows more of them by its `state`.
std::string deliveryLines(const nlohmann::json& deliveries, const nlohmann::json& state);

}  // namespace sample
