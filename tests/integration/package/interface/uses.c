/* One use of every function of the C interface, as C99 and as C++. Never runs: that it links is the
 * test. */
#include <ClientComm/clientcomm.h>

static const clientcomm_text text = CLIENTCOMM_TEXT("text");
static clientcomm_string* string;
static bool flag;

static void tell(void* context, const clientcomm_error* error) {
  flag = context == NULL && error != NULL && error->code != 0 && error->domain.length > 0 &&
         error->description.bytes != NULL;
}

static void receive(void* context, clientcomm_call* call) {
  clientcomm_text answer = clientcomm_call_argument(call, clientcomm_call_count(call));
  if (context == NULL) answer = clientcomm_call_caller(call);
  if (answer.bytes == NULL) answer = clientcomm_call_selector(call);
  clientcomm_call_answer(call, answer);
}

static void know(void* context, clientcomm_status status) {
  flag = context == NULL && status == CLIENTCOMM_OK;
}

static void take_text(void* context, clientcomm_status status, clientcomm_text answer) {
  flag = context == NULL && status == CLIENTCOMM_OK && answer.bytes != NULL;
}

static void take_flag(void* context, clientcomm_status status, bool answer) {
  flag = context == NULL && status == CLIENTCOMM_OK && answer;
}

static void take_suite(void* context, clientcomm_status status, clientcomm_text url, int32_t width,
                       int32_t height) {
  take_text(context, width < height ? CLIENTCOMM_OK : status, url);
}

static void destroy(void* context) { flag = context == NULL; }

static const clientcomm_method methods[] = {{CLIENTCOMM_TEXT("receive:"), receive}};

static void use_life(void) {
  clientcomm_start();
  clientcomm_restart_helper();
  clientcomm_start_helper();
  clientcomm_stop_helper();
  clientcomm_is_helper_alive();
  clientcomm_show_helper();
  clientcomm_hide_helper();
  clientcomm_is_helper_server_open(&flag);
  clientcomm_extract_helper();
  clientcomm_launch_helper();
  clientcomm_ask_client_id(&string);
  clientcomm_client_id(&string);
  clientcomm_first_start_pid(&string);
  if (clientcomm_string_text(string).length > CLIENTCOMM_MAXIMUM_LENGTH) flag = true;
  clientcomm_string_release(string);
}

static void use_services(void) {
  clientcomm_suite_info info;
  clientcomm_upload_log(text, text, text, text);
  clientcomm_upload_user_file(text, text, text, text);
  clientcomm_upload_product_file(text, text, text, text);
  clientcomm_check_for_messages();
  clientcomm_customer_service(text, text);
  clientcomm_count_use(text, text);
  clientcomm_count_use_of_new(text, text);
  clientcomm_collect_string(text, clientcomm_text_of("value"));
  clientcomm_upload_usage();
  clientcomm_set_collect_status(true);
  clientcomm_collect_status(&flag);
  clientcomm_set_collect_pid(text);
  clientcomm_collect_pid(&string);
  clientcomm_set_collect_folder(text);
  clientcomm_register_suite(&info);
  clientcomm_unregister_suite(&info);
  clientcomm_network_error_page(&string);
  clientcomm_set_tips_enabled(info.width < info.height);
  clientcomm_set_ad_enabled(info.url == NULL);
}

static void use_upgrade(void) {
  clientcomm_upgrade_delegate* delegate = NULL;
  clientcomm_upgrade_product();
  clientcomm_ready_to_upgrade(true);
  clientcomm_set_upgrade_delegate(tell, NULL, destroy, &delegate);
  clientcomm_upgrade_delegate_release(delegate);
}

static void use_calls(void) {
  clientcomm_class* registered = NULL;
  clientcomm_register_class(text, methods, 1, NULL, destroy, &registered);
  clientcomm_class_release(registered);
  clientcomm_open_to_calls();
  clientcomm_close_to_calls();
  clientcomm_set_server_open(true);
  clientcomm_send(text, text, text, &text, 1);
  clientcomm_ask(text, text, text, &text, 1, &string);
}

static void use_queries(void) {
  clientcomm_query* query = NULL;
  clientcomm_start_async(know, NULL, destroy);
  clientcomm_ask_client_id_async(1000, take_text, NULL, destroy, &query);
  clientcomm_collect_status_async(1000, take_flag, NULL, destroy, NULL);
  clientcomm_register_suite_async(1000, take_suite, NULL, destroy, NULL);
  clientcomm_unregister_suite_async(1000, take_suite, NULL, destroy, NULL);
  clientcomm_network_error_page_async(CLIENTCOMM_NO_LIMIT, take_text, NULL, destroy, NULL);
  clientcomm_ask_async(text, text, text, &text, 1, 0, take_text, NULL, destroy, NULL);
  clientcomm_query_release(query);
}

static void look_at(void* context, const clientcomm_process* process) {
  if (context == NULL) clientcomm_process_info(process->pid + process->uid, process->name, &string);
}

static void use_processes(void) {
  clientcomm_application_is_running(text, text, &flag);
  clientcomm_each_process(look_at, NULL);
}

static void hear(void* context, const clientcomm_diagnostic* diagnostic) {
  flag = context == NULL &&
         diagnostic->subject.length > strlen(clientcomm_cause_name(diagnostic->cause)) &&
         strlen(clientcomm_cause_attempt(diagnostic->cause)) > 0 &&
         strlen(clientcomm_cause_sentence(diagnostic->cause)) > 0;
}

static void use_diagnostics(void) { clientcomm_set_diagnostic_handler(hear, NULL, NULL); }

int main(int count, char** arguments) {
  int descriptor = -1;
  clientcomm_status status;
  (void)arguments;
  if (count == 1) return 0;
  status = clientcomm_open_event_loop(&descriptor);
  if (status == CLIENTCOMM_OK) status = clientcomm_run_event_loop();
  use_life();
  use_services();
  use_upgrade();
  use_calls();
  use_queries();
  use_diagnostics();
  use_processes();
  return clientcomm_status_text(status)[0] == '\0';
}
