/* A helper in C. It answers all that hosts call, offers every product one upgrade, and keeps a journal
   of the calls, which it gives to those who ask for it: class "SampleJournal", selector "lines". */

#include <ClientComm/clientcomm.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "loop.h"

enum { MAXIMUM_HOSTS = 16, MAXIMUM_IDENTIFIER = 256 };

/* A host that has sent `start`, by its bundle identifier. */
struct host {
  char identifier[MAXIMUM_IDENTIFIER];
  bool is_upgrade_due;
};

struct helper {
  char* journal;
  size_t journal_length;
  struct host hosts[MAXIMUM_HOSTS];
  size_t host_count;
};

/* --- The journal: a line "selector argument|argument|… caller" for each call --- */

static void append(struct helper* helper, const char* bytes, size_t length) {
  char* const longer = realloc(helper->journal, helper->journal_length + length);
  if (longer == NULL) return;
  memcpy(longer + helper->journal_length, bytes, length);
  helper->journal = longer;
  helper->journal_length += length;
}

static void append_text(struct helper* helper, clientcomm_text text, const char* separator) {
  if (text.length > 0) append(helper, text.bytes, text.length);
  append(helper, separator, strlen(separator));
}

static void note(void* context, clientcomm_call* call) {
  size_t index;
  append_text(context, clientcomm_call_selector(call), " ");
  for (index = 0; index < clientcomm_call_count(call); ++index) {
    append_text(context, clientcomm_call_argument(call, index), "|");
  }
  append_text(context, clientcomm_text_of(" "), "");
  append_text(context, clientcomm_call_caller(call), "\n");
}

static void give_journal(void* context, clientcomm_call* call) {
  const struct helper* const helper = context;
  const clientcomm_text lines = {helper->journal == NULL ? "" : helper->journal,
                                 helper->journal_length};
  clientcomm_call_answer(call, lines);
}

/* --- The helper's life --- */

/* The caller among the hosts, new or known; NULL when there are too many. */
static struct host* host_of_call(struct helper* helper, const clientcomm_call* call) {
  const clientcomm_text caller = clientcomm_call_caller(call);
  struct host* host;
  size_t index;
  if (caller.length >= MAXIMUM_IDENTIFIER) return NULL;
  for (index = 0; index < helper->host_count; ++index) {
    if (strcmp(helper->hosts[index].identifier, caller.bytes) == 0) return &helper->hosts[index];
  }
  if (helper->host_count == MAXIMUM_HOSTS) return NULL;
  host = &helper->hosts[helper->host_count++];
  memcpy(host->identifier, caller.bytes, caller.length);
  return host;
}

static void start(void* context, clientcomm_call* call) {
  note(context, call);
  host_of_call(context, call);
}

static void ignore(void* context, clientcomm_call* call) {
  (void)context;
  (void)call;
}

static void exit_helper(void* context, clientcomm_call* call) {
  note(context, call);
  end_loop();
}

static const clientcomm_method control_methods[] = {
    {CLIENTCOMM_TEXT("isAlive:prodeuctVersion:"), ignore},
    {CLIENTCOMM_TEXT("start:prodeuctVersion:"), start},
    {CLIENTCOMM_TEXT("stop:prodeuctVersion:"), note},
    {CLIENTCOMM_TEXT("show:prodeuctVersion:"), note},
    {CLIENTCOMM_TEXT("hide:prodeuctVersion:"), note},
    {CLIENTCOMM_TEXT("exitHelper:productVersion:"), exit_helper}};

/* --- Queries --- */

static void give_client_id(void* context, clientcomm_call* call) {
  (void)context;
  clientcomm_call_answer(call, clientcomm_text_of("client-of-c"));
}

static void give_suite(void* context, clientcomm_call* call) {
  (void)context;
  clientcomm_call_answer(call, clientcomm_text_of("https://example.com/suite###640###480"));
}

static void give_error_page(void* context, clientcomm_call* call) {
  (void)context;
  clientcomm_call_answer(call, clientcomm_text_of("/usr/share/example/NetworkError.html"));
}

static void give_collect_status(void* context, clientcomm_call* call) {
  (void)context;
  clientcomm_call_answer(call, clientcomm_text_of("1"));
}

static const clientcomm_method data_methods[] = {
    {CLIENTCOMM_TEXT("clientIDFormHelper"), give_client_id}};

