#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <random>
#include <string>

/// What the stress tests share: their size, their randomness, and the user that they run as.
namespace stress {

/// `full` when the environment says CLIENTCOMM_STRESS=full, else `shortened`, which is for every
/// change.
int sizeFor(int shortened, int full);

/// A generator whose seed is printed; CLIENTCOMM_STRESS_SEED repeats a run.
std::mt19937& randomness();

/// A random time up to `longest`.
std::chrono::microseconds randomTime(std::chrono::microseconds longest);

/// Sleeps without running the main loop.
void pause(std::chrono::microseconds time);

/// How long `work` takes.
std::chrono::microseconds timeOf(const std::function<void()>& work);

/// Prints a figure of the test that runs.
void report(const std::string& figure);

/// What an ordinary user's session may do, for a test that root runs too: the private folder goes
/// to the user 65534, who becomes this process's; at most 1024 descriptors, as desktops have it.
void becomeOrdinaryUser();

/// A number of /proc/<pid>/status, such as "VmRSS" in KiB.
long statusOf(pid_t pid, const std::string& field);

/// How many descriptors the process has open.
int descriptorsOf(pid_t pid);

}  // namespace stress
