#include <ClientComm/TQHPTypes.h>
#include <ClientComm/platform/bundle.h>

#include <cstdio>

// Says which bundle it runs from; its own copy of the library tells.
int main() { std::puts(clientcomm::Bundle::mainBundle().bundlePath().c_str()); }