static const clientcomm_method upload_methods[] = {
    {CLIENTCOMM_TEXT("uploadLog:versionID:email:filePath:title:description:"), note},
    {CLIENTCOMM_TEXT("uploadUserFile:versionID:email:filePath:title:description:"), note},
    {CLIENTCOMM_TEXT("uploadProductFile:versionID:email:filePath:title:description:"), note},
    {CLIENTCOMM_TEXT("collectData:version:collectionType:target:keyID:value:"), note},
    {CLIENTCOMM_TEXT("directUploadData:version:"), note},
    {CLIENTCOMM_TEXT("setProductCollectStatus:version:status:"), note},
    {CLIENTCOMM_TEXT("productCollectStatus:version:"), give_collect_status},
    {CLIENTCOMM_TEXT("regSuiteInfo:version:"), give_suite},
    {CLIENTCOMM_TEXT("unRegSuiteInfo:version:"), give_suite},
    {CLIENTCOMM_TEXT("netErrorPagePath:version:"), give_error_page}};

static const clientcomm_method service_methods[] = {
    {CLIENTCOMM_TEXT("checkForHeleprMessage:versionID:"), note},
    {CLIENTCOMM_TEXT("customerService:versionID:email:attachment:"), note}};

/* --- Upgrades: the helper calls its host back after the call, from the loop --- */

static void look_for_upgrade(void* context, clientcomm_call* call) {
  struct host* const host = host_of_call(context, call);
  note(context, call);
  if (host != NULL) host->is_upgrade_due = true;
}

static void offer_upgrades(void* context) {
  struct helper* const helper = context;
  const clientcomm_text arguments[] = {
      CLIENTCOMM_TEXT(""), CLIENTCOMM_TEXT("2.0"), CLIENTCOMM_TEXT("0"), CLIENTCOMM_TEXT("")};
  size_t index;
  for (index = 0; index < helper->host_count; ++index) {
    struct host* const host = &helper->hosts[index];
    if (!host->is_upgrade_due) continue;
    host->is_upgrade_due = false;
    clientcomm_send(clientcomm_text_of(host->identifier),
                    clientcomm_text_of("TQHPUpgradeByHelper"),
                    clientcomm_text_of("productUpgradeCallBack::::"), arguments, 4);
  }
}

static const clientcomm_method upgrade_methods[] = {
    {CLIENTCOMM_TEXT("productUpgrade:versionID:"), look_for_upgrade},
    {CLIENTCOMM_TEXT("productReadyToUpgrade:versionID:ready:"), note}};

static const clientcomm_method journal_methods[] = {{CLIENTCOMM_TEXT("lines"), give_journal}};

/* --- The program --- */

#define COUNT(array) (sizeof(array) / sizeof(array)[0])

static clientcomm_status register_class(struct helper* helper, const char* name,
                                        const clientcomm_method* methods, size_t count) {
  return clientcomm_register_class(clientcomm_text_of(name), methods, count, helper, NULL, NULL);
}

static clientcomm_status open_helper(struct helper* helper, int* descriptor) {
  clientcomm_status status = clientcomm_open_event_loop(descriptor);
  if (status == CLIENTCOMM_OK) {
    status = register_class(helper, "TQHPHelperControl", control_methods, COUNT(control_methods));
  }
  if (status == CLIENTCOMM_OK) {
    status = register_class(helper, "TQHPGetDataByHelper", data_methods, COUNT(data_methods));
  }
  if (status == CLIENTCOMM_OK) {
    status = register_class(helper, "TQHPUploadByHelper", upload_methods, COUNT(upload_methods));
  }
  if (status == CLIENTCOMM_OK) {
    status = register_class(helper, "TQHPCustomerServiceByHelepr", service_methods,
                            COUNT(service_methods));
  }
  if (status == CLIENTCOMM_OK) {
    status = register_class(helper, "TQHPUpgradeByHelper", upgrade_methods, COUNT(upgrade_methods));
  }
  if (status == CLIENTCOMM_OK) {
    status = register_class(helper, "SampleJournal", journal_methods, COUNT(journal_methods));
  }
  if (status == CLIENTCOMM_OK) status = clientcomm_open_to_calls();
  return status;
}

/* Hosts then count the helper as not started. */
static void announce_exit(const struct helper* helper) {
  const clientcomm_text product = CLIENTCOMM_TEXT("");
  size_t index;
  for (index = 0; index < helper->host_count; ++index) {
    clientcomm_send(clientcomm_text_of(helper->hosts[index].identifier),
                    clientcomm_text_of("TQHPHelperControl"),
                    clientcomm_text_of("helperExitNotify:"), &product, 1);
  }
}

int main(void) {
  struct helper helper;
  int descriptor = -1;
  int exit_status = 1;
  clientcomm_status status;
  take_signals();
  memset(&helper, 0, sizeof helper);
  status = open_helper(&helper, &descriptor);
  if (status == CLIENTCOMM_OK) {
    exit_status = run_loop(descriptor, offer_upgrades, &helper);
    announce_exit(&helper);
    clientcomm_close_to_calls();
  } else {
    fprintf(stderr, "%s\n", clientcomm_status_text(status));
  }
  free(helper.journal);
  return exit_status;
}
