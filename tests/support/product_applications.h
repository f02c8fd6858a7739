#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

#include "ClientComm/platform/property_list.h"

/// A helper and hosts for tests of a helper's life under real hosts. The helper writes down every
/// call in a journal, with its own process ID; the bundles are those of test_helper.h.
namespace support {

/// Key of a helper's Info dictionary: milliseconds that pass from its start until it takes events;
/// `kStopped` for a helper that stops itself before it takes any, until SIGCONT.
inline constexpr char kStartDelayKey[] = "TestStartDelay";
inline constexpr char kStopped[] = "stopped";

/// Key of a helper's Info dictionary: the helper also notes "<pid> alive" for each alive check.
inline constexpr char kNotesAliveChecksKey[] = "TestNotesAliveChecks";

/// A host that stays for the milliseconds of its first argument and then ends; with a second
/// argument it also runs the restart step every so many milliseconds.
inline constexpr char kProductHostRole[] = "product-host";

/// Does what the helper does, until a host tells it to exit. @return its exit status.
int runProductHelper();

/// Puts a helper of `version` into the bundle `host`, a path relative to the private folder.
/// `extra` adds to its Info dictionary.
/// @return the helper's path there.
std::string embedHelper(const std::string& version, const std::string& host = "TestHost.app",
                        const clientcomm::PropertyListDictionary& extra = {});

/// Makes a further host, <sandbox>/hosts/`name`.app with PID `name`, that brings a helper of
/// `version`. `role` is what it does. @return its path.
std::string makeHost(const std::string& name, const std::string& version,
                     const std::string& role = kProductHostRole);

/// Path of the helper that the bundle at `host` brings.
std::string helperIn(const std::string& host);

/// The one process of the installed helper; 0 when there is none, or more than one.
pid_t helperPid();

/// The journal's lines: "<pid> up <version>", "<pid> ready" once it has tried to open to events,
/// "<pid> start <PID> <version>", "<pid> stop <PID>", "<pid> exit <PID>", "<pid> down".
std::vector<std::string> journal();

/// Adds the line "<pid> `text`" to the journal.
void noteInJournal(const std::string& text);

/// How many of the journal's lines hold `what`.
std::size_t countInJournal(const std::string& what);

/// Whether two trees hold the same entries: names, kinds, modes, bytes and targets of links.
bool haveSameContents(const std::string& first, const std::string& second);

}  // namespace support
