#pragma once

/// Makes the host side's classes callable by name in this process. Called when the first of them is
/// made, so that a process which only links the receiving half, as a helper does, has none of them.
void registerHostClasses();
