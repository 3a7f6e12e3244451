#include "xdr_bench_peer.h"

#include <rpc/xdr.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tirpc_peer {

namespace {

// Runs write(x) on a new file and read(x) on it again.
template <typename Write, typename Read>
bool WriteThenRead(const char* path, Write write, Read read) {
    std::remove(path);  // a new file: truncating one makes ext4 write it out on close
    FILE* f = std::fopen(path, "wb");
    if (f == nullptr) return false;
    XDR x;
    xdrstdio_create(&x, f, XDR_ENCODE);
    const bool wrote = write(&x);
    xdr_destroy(&x);
    std::fclose(f);
    f = std::fopen(path, "rb");
    if (f == nullptr) return false;
    xdrstdio_create(&x, f, XDR_DECODE);
    const bool got = wrote && read(&x);
    xdr_destroy(&x);
    std::fclose(f);
    return got;
}

}  // namespace

bool Ints(const char* path, const std::vector<int>& in, std::vector<int>& out) {
    return WriteThenRead(
        path,
        [&](XDR* x) {
            for (int v : in) {
                if (!xdr_int(x, &v)) return false;
            }
            return true;
        },
        [&](XDR* x) {
            for (int& v : out) {
                if (!xdr_int(x, &v)) return false;
            }
            return true;
        });
}

bool Doubles(const char* path, const std::vector<double>& in, std::vector<double>& out) {
    return WriteThenRead(
        path,
        [&](XDR* x) {
            for (double v : in) {
                if (!xdr_double(x, &v)) return false;
            }
            return true;
        },
        [&](XDR* x) {
            for (double& v : out) {
                if (!xdr_double(x, &v)) return false;
            }
            return true;
        });
}

bool Mixed(const char* path, const std::vector<int>& ints, const std::vector<double>& doubles,
           const std::vector<std::string>& texts, int64_t* lengths) {
    const size_t n = ints.size();
    int64_t total = 0;
    const bool ok = WriteThenRead(
        path,
        [&](XDR* x) {
            for (size_t i = 0; i < n; ++i) {
                int v = ints[i];
                double d = doubles[i];
                char* s = const_cast<char*>(texts[i % texts.size()].c_str());
                if (!xdr_int(x, &v) || !xdr_double(x, &d) || !xdr_string(x, &s, ~0u)) return false;
            }
            return true;
        },
        [&](XDR* x) {
            for (size_t i = 0; i < n; ++i) {
                int v;
                double d;
                char* s = nullptr;
                if (!xdr_int(x, &v) || !xdr_double(x, &d) || !xdr_string(x, &s, ~0u)) return false;
                total += v + static_cast<int64_t>(d) + static_cast<int64_t>(std::strlen(s));
                std::free(s);
            }
            return true;
        });
    *lengths = total;
    return ok;
}

}  // namespace tirpc_peer
