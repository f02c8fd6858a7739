#define _POSIX_C_SOURCE 200809L

#include "loop.h"

#include <ClientComm/clientcomm.h>
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <sys/select.h>

static volatile sig_atomic_t is_ending = 0;
static sigset_t while_waiting;

void end_loop(void) { is_ending = 1; }

static void end_by_signal(int number) {
  (void)number;
  is_ending = 1;
}

/* The signals are blocked except during the wait: none is lost between the check and the wait. */
void take_signals(void) {
  struct sigaction action = {0};
  sigset_t signals;
  action.sa_handler = end_by_signal;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  sigprocmask(SIG_BLOCK, &signals, &while_waiting);
  sigaction(SIGTERM, &action, NULL);
  sigaction(SIGINT, &action, NULL);
}

int run_loop(int descriptor, void (*after_each_turn)(void* context), void* context) {
  while (!is_ending) {
    fd_set readable;
    clientcomm_status status;
    FD_ZERO(&readable);
    FD_SET(descriptor, &readable);
    if (pselect(descriptor + 1, &readable, NULL, NULL, NULL, &while_waiting) < 0) {
      if (errno == EINTR) continue;
      perror("pselect");
      return 1;
    }
    status = clientcomm_run_event_loop();
    if (status != CLIENTCOMM_OK) {
      fprintf(stderr, "%s\n", clientcomm_status_text(status));
      return 1;
    }
    if (after_each_turn != NULL) after_each_turn(context);
  }
  return 0;
}
