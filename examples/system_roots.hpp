#pragma once

#include <iosfwd>

// Loads the operating system's root certificates for each usage. Prints how many a trust store keeps, how
// many it drops, and why. Throws TrustStoreException if this system has no store of root certificates.
void printSystemRoots(std::ostream& out);
