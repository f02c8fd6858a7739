#pragma once

/// @file
/// The host's side. Every function but the first returns CLIENTCOMM_NOT_STARTED before
/// `clientcomm_start`, and does nothing then: a helper, which never starts the library, cannot
/// install itself by mistake. A nil text is sent as "". A query blocks until the helper answers or
/// ends. The C++ class TQHPHelperCommunicate says more of each.

#include <stdbool.h>
#include <stdint.h>

#include "ClientComm/c/status_code.h"
#include "ClientComm/c/string_handle.h"
#include "ClientComm/platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/// Installs, launches and starts the helper; from then on a timer makes sure every 5 seconds that
/// it runs. The first call makes this thread the library's own. Further calls do nothing.
/// @return CLIENTCOMM_OK, also when there is no helper: ask with `clientcomm_is_helper_alive`.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_start(void);

// --- The helper's life ---

/// Makes sure that the helper runs and has been started for this product, as each tick does.
/// @return CLIENTCOMM_HELPER_SERVER_CLOSED, CLIENTCOMM_HELPER_NOT_LAUNCHED.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_restart_helper(void);
/// Sends the start command. @return its status.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_start_helper(void);
/// Sends the stop command; the next tick starts the helper again. @return its status.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_stop_helper(void);
/// @return CLIENTCOMM_OK when the helper runs, else the send's own status.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_is_helper_alive(void);
/// Shows the helper; makes sure first that it runs.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_show_helper(void);
/// Hides the helper; makes sure first that it runs.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_hide_helper(void);
/// Whether the helper's server is open, by the helper's own preferences.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_is_helper_server_open(bool* is_open);
/// Installs the helper of the host's bundle, or replaces an older copy.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_extract_helper(void);
/// Makes sure that the installed helper runs, and starts it for this product.
/// @return CLIENTCOMM_HELPER_NOT_LAUNCHED.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_launch_helper(void);

// --- The product's identity; a string is the caller's, who releases it ---

/// Asks the helper for the client ID.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_ask_client_id(clientcomm_string** client_id);
/// The client ID that the helper gave last; asks nothing.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_client_id(clientcomm_string** client_id);
/// The product ID of the first start ever.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_first_start_pid(clientcomm_string** product_id);

// --- Uploads and customer service; make sure first that the helper runs ---

/// Has the helper upload the log file at `path`.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_upload_log(clientcomm_text email,
                                                          clientcomm_text path,
                                                          clientcomm_text title,
                                                          clientcomm_text description);
/// Has the helper upload the file of the user at `path`.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_upload_user_file(clientcomm_text email,
                                                                clientcomm_text path,
                                                                clientcomm_text title,
                                                                clientcomm_text description);
/// Has the helper upload the file of the product at `path`. It is not launched for this.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_upload_product_file(clientcomm_text email,
                                                                   clientcomm_text path,
                                                                   clientcomm_text title,
                                                                   clientcomm_text description);
/// Has the helper look for messages from customer service.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_check_for_messages(void);
/// Sends a request to customer service with the file at the path `attachment`.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_customer_service(clientcomm_text email,
                                                                clientcomm_text attachment);

// --- Usage data ---

/// Counts one use of `target`'s `key`, a counter known to the helper.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_count_use(clientcomm_text target,
                                                         clientcomm_text key);
/// Counts one use of `target`'s `key`, a counter that the helper makes on first use.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_count_use_of_new(clientcomm_text target,
                                                                clientcomm_text key);
/// Files the text `value` under `target`.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_collect_string(clientcomm_text target,
                                                              clientcomm_text value);
/// Has the usage data collected so far uploaded at once.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_upload_usage(void);
/// Switches the collection of usage data for this product.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_set_collect_status(bool is_collected);
/// Asks the helper whether usage data is collected; false without an answer.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_collect_status(bool* is_collected);
/// Stores the product ID under which usage data is filed.
/// @return CLIENTCOMM_BAD_ARGUMENT for nil and "": nothing is stored.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_set_collect_pid(clientcomm_text product_id);
/// The product ID under which usage data is filed; the caller releases it.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_collect_pid(clientcomm_string** product_id);
/// Makes Log/Data under the folder `base`, and records it in the user defaults.
/// @return CLIENTCOMM_BAD_ARGUMENT unless `base` begins with "/".
CLIENTCOMM_EXPORT clientcomm_status clientcomm_set_collect_folder(clientcomm_text base);

// --- Suite page and network-error page ---

/// Where the suite page is, and its size. The caller releases `url`.
typedef struct clientcomm_suite_info {  // NOLINT(modernize-use-using): for C
  clientcomm_string* url;               ///< NULL without an answer.
  int32_t width;                        ///< In points.
  int32_t height;                       ///< In points.
} clientcomm_suite_info;

/// Asks the helper for the suite page of a registered product. @return CLIENTCOMM_NO_VALUE without
/// an answer.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_register_suite(clientcomm_suite_info* info);
/// Asks the helper for the suite page of a product that is not registered.
/// @return CLIENTCOMM_NO_VALUE without an answer.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_unregister_suite(clientcomm_suite_info* info);
/// Asks the helper for the path of the page to show without a network.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_network_error_page(clientcomm_string** path);

// --- Switches in the settings files of the host's bundle ---

/// Switches the product's tips.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_set_tips_enabled(bool is_enabled);
/// Switches advertising.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_set_ad_enabled(bool is_enabled);

#ifdef __cplusplus
}
#endif
