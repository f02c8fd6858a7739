#pragma once

namespace sample {

/// Makes the helper's classes callable by hosts, each under its name on the wire. No other class of
/// the process becomes so: what is not registered cannot be called.
void registerWireClasses();

}  // namespace sample
