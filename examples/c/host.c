/* A host in C: starts its helper, uses some services, and answers the helper's question whether it may
   upgrade the product. It runs until SIGTERM, or with --once until that question is answered. */

#include <ClientComm/clientcomm.h>
#include <stdio.h>
#include <string.h>

#include "loop.h"

struct product {
  clientcomm_upgrade_delegate* delegate;
  bool ends_after_the_upgrade;
};

static void report(const char* what, clientcomm_status status) {
  printf("%s: %s\n", what, clientcomm_status_text(status));
}

/* Prints an answer, and releases it. */
static void print_answer(const char* what, clientcomm_status status, clientcomm_string* answer) {
  const clientcomm_text text = clientcomm_string_text(answer);
  if (text.bytes == NULL) {
    report(what, status);
  } else {
    printf("%s: %.*s\n", what, (int)text.length, text.bytes);
  }
  clientcomm_string_release(answer);
}

static void will_upgrade(void* context, const clientcomm_error* error) {
  struct product* const product = context;
  if (error == NULL) {
    puts("the helper is about to upgrade the product");
  } else {
    printf("no upgrade: %.*s (%lld)\n", (int)error->description.length, error->description.bytes,
           (long long)error->code);
  }
  report("answer", clientcomm_ready_to_upgrade(error == NULL));
  fflush(stdout);
  if (product->ends_after_the_upgrade) {
    clientcomm_upgrade_delegate_release(product->delegate);
    end_loop();
  }
}

static void forget_product(void* context) {
  struct product* const product = context;
  product->delegate = NULL;
  puts("the delegate is gone");
}

static void use_services(void) {
  clientcomm_string* answer = NULL;
  clientcomm_suite_info suite;
  clientcomm_status status = clientcomm_ask_client_id(&answer);
  print_answer("client ID", status, answer);

  status = clientcomm_register_suite(&suite);
  print_answer("suite page", status, suite.url);
  printf("its size: %d by %d\n", (int)suite.width, (int)suite.height);

  report("count", clientcomm_count_use(clientcomm_text_of("Launch"), clientcomm_text_of("c")));
  report("log", clientcomm_upload_log(clientcomm_text_of("ann@example.com"),
                                      clientcomm_text_of("/var/log/product.log"),
                                      clientcomm_text_of("Slow start"), clientcomm_text_of(NULL)));
}

int main(int count, char** arguments) {
  struct product product = {NULL, false};
  int descriptor = -1;
  int exit_status;
  clientcomm_status status;
  take_signals();
  status = clientcomm_open_event_loop(&descriptor);
  if (status == CLIENTCOMM_OK) status = clientcomm_start();
  if (status != CLIENTCOMM_OK) {
    report("start", status);
    return 1;
  }
  product.ends_after_the_upgrade = count > 1 && strcmp(arguments[1], "--once") == 0;
  use_services();
  status =
      clientcomm_set_upgrade_delegate(will_upgrade, &product, forget_product, &product.delegate);
  if (status == CLIENTCOMM_OK) status = clientcomm_upgrade_product();
  report("upgrade asked for", status);
  fflush(stdout);
  exit_status = run_loop(descriptor, NULL, NULL);
  clientcomm_upgrade_delegate_release(product.delegate);
  return exit_status;
}
