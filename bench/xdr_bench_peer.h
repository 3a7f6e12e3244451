// libtirpc's xdrstdio as the benchmark peer. Its own translation unit: rpc/xdr.h and
// basert/xdr.h both define the ONC enumeration xdr_op.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tirpc_peer {

// Each writes the values through xdrstdio to a new file at path, then reads them back through
// xdrstdio into out (sized like in). False when an item failed.
bool Ints(const char* path, const std::vector<int>& in, std::vector<int>& out);
bool Doubles(const char* path, const std::vector<double>& in, std::vector<double>& out);
// Records of an int, a double and a text; the texts read back are freed after their length
// is added to *lengths.
bool Mixed(const char* path, const std::vector<int>& ints, const std::vector<double>& doubles,
           const std::vector<std::string>& texts, int64_t* lengths);

}  // namespace tirpc_peer
