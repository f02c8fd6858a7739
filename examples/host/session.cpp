#include "examples/host/session.h"

#include <glib-unix.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "ClientComm/TQHPHelper.h"
#include "ClientComm/TQHPHelperCommunicate.h"
#include "examples/host/event_log.h"
#include "examples/host/helper_watch.h"

namespace sample {
namespace {

constexpr std::chrono::seconds kHelperLimit{5};
constexpr std::chrono::seconds kQuestionLimit{3};

int usageError(const std::string& problem) {
  logEvent("host", "error", clientcomm::paramErr, problem);
  return 2;
}

}  // namespace

Session::Session(Mode mode) : mode_(mode), loop_(g_main_loop_new(nullptr, FALSE)) {
  TQHPHelper::share();
  TQHPHelperCommunicate& controller = TQHPHelperCommunicate::share();
  controller.setProductUpgradeDelegate(&upgrades_);
  // A helper that was launched just now opens to calls a moment later.
  const bool isReady =
      !controller.getDefaultHelperServerOpen() ||
      waitUntil([&] { return controller.isAliveHelper() == clientcomm::noErr; }, kHelperLimit);
  logEvent("host", "begin", controller.autoRestartHelper(),
           isReady ? "client ID " + controller.clientID().value_or("unknown")
                   : "the helper does not answer");
}

Session::~Session() {
  TQHPHelperCommunicate::share().setProductUpgradeDelegate(nullptr);
  g_main_loop_unref(loop_);
}

int Session::carryOut(const Arguments& words) {
  const Command* const command = commandNamed(words.front());
  if (command == nullptr) return usageError("there is no command " + words.front());
  const Arguments arguments(words.begin() + 1, words.end());
  if (arguments.size() < command->minimumCount || arguments.size() > command->maximumCount) {
    return usageError("use: " + words.front() + " " + std::string(command->parameters));
  }
  const Outcome outcome = command->run(*this, arguments);
  logEvent("host", words.front(), outcome.status, outcome.detail);
  return outcome.holds() ? 0 : 1;
}

void Session::stay() {
  const HelperWatch watch;
  g_unix_set_fd_nonblocking(STDIN_FILENO, TRUE, nullptr);
  const guint source = g_unix_fd_add(STDIN_FILENO, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP),
                                     &Session::readInput, this);
  g_main_loop_run(loop_);
  g_source_remove(source);
}

gboolean Session::readInput(gint descriptor, GIOCondition /*condition*/, gpointer self) {
  auto& session = *static_cast<Session*>(self);
  char chunk[4096];
  const ssize_t count = read(descriptor, chunk, sizeof chunk);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return G_SOURCE_CONTINUE;
  if (count <= 0) {
    g_main_loop_quit(session.loop_);
    return G_SOURCE_CONTINUE;
  }
  session.input_.append(chunk, static_cast<std::size_t>(count));
  for (auto end = session.input_.find('\n'); end != std::string::npos;
       end = session.input_.find('\n')) {
    const std::string line = session.input_.substr(0, end);
    session.input_.erase(0, end + 1);
    session.carryOutLine(line);
  }
  return G_SOURCE_CONTINUE;
}

void Session::carryOutLine(const std::string& line) {
  gint count = 0;
  gchar** words = nullptr;
  GError* error = nullptr;
  if (g_shell_parse_argv(line.c_str(), &count, &words, &error) == FALSE) {
    const bool isEmpty = error->code == G_SHELL_ERROR_EMPTY_STRING;
    if (!isEmpty) usageError(error->message);
    g_error_free(error);
    return;
  }
  const Arguments arguments(words, words + count);
  g_strfreev(words);
  if (arguments.front() == "quit") {
    g_main_loop_quit(loop_);
  } else {
    carryOut(arguments);
  }
}

Outcome Session::upgrade(std::optional<bool> answer) {
  upgrades_.setAnswer(answer);
  const int before = upgrades_.questionCount();
  const OSErr status = TQHPHelperCommunicate::share().productUpgrade();
  if (status != clientcomm::noErr || mode_ == Mode::kInteractive) return {status, "", true};
  const bool isAsked =
      waitUntil([&] { return upgrades_.questionCount() > before; }, kQuestionLimit);
  if (!isAsked) return {status, "the helper has nothing newer", true};
  return {upgrades_.answerStatus(), "", true};
}

bool Session::waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  const GSourceFunc wake = [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; };
  const guint source = g_timeout_add(20, wake, nullptr);
  bool holds = condition();
  while (!holds && std::chrono::steady_clock::now() < deadline) {
    g_main_context_iteration(nullptr, TRUE);
    holds = condition();
  }
  g_source_remove(source);
  return holds;
}

}  // namespace sample
