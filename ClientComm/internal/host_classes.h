#pragma once

class TQHPAppEventBase;

namespace clientcomm {

/// Makes the host side's classes callable by name in this process. Called when the first of them is
/// made, so that a process which only links the receiving half, as a helper does, has none of them.
void registerHostClasses();

/// Makes `proxy` the object that the helper's calls for its class reach, in place of an earlier
/// one, and the host side's classes callable. Its destruction removes it.
void registerProxy(TQHPAppEventBase& proxy);

}  // namespace clientcomm
