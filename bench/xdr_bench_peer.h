// libtirpc's xdrstdio as the benchmark peer. Its own translation unit: rpc/xdr.h and
// basert/xdr.h both define the ONC enumeration xdr_op.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace tirpc_peer {

// Each writes n items through xdrstdio to a new file at path, reads them back through xdrstdio
// and returns a checksum of what was read (-1 when an item failed).
int64_t Ints(const char* path, int n);
double Doubles(const char* path, int n);
// Records of an int, a double and texts[i % texts.size()].
int64_t Mixed(const char* path, int n, const std::vector<std::string>& texts);

}  // namespace tirpc_peer
