#pragma once

/// Why the library gives up, ignores something or falls back, for C and C++: X(IN_C, InCpp, number,
/// sentence). InCpp is also the name in text. A number and a name keep their meaning; later
/// versions add others. The sentence says what happened and what the library does now. Programs
/// that ask compile the texts in; the library itself knows the numbers only.
#define CLIENTCOMM_DIAGNOSTIC_CAUSES(X)                                                            \
  /* Reading the host's bundle. */                                                                 \
  X(HOST_WITHOUT_BUNDLE, HostWithoutBundle, 100,                                                   \
    "The host does not run from an application bundle, so it has no Info.plist.")                  \
  /* Subject: the key that the host's Info.plist lacks. */                                         \
  X(INFO_KEY_MISSING, InfoKeyMissing, 101,                                                         \
    "The host's Info.plist lacks this key, or its value is no text.")                              \
  /* Subject: the key as it is spelt; detail: as it has to be. */                                  \
  X(INFO_KEY_MISSPELT, InfoKeyMisspelt, 102, "This key is read under another spelling.")           \
  /* Subject: the helper's name; detail: the host's bundle. */                                     \
  X(HELPER_NOT_EMBEDDED, HelperNotEmbedded, 103,                                                   \
    "The host's bundle holds no helper of that name.")                                             \
  /* Subject: the helper's identifier; detail: the one of the host. */                             \
  X(HELPER_IDENTIFIER_DIFFERS, HelperIdentifierDiffers, 104,                                       \
    "The helper calls itself otherwise than the host calls it, so calls do not reach it.")         \
  /* Subject: the helper's bundle. */                                                              \
  X(HELPER_WITHOUT_IDENTIFIER, HelperWithoutIdentifier, 105,                                       \
    "The helper's Info.plist has no CFBundleIdentifier, so calls do not reach it.")                \
  X(PROPERTY_LIST_UNREADABLE, PropertyListUnreadable, 106,                                         \
    "The property list cannot be read and counts as missing.")                                     \
  X(PROPERTY_LIST_MALFORMED, PropertyListMalformed, 107,                                           \
    "The file is no property list with keys and counts as missing.")                               \
  /* Subject: a variable whose value is no absolute path. */                                       \
  X(ENVIRONMENT_IGNORED, EnvironmentIgnored, 108,                                                  \
    "The variable names no absolute path and is ignored.")                                         \
  /* Installing the helper. */                                                                     \
  X(INSTALL_FOLDER_NOT_OWNED, InstallFolderNotOwned, 200,                                          \
    "The install folder belongs to another user, for whom nothing is installed.")                  \
  X(INSTALL_FOLDER_NOT_MADE, InstallFolderNotMade, 201,                                            \
    "The install folder cannot be made or used.")                                                  \
  X(INSTALL_FOLDER_LOCKED, InstallFolderLocked, 202,                                               \
    "Another process holds the install folder; the restart step tries again.")                     \
  X(HELPER_NOT_COPIED, HelperNotCopied, 203, "The helper cannot be copied to the install folder.") \
  X(HELPER_NOT_REPLACED, HelperNotReplaced, 204,                                                   \
    "The old helper cannot be moved aside and stays.")                                             \
  /* Subject: the installed copy; detail: its version. */                                          \
  X(INSTALLED_HELPER_NEWER, InstalledHelperNewer, 205,                                             \
    "The installed helper is newer than the host's and stays.")                                    \
  /* Subject: the bundle, whose version counts as "". */                                           \
  X(HELPER_WITHOUT_VERSION, HelperWithoutVersion, 206,                                             \
    "The bundle has no CFBundleVersion and counts as the oldest.")                                 \
  X(OLD_HELPER_NOT_TOLD, OldHelperNotTold, 207,                                                    \
    "The old helper has not taken the exit command; it is repeated.")                              \
  X(OLD_PROCESSES_UNKNOWN, OldProcessesUnknown, 208,                                               \
    "Which processes run from the old helper cannot be told; it stays.")                           \
  X(LEFTOVER_NOT_REMOVED, LeftoverNotRemoved, 209,                                                 \
    "What an earlier installation left cannot be removed; the next one tries again.")              \
  /* Launching the helper. */                                                                      \
  /* Subject: the helper that has set "TQHPServerClosed". */                                       \
  X(SERVER_CLOSED, ServerClosed, 300,                                                              \
    "The helper has set TQHPServerClosed; nothing is sent or launched until it is removed.")       \
  /* Subject: the helper's bundle. */                                                              \
  X(EXECUTABLE_MISSING, ExecutableMissing, 301,                                                    \
    "The bundle has no executable file of the name that its Info.plist says.")                     \
  /* Code: why the system does not execute it. */                                                  \
  X(EXECUTABLE_NOT_RUN, ExecutableNotRun, 302, "The system does not execute the helper.")          \
  X(LAUNCH_FAILED, LaunchFailed, 303, "The launch failed before the helper was executed.")         \
  X(LAUNCH_OUTCOME_UNKNOWN, LaunchOutcomeUnknown, 304,                                             \
    "Whether the helper was executed cannot be told.")                                             \
  X(LAUNCH_PUT_OFF, LaunchPutOff, 305,                                                             \
    "The helper has ended too often before it opened to calls; its launch is put off.")            \
  X(HELPER_HANGS, HelperHangs, 306,                                                                \
    "The helper was launched and lives, but has not opened to calls; no other is launched.")       \
  X(HELPER_OUT_OF_REACH, HelperOutOfReach, 307,                                                    \
    "The helper runs in an environment with another runtime folder.")                              \
  X(PROCESSES_UNREADABLE, ProcessesUnreadable, 308,                                                \
    "The table of processes cannot be read, so nothing is launched.")                              \
  X(LAUNCH_LOCKED, LaunchLocked, 309,                                                              \
    "Another process holds the lock of launches; nothing is launched.")                            \
  X(LAUNCH_NOT_RECORDED, LaunchNotRecorded, 310,                                                   \
    "The launch cannot be recorded; other hosts may launch the helper again.")                     \
  /* Soon after its launch. Code: exit status. */                                                  \
  X(HELPER_EXITED, HelperExited, 311,                                                              \
    "The helper ended soon after its launch; 127 often means a missing library.")                  \
  /* Soon after its launch. Code: signal. */                                                       \
  X(HELPER_KILLED, HelperKilled, 312, "The helper was killed by a signal soon after its launch.")  \
  /* Opening this process to calls. */                                                             \
  X(RUNTIME_FOLDER_UNUSABLE, RuntimeFolderUnusable, 400,                                           \
    "The runtime folder cannot be used: no calls go out or come in.")                              \
  X(OWN_IDENTIFIER_MISSING, OwnIdentifierMissing, 401,                                             \
    "This process has no CFBundleIdentifier, so it takes no calls.")                               \
  X(ENDPOINT_NOT_OPENED, EndpointNotOpened, 402,                                                   \
    "The endpoint cannot be opened, so this process takes no calls.")                              \
  X(ENDPOINT_TAKEN, EndpointTaken, 403,                                                            \
    "Another process has opened under this identifier since and takes the calls.")                 \
  X(ENDPOINT_LOST, EndpointLost, 404, "The endpoint's file is gone; it is made again.")            \
  X(OWN_RECORD_NOT_WRITTEN, OwnRecordNotWritten, 405,                                              \
    "The record of this process cannot be written; its bundle alone identifies it.")               \
  X(RUNTIME_FILE_NOT_REMOVED, RuntimeFileNotRemoved, 406,                                          \
    "The file cannot be removed; it is cleared as stale later.")                                   \
  X(ACCEPTING_PAUSED, AcceptingPaused, 407,                                                        \
    "This process is out of descriptors and takes no calls for a moment.")                         \
  /* Sending a call. Subject: the identifier that it is sent to. */                                \
  X(TARGET_MISSING, TargetMissing, 500,                                                            \
    "The call names no application; the host's \"Helper Bundle indentifiter\" may be missing.")    \
  X(TARGET_NOT_RUNNING, TargetNotRunning, 501, "No application of this identifier takes calls.")   \
  X(TARGET_NOT_PERMITTED, TargetNotPermitted, 502,                                                 \
    "The application or the runtime folder belongs to another user.")                              \
  X(TARGET_BUSY, TargetBusy, 503, "The application's queue of calls stayed full.")                 \
  X(NO_RESOURCES_TO_SEND, NoResourcesToSend, 504,                                                  \
    "There is no memory or no descriptor left to send with.")                                      \
  X(CALL_TOO_LARGE, CallTooLarge, 505, "The call is larger than can be carried.")                  \
  X(CONNECTION_LOST, ConnectionLost, 506, "The application went away during the exchange.")        \
  X(REPLY_MALFORMED, ReplyMalformed, 507, "The application's answer is malformed.")                \
  X(REPLY_LATE, ReplyLate, 508, "The application has not answered in time.")                       \
  X(CALLER_NOT_IDENTIFIED, CallerNotIdentified, 509,                                               \
    "The application cannot identify this process and does not serve it.")                         \
  X(CALL_NOT_HANDLED, CallNotHandled, 510, "The application has no handler for calls.")            \
  /* Code: the receiver's status. */                                                               \
  X(CALL_REFUSED, CallRefused, 511, "The application has refused the call.")                       \
  X(MUTUAL_WAIT, MutualWait, 512,                                                                  \
    "The application waits for an answer of this process, so it cannot answer.")                   \
  X(VERSION_UNSUPPORTED, VersionUnsupported, 513,                                                  \
    "The application serves no version of the wire format that this process knows.")               \
  X(CALL_NOT_BUILT, CallNotBuilt, 514, "The call is malformed.")                                   \
  X(OWN_PROGRAM_UNREADABLE, OwnProgramUnreadable, 515,                                             \
    "This process cannot open its own program, by which it is identified.")                        \
  /* Taking a call. */                                                                             \
  X(CALL_OF_ANOTHER_USER, CallOfAnotherUser, 600,                                                  \
    "A process of another user has connected and is refused.")                                     \
  /* Code: the process that cannot be looked at. */                                                \
  X(CALLER_UNKNOWN, CallerUnknown, 601,                                                            \
    "The caller cannot be identified, so its call is not carried out.")                            \
  /* Code: the process, which is no application. */                                                \
  X(CALLER_WITHOUT_IDENTIFIER, CallerWithoutIdentifier, 602,                                       \
    "The caller runs from no bundle, so its call is not carried out.")                             \
  /* Code: the process that sent it. */                                                            \
  X(PACKET_MALFORMED, PacketMalformed, 603, "The packet is malformed and is dropped.")             \
  X(PACKET_UNSUPPORTED, PacketUnsupported, 604,                                                    \
    "The packet is of a version that this process does not serve.")                                \
  X(CALLER_SILENT, CallerSilent, 605,                                                              \
    "The caller has connected and sent nothing; the connection is closed.")                        \
  X(REPLY_NOT_SENT, ReplyNotSent, 606, "The answer cannot be sent to its caller.")                 \
  /* Subject: the class; detail: the selector. */                                                  \
  X(CLASS_UNKNOWN, ClassUnknown, 607, "No such class is registered.")                              \
  /* Subject: the class; detail: the selector. */                                                  \
  X(CLASS_TAKES_NO_CALLS, ClassTakesNoCalls, 608, "Objects of this class take no calls.")          \
  /* Subject: the class; detail: the selector. */                                                  \
  X(SELECTOR_UNKNOWN, SelectorUnknown, 609, "The class has no such method.")                       \
  X(CALL_INCOMPLETE, CallIncomplete, 610, "The call names no class or no selector.")               \
  /* Subject: the class; detail: the selector. */                                                  \
  X(CALL_THREW, CallThrew, 611, "The call threw an exception; its result is nil.")                 \
  X(EVENT_NOT_HANDLED, EventNotHandled, 612, "There is no handler for events of this kind.")       \
  X(UPGRADE_NOTICE_IGNORED, UpgradeNoticeIgnored, 613,                                             \
    "The delegate still owes an answer; the notice is answered \"ignore\".")                       \
  /* Subject: the selector that no delegate takes. */                                              \
  X(NO_DELEGATE, NoDelegate, 614, "There is no delegate that takes it, so it is dropped.")         \
  /* Settings files and folders of the host. */                                                    \
  /* Subject: the folder without a property list. */                                               \
  X(SWITCH_FILE_MISSING, SwitchFileMissing, 700,                                                   \
    "The folder holds no property list, so the switch is not written.")                            \
  X(SETTINGS_NOT_WRITTEN, SettingsNotWritten, 701,                                                 \
    "The file cannot be written; its old content stays.")                                          \
  /* Subject: the file; only Info.plist is written. */                                             \
  X(STRING_TABLE_MISSING, StringTableMissing, 702,                                                 \
    "There is no readable string table, so only Info.plist is written.")                           \
  X(UNFINISHED_WRITE, UnfinishedWrite, 703,                                                        \
    "A process died while it wrote the file; the copy that it left is read.")                      \
  X(RECOVERY_COPY_LEFT, RecoveryCopyLeft, 704,                                                     \
    "The copy of a write cannot be removed; the next reader does so.")                             \
  X(DATA_FOLDER_NOT_MADE, DataFolderNotMade, 705, "The folder for usage data cannot be made.")     \
  /* Subject: a path that is not absolute. */                                                      \
  X(DATA_FOLDER_REFUSED, DataFolderRefused, 706,                                                   \
    "The path is not absolute, so no folder for usage data is made.")                              \
  /* User defaults. */                                                                             \
  X(DEFAULTS_NOT_WRITTEN, DefaultsNotWritten, 800,                                                 \
    "The user defaults cannot be written; they stay pending.")                                     \
  /* Subject: where the unreadable file is kept. */                                                \
  X(DEFAULTS_DAMAGED, DefaultsDamaged, 801,                                                        \
    "The user defaults were unreadable and are kept aside.")                                       \
  /* Anything. */                                                                                  \
  /* Subject: the text of the exception. */                                                        \
  X(OPERATION_ABANDONED, OperationAbandoned, 900, "The operation was abandoned on an exception.")

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
