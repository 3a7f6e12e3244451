// The oracle where libtirpc does not exist: its encodings as recorded on POSIX.
#include <cstdio>

#include "tirpc_oracle.h"
#include "tirpc_recording.h"
#include "xdr_test_util.h"

namespace tirpc_oracle {

namespace {

bool SameAsRecorded(const tirpc_recording::Entry& e, const std::vector<unsigned char>& bytes) {
    return bytes.size() == e.length &&
           tirpc_recording::Digest(bytes.data(), bytes.size()) == e.digest;
}

}  // namespace

bool Encode(const std::vector<Item>& items, std::vector<unsigned char>& bytes) {
    const tirpc_recording::Entry* e = tirpc_recording::Find(tirpc_recording::KeyOf(items));
    if (e == nullptr) {
        std::fprintf(stderr,
                     "libtirpc's encoding of these items was not recorded; see "
                     "tests/streams/tirpc_recording.h\n");
        return false;
    }
    if (!e->bytes.empty()) {
        bytes = e->bytes;
        return true;
    }
    // A long encoding is recorded by its digest: our codec's bytes stand in when they match it.
    bytes.assign(e->length, 0xAA);
    XD_XDR_STRUCT x{};
    if (!XdOpenMemIo(&x, bytes.data(), bytes.size(), XDR_ENCODE)) return false;
    for (Item item : items) {
        if (!xdr_test::CodeOurs(&x, item)) return false;
    }
    return SameAsRecorded(*e, bytes);
}

// libtirpc decodes bytes into values exactly when it encodes those values into those bytes (the
// POSIX run checks both directions), so our decoder's values count when the recording says that
// they encode into these bytes.
bool Decode(const std::vector<unsigned char>& bytes, std::vector<Item>& items) {
    std::vector<unsigned char> copy(bytes);
    XD_XDR_STRUCT x{};
    if (!XdOpenMemIo(&x, copy.data(), copy.size(), XDR_DECODE)) return false;
    for (Item& item : items) {
        if (!xdr_test::CodeOurs(&x, item)) return false;
    }
    if (Xdr_getpos(&x).value != copy.size()) return false;
    const tirpc_recording::Entry* e = tirpc_recording::Find(tirpc_recording::KeyOf(items));
    return e != nullptr && SameAsRecorded(*e, bytes);
}

}  // namespace tirpc_oracle
