// Helpers of the XDR tests: temporary files and our codecs driven by the oracle's item list.
#pragma once

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "basert/files.h"
#include "basert/memory.h"
#include "basert/xdr.h"
#include "support/temp_file.h"
#include "test_support.h"
#include "tirpc_oracle.h"

namespace xdr_test {

using kbase_test::TempFile;
using tirpc_oracle::Item;
using tirpc_oracle::Kind;

// The read end of a pipe as a stream (whose size nobody knows), fed the bytes by a thread.
class PipeStream {
  public:
    explicit PipeStream(const std::vector<unsigned char>& bytes) {
        int fds[2];
        if (kbase_test::MakePipe(fds) != 0) return;
        file_ = kbase_test::OpenDescriptor(fds[0], "rb");
        writer_ = std::thread([fds, &bytes] {
            kbase_test::WriteAll(fds[1], bytes.data(), bytes.size());
            kbase_test::CloseDescriptor(fds[1]);
        });
    }
    ~PipeStream() {
        if (file_ != nullptr)
            std::fclose(file_);  // the tests read all that exceeds a pipe's buffer
        if (writer_.joinable()) writer_.join();
    }
    PipeStream(const PipeStream&) = delete;
    PipeStream& operator=(const PipeStream&) = delete;
    FILE* file() const { return file_; }

  private:
    FILE* file_ = nullptr;
    std::thread writer_;
};

// One item through our codec in the handle's direction (the value is overwritten on decode).
inline int CodeOurs(XD_XDR_STRUCT* x, Item& item) {
    switch (item.kind) {
        case Kind::Int: {
            int v = static_cast<int>(item.i);
            if (!Xdr_INT(x, &v)) return 0;
            item.i = v;
            return 1;
        }
        case Kind::UInt: {
            unsigned long v = item.u;
            if (!Xdr_ULONG(x, &v)) return 0;
            item.u = v;
            return 1;
        }
        case Kind::Hyper: {
            long long v = item.i;
            if (!Xdr_LONG64(x, &v)) return 0;
            item.i = v;
            return 1;
        }
        case Kind::UHyper: {
            unsigned long long v = item.u;
            if (!Xdr_ULONG64(x, &v)) return 0;
            item.u = v;
            return 1;
        }
        case Kind::Float:
            return Xdr_FLOAT(x, &item.f);
        case Kind::Double:
            return Xdr_REAL(x, &item.d);
        case Kind::Short: {
            short v = static_cast<short>(item.i);
            if (!Xdr_SSHORT(x, &v)) return 0;
            item.i = v;
            return 1;
        }
        case Kind::UShort: {
            unsigned short v = static_cast<unsigned short>(item.u);
            if (!Xdr_USHORT(x, &v)) return 0;
            item.u = v;
            return 1;
        }
        case Kind::Char: {
            char v = static_cast<char>(item.i);
            if (!Xdr_CHAR(x, &v)) return 0;
            item.i = static_cast<signed char>(v);
            return 1;
        }
        case Kind::UChar: {
            unsigned char v = static_cast<unsigned char>(item.u);
            if (!Xdr_UBYTE(x, &v)) return 0;
            item.u = v;
            return 1;
        }
        case Kind::String: {
            if (x->x_op == XDR_ENCODE) {
                char* p = const_cast<char*>(item.s.c_str());
                return Xdr_A_STRING(x, &p);
            }
            char* p = nullptr;
            if (!Xdr_A_STRING(x, &p)) return 0;
            item.s = p;
            UtFreeMemory(p);
            return 1;
        }
    }
    return 0;
}

// Whether two items hold the same value, floats compared by their bits (NaN payloads, -0).
inline bool SameItem(const Item& a, const Item& b) {
    if (a.kind != b.kind) return false;
    switch (a.kind) {
        case Kind::Float:
            return std::memcmp(&a.f, &b.f, sizeof a.f) == 0;
        case Kind::Double:
            return std::memcmp(&a.d, &b.d, sizeof a.d) == 0;
        case Kind::String:
            return a.s == b.s;
        case Kind::UInt:
        case Kind::UHyper:
        case Kind::UShort:
        case Kind::UChar:
            return a.u == b.u;
        default:
            return a.i == b.i;
    }
}

// The items with their values cleared, ready to be decoded into.
inline std::vector<Item> Blank(const std::vector<Item>& items) {
    std::vector<Item> out;
    for (const Item& item : items) out.push_back(Item{item.kind});
    return out;
}

}  // namespace xdr_test
