#pragma once

/// Why the library gives up, ignores something or falls back, for C and C++: X(IN_C, InCpp, name,
/// number, sentence). A number and a name keep their meaning; later versions add others. The
/// sentence says what happened and what the library does now. Programs that ask compile the texts
/// in; the library itself knows the numbers only.
#define CLIENTCOMM_DIAGNOSTIC_CAUSES(X)                                                           \
  /* Reading the host's bundle. */                                                                \
  X(HOST_WITHOUT_BUNDLE, HostWithoutBundle, "host-without-bundle", 100,                           \
    "The host does not run from an application bundle, so it has no Info.plist.")                 \
  /* Subject: the key that the host's Info.plist lacks. */                                        \
  X(INFO_KEY_MISSING, InfoKeyMissing, "info-key-missing", 101,                                    \
    "The host's Info.plist lacks this key, or its value is no text.")                             \
  /* Subject: the key as it is spelt; detail: as it has to be. */                                 \
  X(INFO_KEY_MISSPELT, InfoKeyMisspelt, "info-key-misspelt", 102,                                 \
    "This key is read under another spelling.")                                                   \
  /* Subject: the helper's name; detail: the host's bundle. */                                    \
  X(HELPER_NOT_EMBEDDED, HelperNotEmbedded, "helper-not-embedded", 103,                           \
    "The host's bundle holds no helper of that name.")                                            \
  /* Subject: the helper's identifier; detail: the one of the host. */                            \
  X(HELPER_IDENTIFIER_DIFFERS, HelperIdentifierDiffers, "helper-identifier-differs", 104,         \
    "The helper calls itself otherwise than the host calls it, so calls do not reach it.")        \
  /* Subject: the helper's bundle. */                                                             \
  X(HELPER_WITHOUT_IDENTIFIER, HelperWithoutIdentifier, "helper-without-identifier", 105,         \
    "The helper's Info.plist has no CFBundleIdentifier, so calls do not reach it.")               \
  X(PROPERTY_LIST_UNREADABLE, PropertyListUnreadable, "property-list-unreadable", 106,            \
    "The property list cannot be read and counts as missing.")                                    \
  X(PROPERTY_LIST_MALFORMED, PropertyListMalformed, "property-list-malformed", 107,               \
    "The file is no property list with keys and counts as missing.")                              \
  /* Subject: a variable whose value is no absolute path. */                                      \
  X(ENVIRONMENT_IGNORED, EnvironmentIgnored, "environment-ignored", 108,                          \
    "The variable names no absolute path and is ignored.")                                        \
  /* Installing the helper. */                                                                    \
  X(INSTALL_FOLDER_NOT_OWNED, InstallFolderNotOwned, "install-folder-not-owned", 200,             \
    "The install folder belongs to another user, for whom nothing is installed.")                 \
  X(INSTALL_FOLDER_NOT_MADE, InstallFolderNotMade, "install-folder-not-made", 201,                \
    "The install folder cannot be made or used.")                                                 \
  X(INSTALL_FOLDER_LOCKED, InstallFolderLocked, "install-folder-locked", 202,                     \
    "Another process holds the install folder; the restart step tries again.")                    \
  X(HELPER_NOT_COPIED, HelperNotCopied, "helper-not-copied", 203,                                 \
    "The helper cannot be copied to the install folder.")                                         \
  X(HELPER_NOT_REPLACED, HelperNotReplaced, "helper-not-replaced", 204,                           \
    "The old helper cannot be moved aside and stays.")                                            \
  /* Subject: the installed copy; detail: its version. */                                         \
  X(INSTALLED_HELPER_NEWER, InstalledHelperNewer, "installed-helper-newer", 205,                  \
    "The installed helper is newer than the host's and stays.")                                   \
  /* Subject: the bundle, whose version counts as "". */                                          \
  X(HELPER_WITHOUT_VERSION, HelperWithoutVersion, "helper-without-version", 206,                  \
    "The bundle has no CFBundleVersion and counts as the oldest.")                                \
  X(OLD_HELPER_NOT_TOLD, OldHelperNotTold, "old-helper-not-told", 207,                            \
    "The old helper has not taken the exit command; it is repeated.")                             \
  X(OLD_PROCESSES_UNKNOWN, OldProcessesUnknown, "old-processes-unknown", 208,                     \
    "Which processes run from the old helper cannot be told; it stays.")                          \
  X(LEFTOVER_NOT_REMOVED, LeftoverNotRemoved, "leftover-not-removed", 209,                        \
    "What an earlier installation left cannot be removed; the next one tries again.")             \
  /* Launching the helper. */                                                                     \
  /* Subject: the helper that has set "TQHPServerClosed". */                                      \
  X(SERVER_CLOSED, ServerClosed, "server-closed", 300,                                            \
    "The helper has set TQHPServerClosed; nothing is sent or launched until it is removed.")      \
  /* Subject: the helper's bundle. */                                                             \
  X(EXECUTABLE_MISSING, ExecutableMissing, "executable-missing", 301,                             \
    "The bundle has no executable file of the name that its Info.plist says.")                    \
  /* Code: why the system does not execute it. */                                                 \
  X(EXECUTABLE_NOT_RUN, ExecutableNotRun, "executable-not-run", 302,                              \
    "The system does not execute the helper.")                                                    \
  X(LAUNCH_FAILED, LaunchFailed, "launch-failed", 303,                                            \
    "The launch failed before the helper was executed.")                                          \
  X(LAUNCH_OUTCOME_UNKNOWN, LaunchOutcomeUnknown, "launch-outcome-unknown", 304,                  \
    "Whether the helper was executed cannot be told.")                                            \
  X(LAUNCH_PUT_OFF, LaunchPutOff, "launch-put-off", 305,                                          \
    "The helper has ended too often before it opened to calls; its launch is put off.")           \
  X(HELPER_HANGS, HelperHangs, "helper-hangs", 306,                                               \
    "The helper was launched and lives, but has not opened to calls; no other is launched.")      \
  X(HELPER_OUT_OF_REACH, HelperOutOfReach, "helper-out-of-reach", 307,                            \
    "The helper runs in an environment with another runtime folder.")                             \
  X(PROCESSES_UNREADABLE, ProcessesUnreadable, "processes-unreadable", 308,                       \
    "The table of processes cannot be read, so nothing is launched.")                             \
  X(LAUNCH_LOCKED, LaunchLocked, "launch-locked", 309,                                            \
    "Another process holds the lock of launches; nothing is launched.")                           \
  X(LAUNCH_NOT_RECORDED, LaunchNotRecorded, "launch-not-recorded", 310,                           \
    "The launch cannot be recorded; other hosts may launch the helper again.")                    \
  /* Soon after its launch. Code: exit status. */                                                 \
  X(HELPER_EXITED, HelperExited, "helper-exited", 311,                                            \
    "The helper ended soon after its launch; 127 often means a missing library.")                 \
  /* Soon after its launch. Code: signal. */                                                      \
  X(HELPER_KILLED, HelperKilled, "helper-killed", 312,                                            \
    "The helper was killed by a signal soon after its launch.")                                   \
  /* Opening this process to calls. */                                                            \
  X(RUNTIME_FOLDER_UNUSABLE, RuntimeFolderUnusable, "runtime-folder-unusable", 400,               \
    "The runtime folder cannot be used: no calls go out or come in.")                             \
  X(OWN_IDENTIFIER_MISSING, OwnIdentifierMissing, "own-identifier-missing", 401,                  \
    "This process has no CFBundleIdentifier, so it takes no calls.")                              \
  X(ENDPOINT_NOT_OPENED, EndpointNotOpened, "endpoint-not-opened", 402,                           \
    "The endpoint cannot be opened, so this process takes no calls.")                             \
  X(ENDPOINT_TAKEN, EndpointTaken, "endpoint-taken", 403,                                         \
    "Another process has opened under this identifier since and takes the calls.")                \
  X(ENDPOINT_LOST, EndpointLost, "endpoint-lost", 404,                                            \
    "The endpoint's file is gone; it is made again.")                                             \
  X(OWN_RECORD_NOT_WRITTEN, OwnRecordNotWritten, "own-record-not-written", 405,                   \
    "The record of this process cannot be written; its bundle alone identifies it.")              \
  X(RUNTIME_FILE_NOT_REMOVED, RuntimeFileNotRemoved, "runtime-file-not-removed", 406,             \
    "The file cannot be removed; it is cleared as stale later.")                                  \
  X(ACCEPTING_PAUSED, AcceptingPaused, "accepting-paused", 407,                                   \
    "This process is out of descriptors and takes no calls for a moment.")                        \
  /* Sending a call. Subject: the identifier that it is sent to. */                               \
  X(TARGET_MISSING, TargetMissing, "target-missing", 500,                                         \
    "The call names no application; the host's \"Helper Bundle indentifiter\" may be missing.")   \
  X(TARGET_NOT_RUNNING, TargetNotRunning, "target-not-running", 501,                              \
    "No application of this identifier takes calls.")                                             \
  X(TARGET_NOT_PERMITTED, TargetNotPermitted, "target-not-permitted", 502,                        \
    "The application or the runtime folder belongs to another user.")                             \
  X(TARGET_BUSY, TargetBusy, "target-busy", 503, "The application's queue of calls stayed full.") \
  X(NO_RESOURCES_TO_SEND, NoResourcesToSend, "no-resources-to-send", 504,                         \
    "There is no memory or no descriptor left to send with.")                                     \
  X(CALL_TOO_LARGE, CallTooLarge, "call-too-large", 505,                                          \
    "The call is larger than can be carried.")                                                    \
  X(CONNECTION_LOST, ConnectionLost, "connection-lost", 506,                                      \
    "The application went away during the exchange.")                                             \
  X(REPLY_MALFORMED, ReplyMalformed, "reply-malformed", 507,                                      \
    "The application's answer is malformed.")                                                     \
  X(REPLY_LATE, ReplyLate, "reply-late", 508, "The application has not answered in time.")        \
  X(CALLER_NOT_IDENTIFIED, CallerNotIdentified, "caller-not-identified", 509,                     \
    "The application cannot identify this process and does not serve it.")                        \
  X(CALL_NOT_HANDLED, CallNotHandled, "call-not-handled", 510,                                    \
    "The application has no handler for calls.")                                                  \
  /* Code: the receiver's status. */                                                              \
  X(CALL_REFUSED, CallRefused, "call-refused", 511, "The application has refused the call.")      \
  X(MUTUAL_WAIT, MutualWait, "mutual-wait", 512,                                                  \
    "The application waits for an answer of this process, so it cannot answer.")                  \
  X(VERSION_UNSUPPORTED, VersionUnsupported, "version-unsupported", 513,                          \
    "The application serves no version of the wire format that this process knows.")              \
  X(CALL_NOT_BUILT, CallNotBuilt, "call-not-built", 514, "The call is malformed.")                \
  X(OWN_PROGRAM_UNREADABLE, OwnProgramUnreadable, "own-program-unreadable", 515,                  \
    "This process cannot open its own program, by which it is identified.")                       \
  /* Taking a call. */                                                                            \
  X(CALL_OF_ANOTHER_USER, CallOfAnotherUser, "call-of-another-user", 600,                         \
    "A process of another user has connected and is refused.")                                    \
  /* Code: the process that cannot be looked at. */                                               \
  X(CALLER_UNKNOWN, CallerUnknown, "caller-unknown", 601,                                         \
    "The caller cannot be identified, so its call is not carried out.")                           \
  /* Code: the process, which is no application. */                                               \
  X(CALLER_WITHOUT_IDENTIFIER, CallerWithoutIdentifier, "caller-without-identifier", 602,         \
    "The caller runs from no bundle, so its call is not carried out.")                            \
  /* Code: the process that sent it. */                                                           \
  X(PACKET_MALFORMED, PacketMalformed, "packet-malformed", 603,                                   \
    "The packet is malformed and is dropped.")                                                    \
  X(PACKET_UNSUPPORTED, PacketUnsupported, "packet-unsupported", 604,                             \
    "The packet is of a version that this process does not serve.")                               \
  X(CALLER_SILENT, CallerSilent, "caller-silent", 605,                                            \
    "The caller has connected and sent nothing; the connection is closed.")                       \
  X(REPLY_NOT_SENT, ReplyNotSent, "reply-not-sent", 606,                                          \
    "The answer cannot be sent to its caller.")                                                   \
  /* Subject: the class; detail: the selector. */                                                 \
  X(CLASS_UNKNOWN, ClassUnknown, "class-unknown", 607, "No such class is registered.")            \
  /* Subject: the class; detail: the selector. */                                                 \
  X(CLASS_TAKES_NO_CALLS, ClassTakesNoCalls, "class-takes-no-calls", 608,                         \
    "Objects of this class take no calls.")                                                       \
  /* Subject: the class; detail: the selector. */                                                 \
  X(SELECTOR_UNKNOWN, SelectorUnknown, "selector-unknown", 609, "The class has no such method.")  \
  X(CALL_INCOMPLETE, CallIncomplete, "call-incomplete", 610,                                      \
    "The call names no class or no selector.")                                                    \
  /* Subject: the class; detail: the selector. */                                                 \
  X(CALL_THREW, CallThrew, "call-threw", 611, "The call threw an exception; its result is nil.")  \
  X(EVENT_NOT_HANDLED, EventNotHandled, "event-not-handled", 612,                                 \
    "There is no handler for events of this kind.")                                               \
  X(UPGRADE_NOTICE_IGNORED, UpgradeNoticeIgnored, "upgrade-notice-ignored", 613,                  \
    "The delegate still owes an answer; the notice is answered \"ignore\".")                      \
  /* Subject: the selector that no delegate takes. */                                             \
  X(NO_DELEGATE, NoDelegate, "no-delegate", 614,                                                  \
    "There is no delegate that takes it, so it is dropped.")                                      \
  /* Code: the process that asked. */                                                             \
  X(WATCHER_REFUSED, WatcherRefused, "watcher-refused", 615,                                      \
    "The process may not look into this one, so it is not told of the calls.")                    \
  /* Settings files and folders of the host. */                                                   \
  /* Subject: the folder without a property list. */                                              \
  X(SWITCH_FILE_MISSING, SwitchFileMissing, "switch-file-missing", 700,                           \
    "The folder holds no property list, so the switch is not written.")                           \
  X(SETTINGS_NOT_WRITTEN, SettingsNotWritten, "settings-not-written", 701,                        \
    "The file cannot be written; its old content stays.")                                         \
  /* Subject: the file; only Info.plist is written. */                                            \
  X(STRING_TABLE_MISSING, StringTableMissing, "string-table-missing", 702,                        \
    "There is no readable string table, so only Info.plist is written.")                          \
  X(UNFINISHED_WRITE, UnfinishedWrite, "unfinished-write", 703,                                   \
    "A process died while it wrote the file; the copy that it left is read.")                     \
  X(RECOVERY_COPY_LEFT, RecoveryCopyLeft, "recovery-copy-left", 704,                              \
    "The copy of a write cannot be removed; the next reader does so.")                            \
  X(DATA_FOLDER_NOT_MADE, DataFolderNotMade, "data-folder-not-made", 705,                         \
    "The folder for usage data cannot be made.")                                                  \
  /* Subject: a path that is not absolute. */                                                     \
  X(DATA_FOLDER_REFUSED, DataFolderRefused, "data-folder-refused", 706,                           \
    "The path is not absolute, so no folder for usage data is made.")                             \
  /* User defaults. */                                                                            \
  X(DEFAULTS_NOT_WRITTEN, DefaultsNotWritten, "defaults-not-written", 800,                        \
    "The user defaults cannot be written; they stay pending.")                                    \
  /* Subject: where the unreadable file is kept. */                                               \
  X(DEFAULTS_DAMAGED, DefaultsDamaged, "defaults-damaged", 801,                                   \
    "The user defaults were unreadable and are kept aside.")                                      \
  /* Anything. */                                                                                 \
  /* Subject: the text of the exception. */                                                       \
  X(OPERATION_ABANDONED, OperationAbandoned, "operation-abandoned", 900,                          \
    "The operation was abandoned on an exception.")

/// What is attempted where one of the causes comes up whose number divided by 100 is `group`:
/// X(group, text).
#define CLIENTCOMM_DIAGNOSTIC_ATTEMPTS(X) \
  X(1, "read the host's bundle")          \
  X(2, "install the helper")              \
  X(3, "launch the helper")               \
  X(4, "open to calls")                   \
  X(5, "send a call")                     \
  X(6, "take a call")                     \
  X(7, "write settings")                  \
  X(8, "write user defaults")             \
  X(9, "run an operation")
