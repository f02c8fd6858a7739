#include "ClientComm/platform/linux/launch_end.h"

#include <glib-unix.h>
#include <sys/wait.h>

#include <utility>

#include "ClientComm/platform/glib/main_context.h"
#include "ClientComm/platform/posix/io.h"
#include "ClientComm/platform/reporter.h"

namespace clientcomm {
namespace {

struct ObservedLaunch {
  std::string executable;
  ScopedFd input;
};

gboolean reportEndIn(gint input, GIOCondition /*condition*/, gpointer data) noexcept {
  const auto* const launch = static_cast<ObservedLaunch*>(data);
  int status = 0;
  if (readSome(input, &status, sizeof status) != sizeof status) return G_SOURCE_REMOVE;
  if (WIFSIGNALED(status)) {
    report(DiagnosticCause::kHelperKilled, launch->executable, "waitpid", WTERMSIG(status),
           DiagnosticCodeKind::kSignal);
  } else {
    report(DiagnosticCause::kHelperExited, launch->executable, "waitpid", WEXITSTATUS(status),
           DiagnosticCodeKind::kExitStatus);
  }
  return G_SOURCE_REMOVE;
}

void destroy(gpointer data) noexcept { delete static_cast<ObservedLaunch*>(data); }

}  // namespace

void reportEndOf(std::string executable, ScopedFd input) {
  auto* const launch = new ObservedLaunch{std::move(executable), std::move(input)};
  GSource* const source = g_unix_fd_source_new(
      launch->input.get(), static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR));
  g_source_set_name(source, "ClientComm launch");
  // The general signature of a callback, which the kind of source says.
  g_source_set_callback(source, G_SOURCE_FUNC(&reportEndIn), launch, &destroy);
  attachToMainContext(source);
  g_source_unref(source);
}

}  // namespace clientcomm
