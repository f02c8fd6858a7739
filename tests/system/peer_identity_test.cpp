#include "ClientComm/platform/linux/peer_identity.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/sched.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>

#include "ClientComm/platform/linux/known_peers.h"
#include "ClientComm/platform/linux/peer_process.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/linux/socket_path.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "tests/support/child_process.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"

namespace {

using clientcomm::identifierOfPeer;
using clientcomm::identityOfPeer;
using clientcomm::PeerIdentity;
using clientcomm::PeerKind;
using clientcomm::ScopedFd;
using clientcomm::serialNumberForPeer;
using support::ChildProcess;

constexpr pid_t kNoProcess = 99'999'999;  // more than the kernel ever gives
constexpr std::uint32_t kToken = 0x5eed;
constexpr int kPeerPidfdOption = 77;  // SO_PEERPIDFD, which the headers may lack
constexpr int kNotAllowed = 77;

const support::Role sleeper("sleeper", [](const std::vector<std::string>& /*arguments*/) {
  std::puts("ready");
  std::fflush(stdout);
  while (std::getchar() != EOF) {
  }
  return 0;
});

std::string makeSleeper(const std::string& name, const std::string& identifier) {
  return support::makeApplication(name, identifier, "sleeper");
}

ScopedFd openExecutableOf(const std::string& application) {
  return ScopedFd(open(support::executableOf(application).c_str(), O_PATH | O_CLOEXEC));
}

clientcomm::OptionalString identifierOf(const PeerIdentity& identity) {
  if (identity.kind != PeerKind::kApplication) return std::nullopt;
  return identifierOfPeer(identity.psn);
}

clientcomm::OptionalString identifierOf(pid_t pid, int executable, std::uint32_t token) {
  return identifierOf(identityOfPeer(pid, -1, executable, token));
}

// --- Processes that are not seen from here: their ID is 0. ---

TEST(UnseenPeer, IsKnownByTheExecutableItHandsOverAndByItsTokenFromThenOn) {
  const ScopedFd executable = openExecutableOf(makeSleeper("One", "com.example.one"));
  EXPECT_EQ(identityOfPeer(0, -1, -1, kToken).kind, PeerKind::kUnknown);
  EXPECT_EQ(identifierOf(0, executable.get(), kToken), "com.example.one");
  EXPECT_EQ(identifierOf(0, -1, kToken), "com.example.one");
  EXPECT_EQ(identityOfPeer(0, -1, -1, kToken + 1).kind, PeerKind::kUnknown);
  EXPECT_EQ(identityOfPeer(0, -1, -1, 0).kind, PeerKind::kUnknown);
}

TEST(UnseenPeer, IsToldFromAnotherByItsToken) {
  const std::string application = makeSleeper("One", "com.example.one");
  const ScopedFd one = openExecutableOf(application);
  const ScopedFd two = openExecutableOf(makeSleeper("Two", "com.example.two"));
  const auto first = serialNumberForPeer(0, one.get(), kToken);
  const auto second = serialNumberForPeer(0, two.get(), kToken + 1);
  const auto third = serialNumberForPeer(0, one.get(), kToken + 2);
  ASSERT_TRUE(first && second && third);
  EXPECT_NE(first, third);
  EXPECT_EQ(identifierOfPeer(*first), "com.example.one");
  EXPECT_EQ(identifierOfPeer(*second), "com.example.two");
  EXPECT_EQ(serialNumberForPeer(0, -1, kToken), first);
  EXPECT_EQ(serialNumberForPeer(0, -1, kToken + 2), third);
}

TEST(UnseenPeer, WithAnExecutableOutsideAnyBundleIsNoApplication) {
  const ScopedFd tool(open("/bin/cat", O_PATH | O_CLOEXEC));
  EXPECT_EQ(identityOfPeer(0, -1, tool.get(), kToken).kind, PeerKind::kNoApplication);
}

TEST(UnseenPeer, NegativeProcessIDIsNothing) {
  const ScopedFd executable = openExecutableOf(makeSleeper("One", "com.example.one"));
  EXPECT_EQ(identityOfPeer(-1, -1, executable.get(), kToken).kind, PeerKind::kUnknown);
}

// --- A /proc that belongs to another namespace than the process that reads it. ---

// Runs `body` as the first process of a process-ID namespace, under the /proc of the test.
int runUnderForeignProc(const std::function<int()>& body) {
  return ChildProcess::fork([&] {
           if (unshare(CLONE_NEWUSER | CLONE_NEWPID) != 0) return kNotAllowed;
           return ChildProcess::fork(body).wait();
         })
      .wait();
}

TEST(ForeignProc, NamesAPeerByTheIDThatItHasThere) {
  const int status = runUnderForeignProc([] {
    int ends[2];
    if (getpid() != 1 || socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return 1;
    std::array<char, 16> own{};
    if (readlink("/proc/self", own.data(), own.size() - 1) <= 0) return 2;
    const clientcomm::PeerProcess peer(getpid(), ends[0]);
    int pidfd = -1;
    socklen_t size = sizeof pidfd;
    const bool hasPidfds = getsockopt(ends[0], SOL_SOCKET, kPeerPidfdOption, &pidfd, &size) == 0;
    const std::string expected = hasPidfds ? own.data() : "0";
    return std::to_string(peer.idInProc()) == expected ? 0 : 3;
  });
  if (status == kNotAllowed) GTEST_SKIP() << "no process-ID namespace can be made here";
  EXPECT_EQ(status, 0);
}

TEST(ForeignProc, TellsNothingOfAPeerThatIsKnownByItsIDAlone) {
  const int status = runUnderForeignProc([] {
    if (clientcomm::PeerProcess(getpid(), -1).idInProc() != 0) return 1;
    return identityOfPeer(getpid(), -1, -1, 0).kind == PeerKind::kUnknown ? 0 : 2;
  });
  if (status == kNotAllowed) GTEST_SKIP() << "no process-ID namespace can be made here";
  EXPECT_EQ(status, 0);
}

// --- Many peers. ---

TEST(RememberedPeers, OneThatHasExitedIsStillKnownAfterThousandOthers) {
  const ScopedFd executable = openExecutableOf(makeSleeper("One", "com.example.one"));
  const auto first = serialNumberForPeer(kNoProcess, executable.get(), kToken);
  ASSERT_TRUE(first);
  for (int i = 1; i <= 1000; ++i) {
    ASSERT_TRUE(serialNumberForPeer(kNoProcess + i, executable.get(), kToken));
  }
  EXPECT_EQ(serialNumberForPeer(kNoProcess, -1, kToken), first);
  EXPECT_EQ(identifierOfPeer(*first), "com.example.one");
}

TEST(RememberedPeers, TakeABoundedAmountOfMemoryAndTheOneNotHeardOfForLongestIsForgotten) {
  const ScopedFd executable = openExecutableOf(makeSleeper("One", "com.example.one"));
  const auto first = serialNumberForPeer(kNoProcess, executable.get(), kToken);
  const auto second = serialNumberForPeer(kNoProcess + 1, executable.get(), kToken);
  ASSERT_TRUE(first && second);
  constexpr int kMoreThanFit = clientcomm::kMemoryForPeers / 256;
  for (int i = 2; i < kMoreThanFit; ++i) {
    ASSERT_TRUE(serialNumberForPeer(kNoProcess - i, executable.get(), kToken));
    ASSERT_EQ(serialNumberForPeer(kNoProcess, -1, kToken), first);
  }
  EXPECT_FALSE(serialNumberForPeer(kNoProcess + 1, -1, kToken));
  EXPECT_FALSE(identifierOfPeer(*second));
  EXPECT_EQ(identifierOfPeer(*first), "com.example.one");
}

// --- Process IDs that are used again. ---

/// The receiver's end of a connection, and the ID that its credentials name.
struct Connection {
  ScopedFd socket;
  pid_t pid = 0;
};

// A connection of a process that has exited since.
Connection connectionOfAProcessThatExited() {
  const clientcomm::SocketPath path("reuse-test");
  const ScopedFd listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  EXPECT_EQ(bind(listener.get(), path.address(), clientcomm::SocketPath::size()), 0);
  EXPECT_EQ(listen(listener.get(), 1), 0);
  ChildProcess peer = ChildProcess::fork([&] {
    const ScopedFd own(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    return connect(own.get(), path.address(), clientcomm::SocketPath::size());
  });
  Connection connection{ScopedFd(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC)),
                        peer.pid()};
  EXPECT_EQ(peer.wait(), 0);
  return connection;
}

// Runs `application` with the process ID `pid`. 0 when that is not allowed.
pid_t runWithID(pid_t pid, const std::string& application, int output) {
  const std::string executable = support::executableOf(application);
  clone_args arguments{};
  arguments.exit_signal = SIGCHLD;
  arguments.set_tid = reinterpret_cast<std::uintptr_t>(&pid);
  arguments.set_tid_size = 1;
  const long child = syscall(SYS_clone3, &arguments, sizeof arguments);
  if (child != 0) return child > 0 ? static_cast<pid_t>(child) : 0;
  int input[2];
  if (pipe(input) != 0) _exit(1);
  dup2(input[0], STDIN_FILENO);
  dup2(output, STDOUT_FILENO);
  execl(executable.c_str(), executable.c_str(), nullptr);
  _exit(1);
}

TEST(ReusedProcessID, LaterProcessIsNotTakenForTheCaller) {
  ASSERT_TRUE(clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate).isValid());
  const ScopedFd executable = openExecutableOf(makeSleeper("Caller", "com.example.caller"));
  const std::string other = makeSleeper("Other", "com.example.other");
  const Connection connection = connectionOfAProcessThatExited();
  int descriptor = -1;
  socklen_t size = sizeof descriptor;
  if (getsockopt(connection.socket.get(), SOL_SOCKET, kPeerPidfdOption, &descriptor, &size) != 0 &&
      errno == ENOPROTOOPT) {
    GTEST_SKIP() << "this kernel has no SO_PEERPIDFD";
  }
  if (descriptor >= 0) close(descriptor);
  int output[2];
  ASSERT_EQ(pipe2(output, O_CLOEXEC), 0);
  const pid_t later = runWithID(connection.pid, other, output[1]);
  close(output[1]);
  if (later == 0) GTEST_SKIP() << "no process can be given an ID here";
  EXPECT_EQ(later, connection.pid);
  char byte = 0;
  EXPECT_EQ(read(output[0], &byte, 1), 1);  // it runs its own executable now
  EXPECT_EQ(identifierOf(identityOfPeer(later, -1, -1, 0)), "com.example.other");
  const int socket = connection.socket.get();
  EXPECT_EQ(identityOfPeer(later, socket, -1, kToken).kind, PeerKind::kUnknown);
  EXPECT_EQ(identifierOf(identityOfPeer(later, socket, executable.get(), kToken)),
            "com.example.caller");
  support::sendSignal(later, SIGKILL);
  waitpid(later, nullptr, 0);
  close(output[0]);
}

// Has the kernel answer as before Linux 6.5.
bool takeAwayPidfdsOfPeers() {
  std::array<sock_filter, 6> program{{
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_getsockopt, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[2])),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kPeerPidfdOption, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOPROTOOPT),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  }};
  const sock_fprog filter{program.size(), program.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

int identifyOneself() {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return 2;
  const auto identifier = identifierOf(identityOfPeer(getpid(), ends[0], -1, 0));
  return identifier == "com.example.testhost" ? 0 : 1;
}

TEST(PeerOfAConnection, IsKnownWithAndWithoutPidfds) {
  EXPECT_EQ(ChildProcess::fork(identifyOneself).wait(), 0);
  ChildProcess old = ChildProcess::fork([] {
    if (!takeAwayPidfdsOfPeers()) return 3;
    const Connection connection = connectionOfAProcessThatExited();
    const PeerIdentity gone = identityOfPeer(connection.pid, connection.socket.get(), -1, kToken);
    return gone.kind == PeerKind::kUnknown ? identifyOneself() : 4;
  });
  EXPECT_EQ(old.wait(), 0);
}

}  // namespace
