#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "ClientComm/platform/property_list.h"
#include "benchmarks/support/shared_counter.h"

/// A product with its helper: the benchmark's own bundle is one host, others can be made.
namespace bench {

/// Puts the helper among the resources of the application at `host`.
void embedHelper(const std::string& hostName);

/// Path of the helper's bundle where the hosts install it.
std::string installedHelperPath();

/// How many is-alive calls the helper has answered.
const SharedCounter& aliveCalls();

/// Process ID of the running helper; 0 when none answers.
pid_t helperProcess();

/// Ends the helper and waits until it is gone.
void endHelper();

/// Makes the application `name`, of the role `role`, a host of the same helper. @return its path.
std::string makeHost(const std::string& name, const std::string& role);

}  // namespace bench
