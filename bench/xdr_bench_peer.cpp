#include <rpc/xdr.h>

#include <cstdlib>
#include <cstring>

#include "xdr_bench_peer.h"

namespace tirpc_peer {

namespace {

// Runs write(x) on a new file and read(x) on it again.
template <typename Write, typename Read>
bool WriteThenRead(const char* path, Write write, Read read) {
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

int64_t Ints(const char* path, int n) {
    int64_t sum = 0;
    const bool ok = WriteThenRead(
        path,
        [n](XDR* x) {
            for (int i = 0; i < n; ++i) {
                int v = static_cast<int>(static_cast<unsigned>(i) * 2654435761u);
                if (!xdr_int(x, &v)) return false;
            }
            return true;
        },
        [n, &sum](XDR* x) {
            for (int i = 0; i < n; ++i) {
                int v;
                if (!xdr_int(x, &v)) return false;
                sum += v;
            }
            return true;
        });
    return ok ? sum : -1;
}

double Doubles(const char* path, int n) {
    double sum = 0;
    const bool ok = WriteThenRead(
        path,
        [n](XDR* x) {
            for (int i = 0; i < n; ++i) {
                double v = i * 0.5;
                if (!xdr_double(x, &v)) return false;
            }
            return true;
        },
        [n, &sum](XDR* x) {
            for (int i = 0; i < n; ++i) {
                double v;
                if (!xdr_double(x, &v)) return false;
                sum += v;
            }
            return true;
        });
    return ok ? sum : -1;
}

int64_t Mixed(const char* path, int n, const std::vector<std::string>& texts) {
    int64_t sum = 0;
    const bool ok = WriteThenRead(
        path,
        [&](XDR* x) {
            for (int i = 0; i < n; ++i) {
                int v = i;
                double d = i * 0.25;
                char* s = const_cast<char*>(texts[static_cast<size_t>(i) % texts.size()].c_str());
                if (!xdr_int(x, &v) || !xdr_double(x, &d) || !xdr_string(x, &s, ~0u)) return false;
            }
            return true;
        },
        [&](XDR* x) {
            for (int i = 0; i < n; ++i) {
                int v;
                double d;
                char* s = nullptr;
                if (!xdr_int(x, &v) || !xdr_double(x, &d) || !xdr_string(x, &s, ~0u)) return false;
                sum += v + static_cast<int64_t>(d) + static_cast<int64_t>(std::strlen(s));
                std::free(s);
            }
            return true;
        });
    return ok ? sum : -1;
}

}  // namespace tirpc_peer
