#pragma once

/// Has SIGTERM and SIGINT end the loop, also when they arrive before it runs. The first thing that
/// a program does.
void take_signals(void);

/// Runs the library's event loop until `end_loop` is called or SIGTERM or SIGINT arrives.
/// @param after_each_turn called with `context` when calls have been carried out; may be NULL.
/// @return the exit status: 0, or 1 when the loop could not be run.
int run_loop(int descriptor, void (*after_each_turn)(void* context), void* context);

/// Ends the loop after the current turn.
void end_loop(void);
