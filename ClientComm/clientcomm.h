#pragma once

/// @file
/// The library for programs in C (C99), and in languages that call C. docs/c-interface.md has
/// complete programs.
///
/// - All functions are for one thread: that of the first call. On another they return
///   CLIENTCOMM_WRONG_THREAD, nil or 0 and do nothing, except `clientcomm_status_text`.
/// - No exception leaves a function. Each may be called from inside a call-back.
/// - What a function gives out as a handle (a pointer to a type without a definition) belongs to
///   the caller, who releases it by the function `clientcomm_…_release` of its type. A handle is
///   not an address and never the same again: its use after the release has the outcome
///   CLIENTCOMM_STALE_HANDLE, nil or 0.
/// - A `clientcomm_text` that a function gives out belongs to the handle that it was taken from.
/// - Where a function fails, what it should give out is NULL, nil, -1 or unchanged.

#include "ClientComm/c/async.h"
#include "ClientComm/c/diagnostics.h"
#include "ClientComm/c/host.h"
#include "ClientComm/c/loop.h"
#include "ClientComm/c/processes.h"
#include "ClientComm/c/receiver.h"
#include "ClientComm/c/sender.h"
#include "ClientComm/c/status_code.h"
#include "ClientComm/c/string_handle.h"
#include "ClientComm/c/upgrade.h"
