#include "ClientComm/c/host.h"

#include "ClientComm/c/started_host.h"
#include "ClientComm/c/string_value.h"

using clientcomm::atBorder;
using clientcomm::OptionalString;
using clientcomm::required;
using clientcomm::startedHost;
using clientcomm::stringOf;

namespace {

using Host = TQHPHelperCommunicate;

// One function for each form of service, so that the services themselves cost next to nothing.

clientcomm_status pass(OSErr (Host::*service)()) noexcept {
  return atBorder([=] { return (startedHost().*service)(); });
}

clientcomm_status pass(OSErr (Host::*service)(const OptionalString&, const OptionalString&),
                       clientcomm_text first, clientcomm_text second) noexcept {
  return atBorder([&] { return (startedHost().*service)(stringOf(first), stringOf(second)); });
}

clientcomm_status pass(OSErr (Host::*service)(const OptionalString&, const OptionalString&,
                                              const OptionalString&, const OptionalString&),
                       const clientcomm_text& email, const clientcomm_text& path,
                       const clientcomm_text& title, const clientcomm_text& description) noexcept {
  return atBorder([&] {
    return (startedHost().*service)(stringOf(email), stringOf(path), stringOf(title),
                                    stringOf(description));
  });
}

clientcomm_status pass(void (*service)(Host& host, bool flag), bool flag) noexcept {
  return atBorder([=] { service(startedHost(), flag); });
}

clientcomm_status ask(bool (Host::*query)(), bool* result) noexcept {
  return atBorder([=] {
    bool& answer = required(result);
    answer = (startedHost().*query)();
  });
}

clientcomm_status ask(OptionalString (Host::*query)(), clientcomm_string** result) noexcept {
  if (result != nullptr) *result = nullptr;
  return atBorder([=] {
    clientcomm_string*& answer = required(result);
    answer = clientcomm::newString((startedHost().*query)());
    return answer == nullptr ? CLIENTCOMM_NO_VALUE : CLIENTCOMM_OK;
  });
}

clientcomm_status ask(TQHPSuiteInfo (Host::*query)(), clientcomm_suite_info* result) noexcept {
  if (result != nullptr) *result = {nullptr, 0, 0};
  return atBorder([=] {
    clientcomm_suite_info& answer = required(result);
    const TQHPSuiteInfo page = (startedHost().*query)();
    answer = {clientcomm::newString(page.URL()), page.width(), page.height()};
    return answer.url == nullptr ? CLIENTCOMM_NO_VALUE : CLIENTCOMM_OK;
  });
}

}  // namespace

clientcomm_status clientcomm_start() { return atBorder(clientcomm::startHost); }

// --- The helper's life ---

clientcomm_status clientcomm_restart_helper() { return pass(&Host::autoRestartHelper); }

clientcomm_status clientcomm_start_helper() { return pass(&Host::startHelper); }

clientcomm_status clientcomm_stop_helper() { return pass(&Host::stopHelper); }

clientcomm_status clientcomm_is_helper_alive() { return pass(&Host::isAliveHelper); }

clientcomm_status clientcomm_show_helper() { return pass(&Host::showHelper); }

clientcomm_status clientcomm_hide_helper() { return pass(&Host::hideHelper); }

clientcomm_status clientcomm_is_helper_server_open(bool* is_open) {
  return ask(&Host::getDefaultHelperServerOpen, is_open);
}

clientcomm_status clientcomm_extract_helper() {
  return pass([](Host& host, bool /*flag*/) { host.extractHelper(); }, false);
}

clientcomm_status clientcomm_launch_helper() {
  bool isRunning = false;
  const clientcomm_status status = ask(&Host::launchHelepr, &isRunning);
  return status == CLIENTCOMM_OK && !isRunning ? CLIENTCOMM_HELPER_NOT_LAUNCHED : status;
}

// --- The product's identity ---

clientcomm_status clientcomm_ask_client_id(clientcomm_string** client_id) {
  return ask(&Host::clientIDFormHelper, client_id);
}

