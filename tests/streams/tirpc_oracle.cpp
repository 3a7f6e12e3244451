#include "tirpc_oracle.h"

#include <rpc/xdr.h>

#include <cstdlib>

#include "tirpc_recording.h"

namespace tirpc_oracle {

namespace {

bool Code(XDR* x, Item& item) {
    switch (item.kind) {
        case Kind::Int: {
            int v = static_cast<int>(item.i);
            if (!xdr_int(x, &v)) return false;
            item.i = v;
            return true;
        }
        case Kind::UInt: {
            u_int v = static_cast<u_int>(item.u);
            if (!xdr_u_int(x, &v)) return false;
            item.u = v;
            return true;
        }
        case Kind::Hyper: {
            quad_t v = item.i;
            if (!xdr_hyper(x, &v)) return false;
            item.i = v;
            return true;
        }
        case Kind::UHyper: {
            u_quad_t v = item.u;
            if (!xdr_u_hyper(x, &v)) return false;
            item.u = v;
            return true;
        }
        case Kind::Float:
            return xdr_float(x, &item.f);
        case Kind::Double:
            return xdr_double(x, &item.d);
        case Kind::Short: {
            short v = static_cast<short>(item.i);
            if (!xdr_short(x, &v)) return false;
            item.i = v;
            return true;
        }
        case Kind::UShort: {
            u_short v = static_cast<u_short>(item.u);
            if (!xdr_u_short(x, &v)) return false;
            item.u = v;
            return true;
        }
        case Kind::Char: {
            char v = static_cast<char>(item.i);
            if (!xdr_char(x, &v)) return false;
            item.i = static_cast<signed char>(v);
            return true;
        }
        case Kind::UChar: {
            u_char v = static_cast<u_char>(item.u);
            if (!xdr_u_char(x, &v)) return false;
            item.u = v;
            return true;
        }
        case Kind::String: {
            if (x->x_op == XDR_ENCODE) {
                char* p = const_cast<char*>(item.s.c_str());
                return xdr_string(x, &p, ~0u);
            }
            char* p = nullptr;
            if (!xdr_string(x, &p, ~0u)) return false;
            item.s = p;
            std::free(p);  // libtirpc allocates with calloc
            return true;
        }
    }
    return false;
}

size_t EncodedSize(const std::vector<Item>& items) {
    size_t n = 0;
    for (const Item& item : items) {
        const bool wide =
            item.kind == Kind::Hyper || item.kind == Kind::UHyper || item.kind == Kind::Double;
        n += item.kind == Kind::String ? 4 + (item.s.size() + 3) / 4 * 4 : (wide ? 8 : 4);
    }
    return n;
}

}  // namespace

bool Encode(const std::vector<Item>& items, std::vector<unsigned char>& bytes) {
    bytes.assign(EncodedSize(items), 0xAA);
    XDR x;
    xdrmem_create(&x, reinterpret_cast<char*>(bytes.data()), static_cast<u_int>(bytes.size()),
                  XDR_ENCODE);
    for (Item item : items) {
        if (!Code(&x, item)) return false;
    }
    // The recording that stands in for libtirpc elsewhere must hold these very bytes.
    return xdr_getpos(&x) == bytes.size() &&
           tirpc_recording::Check(tirpc_recording::KeyOf(items), bytes);
}

bool Decode(const std::vector<unsigned char>& bytes, std::vector<Item>& items) {
    std::vector<unsigned char> copy(bytes);
    XDR x;
    xdrmem_create(&x, reinterpret_cast<char*>(copy.data()), static_cast<u_int>(copy.size()),
                  XDR_DECODE);
    for (Item& item : items) {
        if (!Code(&x, item)) return false;
    }
    return xdr_getpos(&x) == copy.size();
}

}  // namespace tirpc_oracle
