// libtirpc as an independent XDR reference. Kept in its own translation unit: its rpc/xdr.h and
// basert/xdr.h both define the ONC enumeration xdr_op.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tirpc_oracle {

enum class Kind { Int, UInt, Hyper, UHyper, Float, Double, Short, UShort, Char, UChar, String };

struct Item {
    Kind kind;
    int64_t i = 0;    // Int, Hyper, Short, Char
    uint64_t u = 0;   // UInt, UHyper, UShort, UChar
    float f = 0;
    double d = 0;
    std::string s;
};

// Encodes the items with xdrmem; false when libtirpc refuses one.
bool Encode(const std::vector<Item>& items, std::vector<unsigned char>& bytes);
// Decodes items of the kinds given in items (their values are overwritten); false when libtirpc
// refuses one or bytes are left over.
bool Decode(const std::vector<unsigned char>& bytes, std::vector<Item>& items);

}  // namespace tirpc_oracle
