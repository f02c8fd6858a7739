#pragma once

namespace clientcomm {

/// Ends a debug build, with a message, unless the calling thread owns the library: the thread that
/// came here first. The library's objects and caches have no locks. A release build checks nothing.
#ifdef NDEBUG
inline void requireOwnerThread() noexcept {}
#else
void requireOwnerThread() noexcept;
#endif

}  // namespace clientcomm