clientcomm_status clientcomm_client_id(clientcomm_string** client_id) {
  if (client_id != nullptr) *client_id = nullptr;
  return atBorder([=] {
    clientcomm_string*& answer = required(client_id);
    answer = clientcomm::newString(startedHost().clientID());
    return answer == nullptr ? CLIENTCOMM_NO_VALUE : CLIENTCOMM_OK;
  });
}

clientcomm_status clientcomm_first_start_pid(clientcomm_string** product_id) {
  return ask(&Host::firstStartPID, product_id);
}

// --- Uploads and customer service ---

clientcomm_status clientcomm_upload_log(clientcomm_text email, clientcomm_text path,
                                        clientcomm_text title, clientcomm_text description) {
  return pass(&Host::uploadLogByEmail, email, path, title, description);
}

clientcomm_status clientcomm_upload_user_file(clientcomm_text email, clientcomm_text path,
                                              clientcomm_text title, clientcomm_text description) {
  return pass(&Host::uploadUserFile, email, path, title, description);
}

clientcomm_status clientcomm_upload_product_file(clientcomm_text email, clientcomm_text path,
                                                 clientcomm_text title,
                                                 clientcomm_text description) {
  return pass(&Host::uploadProductFile, email, path, title, description);
}

clientcomm_status clientcomm_check_for_messages() { return pass(&Host::checkForHeleprMessage); }

clientcomm_status clientcomm_customer_service(clientcomm_text email, clientcomm_text attachment) {
  return pass(&Host::customerserviceByEmail, email, attachment);
}

// --- Usage data ---

clientcomm_status clientcomm_count_use(clientcomm_text target, clientcomm_text key) {
  return pass(&Host::commIncreaseDataCollect, target, key);
}

clientcomm_status clientcomm_count_use_of_new(clientcomm_text target, clientcomm_text key) {
  return pass(&Host::autoCreatedIncreaseDataCollect, target, key);
}

clientcomm_status clientcomm_collect_string(clientcomm_text target, clientcomm_text value) {
  return pass(&Host::customStringDataCollect, target, value);
}

clientcomm_status clientcomm_upload_usage() { return pass(&Host::directUploadData); }

clientcomm_status clientcomm_set_collect_status(bool is_collected) {
  return atBorder([=] { return startedHost().setProductCollectStatus(is_collected); });
}

clientcomm_status clientcomm_collect_status(bool* is_collected) {
  return ask(&Host::productCollectStatus, is_collected);
}

clientcomm_status clientcomm_set_collect_pid(clientcomm_text product_id) {
  return atBorder([=] {
    const OptionalString text = clientcomm::requiredString(product_id);
    startedHost().setCollectDataPID(text);
  });
}

clientcomm_status clientcomm_collect_pid(clientcomm_string** product_id) {
  return ask(&Host::collectDataPID, product_id);
}

clientcomm_status clientcomm_set_collect_folder(clientcomm_text base) {
  return atBorder([=] {
    const OptionalString path = clientcomm::requiredString(base);
    if (path->front() != '/') return CLIENTCOMM_BAD_ARGUMENT;
    startedHost().initDataCollectionPath(path);
    return CLIENTCOMM_OK;
  });
}

// --- Suite page and network-error page ---

clientcomm_status clientcomm_register_suite(clientcomm_suite_info* info) {
  return ask(&Host::regSuiteInfo, info);
}

clientcomm_status clientcomm_unregister_suite(clientcomm_suite_info* info) {
  return ask(&Host::unRegSuiteInfo, info);
}

clientcomm_status clientcomm_network_error_page(clientcomm_string** path) {
  return ask(&Host::netErrorPagePath, path);
}

// --- Switches ---

clientcomm_status clientcomm_set_tips_enabled(bool is_enabled) {
  return pass([](Host& host, bool flag) { host.setTipsEnable(flag); }, is_enabled);
}

clientcomm_status clientcomm_set_ad_enabled(bool is_enabled) {
  return pass([](Host& host, bool flag) { host.setEnableAD(flag); }, is_enabled);
}
