// XdrEnStream / XdrDeStream: every operator, opening by name and from a FILE*, copies.
#include "kbase/streams/XdrStream.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cmath>

#include "kbase/object_store/ObObject.h"
#include "kbase/streams/XdStream.h"
#include "kbase/text/UtCString.h"
#include "test_support.h"
#include "xdr_test_util.h"

namespace {

using xdr_test::TempFile;

template <typename Stream, typename T>
concept Writable = requires(Stream& s, T v) {
    s << v;
};
template <typename Stream, typename T>
concept Readable = requires(Stream& s, T& v) {
    s >> v;
};

// Objects have no wire form yet: an object pointer must not travel as the raw address it would
// be taken for through void*.
class DerivedObject : public ObObject {};
static_assert(!Writable<XdrEnStream, _ObObject*>);
static_assert(!Writable<XdrEnStream, const _ObObject*>);
static_assert(!Writable<XdrEnStream, ObObject*>);
static_assert(!Writable<XdrEnStream, const ObObject*>);
static_assert(!Writable<XdrEnStream, DerivedObject*>);
static_assert(!Readable<XdrDeStream, _ObObject*>);
static_assert(!Readable<XdrDeStream, ObObject*>);
static_assert(!Writable<XdOStream, _ObObject*>);
static_assert(!Readable<XdIStream, _ObObject*>);
// Texts have none either; other pointers still go as pointers.
static_assert(!Writable<XdrEnStream, UtCString>);
static_assert(!Readable<XdrDeStream, UtCString>);
static_assert(Writable<XdrEnStream, void*>);
static_assert(Writable<XdrEnStream, int*>);
static_assert(Readable<XdrDeStream, void*>);

struct Record {
    int i = 0;
    double d = 0;
    float f = 0;
    long l = 0;
    unsigned long ul = 0;
    unsigned long long u64 = 0;
    short s = 0;
    unsigned short us = 0;
    char c = 0;
    unsigned char uc = 0;
    std::string text;
    RPT3H h{};
    IPT ip{};
    RPT r{};
    FPT3 f3{};
    RPT3 r3{};
    UT_MAT44 m{};
    void* p = nullptr;
    XdrFilePos pos{};
};

Record Sample() {
    Record r;
    r.i = INT_MIN;
    r.d = -0.0;
    r.f = NAN;
    r.l = -7;
    r.ul = UINT32_MAX;
    r.u64 = UINT64_MAX;
    r.s = SHRT_MIN;
    r.us = USHRT_MAX;
    r.c = '\xE9';
    r.uc = 255;
    r.text = std::string("with\0nul", 8);
    r.h = {1, 2, 3, 4};
    r.ip = {-5, 6};
    r.r = {7.5, -8.5};
    r.f3 = {1.25f, 2.5f, 3.75f};
    r.r3 = {9, 10, 11};
    for (int k = 0; k < 16; ++k) r.m[k / 4][k % 4] = k;
    r.p = &r;
    r.pos = XdrFilePos{1ull << 40};
    return r;
}

void ExpectSame(const Record& a, const Record& b) {
    EXPECT_EQ(a.i, b.i);
    EXPECT_TRUE(std::signbit(b.d) && b.d == 0);
    EXPECT_TRUE(std::isnan(b.f));
    EXPECT_EQ(a.l, b.l);
    EXPECT_EQ(a.ul, b.ul);
    EXPECT_EQ(a.u64, b.u64);
    EXPECT_EQ(a.s, b.s);
    EXPECT_EQ(a.us, b.us);
    EXPECT_EQ(a.c, b.c);
    EXPECT_EQ(a.uc, b.uc);
    EXPECT_EQ(a.text, b.text) << "NUL bytes of a std::string travel too";
    EXPECT_EQ(std::memcmp(&a.h, &b.h, sizeof a.h), 0);
    EXPECT_EQ(a.ip.x, b.ip.x);
    EXPECT_EQ(a.ip.y, b.ip.y);
    EXPECT_EQ(std::memcmp(&a.r, &b.r, sizeof a.r), 0);
    EXPECT_EQ(std::memcmp(&a.f3, &b.f3, sizeof a.f3), 0);
    EXPECT_EQ(std::memcmp(&a.r3, &b.r3, sizeof a.r3), 0);
    EXPECT_EQ(std::memcmp(a.m, b.m, sizeof a.m), 0);
    EXPECT_EQ(a.p, b.p);
    EXPECT_EQ(a.pos, b.pos);
}

TEST(XdrStream, EveryOperatorRoundTripsThroughAFileOpenedByName) {
    TempFile file("ops.xdr");
    const UtCString path(file.c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8);
    const Record in = Sample();
    for (XD_HOW how : {XD_HOW_STDIO, XD_HOW_UTFILE}) {
        SCOPED_TRACE(how);
        {
            XdrEnStream out(path, how);
            ASSERT_TRUE(out.encode());
            ASSERT_FALSE(out.decode());
            EXPECT_EQ(out.errNo(), 0);
            out << in.i << in.d << in.f << in.l << in.ul << in.u64 << in.s << in.us << in.c << in.uc
                << in.text << "plain" << in.h << in.ip << in.r << in.f3 << in.r3 << in.m << in.p
                << in.pos;
            // 10 scalars (48 bytes), two texts of 8 and 5 bytes (12 each), the points and the
            // matrix (32 + 8 + 16 + 12 + 24 + 128), pointer and position (8 each).
            EXPECT_EQ(out.GetPosition().value, 48u + 24 + 220 + 16);
        }
        XdrDeStream back(path, how);
        ASSERT_TRUE(back.decode());
        Record got;
        char* plain = nullptr;
        back >> got.i >> got.d >> got.f >> got.l >> got.ul >> got.u64 >> got.s >> got.us >> got.c >>
            got.uc >> got.text >> plain >> got.h >> got.ip >> got.r >> got.f3 >> got.r3 >> got.m >>
            got.p >> got.pos;
        ExpectSame(in, got);
        ASSERT_NE(plain, nullptr);
        EXPECT_STREQ(plain, "plain");
        UtFreeMemory(plain);

        // Past the end: Xdr() says so, the operators leave their targets alone.
        int i = 5;
        EXPECT_EQ(back.Xdr(&i), 0);
        back >> i;
        EXPECT_EQ(i, 5);
        std::string text = "kept";
        back >> text;
        EXPECT_EQ(text, "kept");
        char* none = reinterpret_cast<char*>(&i);
        back >> none;
        EXPECT_EQ(none, nullptr);

        // Positions: back to the double, read it again.
        ASSERT_TRUE(back.SetPosition(XdrFilePos{4}));
        double d = 1;
        EXPECT_EQ(back.Xdr(&d), 1);
        EXPECT_TRUE(std::signbit(d));
    }
}

TEST(XdrStream, OpeningAMissingPathLeavesAnUnusableStreamAndTheErrorNumber) {
    const UtCString missing("/nonexistent-kbase-dir/none.xdr", eUtEncodingTypeUtf8,
                            eUtEncodingTypeUtf8);
    XdrDeStream in(missing);
    EXPECT_EQ(in.errNo(), ENOENT);
    EXPECT_FALSE(in.decode());
    EXPECT_EQ(static_cast<XD_XDR_STRUCT*>(in), nullptr);
    int i = 3;
    EXPECT_EQ(in.Xdr(&i), 0);
    in >> i;
    EXPECT_EQ(i, 3);
    EXPECT_EQ(in.GetPosition().value, UINT64_MAX);

    XdrEnStream out(missing);
    EXPECT_EQ(out.errNo(), ENOENT);
    EXPECT_FALSE(out.encode());
    out << 1 << "text";  // harmless
    XdrEnStream copy(out);
    EXPECT_EQ(copy.errNo(), ENOENT);
}

// On the caller's FILE the stream leaves the file open and positioned after its data.
TEST(XdrStream, CallerFileStaysOpenAndContinuesAfterTheData) {
    TempFile file("caller.xdr");
    FILE* f = UtFileOpen(file.c_str(), "w+b");
    ASSERT_NE(f, nullptr);
    {
        XdrEnStream out(f);
        out << 1 << 2.0;
    }
    std::fputs("END", f);
    std::rewind(f);
    {
        XdrDeStream in(f, XD_HOW_UTFILE);
        int i = 0;
        in >> i;
        EXPECT_EQ(i, 1);
    }
    double d = 0;
    {
        XdrDeStream in(f);
        in >> d;
    }
    EXPECT_EQ(d, 2.0);
    char end[4] = {};
    EXPECT_EQ(std::fread(end, 1, 3, f), 3u);
    EXPECT_STREQ(end, "END");
    EXPECT_EQ(UtFileClose(f), 0);
}

// A copy is a second view of the same handle: items through either land in one order, and the
// copy going away closes nothing.
TEST(XdrStream, CopiesShareTheHandle) {
    unsigned char block[64] = {};
    XD_XDR_STRUCT h{};
    ASSERT_TRUE(XdOpenMemIo(&h, block, sizeof block, XDR_ENCODE));
    XdrEnStream out(&h);
    {
        XdrEnStream copy(out);
        out << 1;
        copy << 2;
        XdrEnStream assigned(&h);
        assigned = copy;
        assigned << 3;
    }
    out << 4;
    EXPECT_EQ(Xdr_getpos(&h).value, 16u);
    XD_XDR_STRUCT r{};
    ASSERT_TRUE(XdOpenMemIo(&r, block, 16, XDR_DECODE));
    XdrDeStream in(&r);
    int a = 0, b = 0, c = 0, d = 0;
    in >> a >> b >> c >> d;
    EXPECT_EQ(a * 1000 + b * 100 + c * 10 + d, 1234);

    // A stream that opened its file and is copied, then goes first: the copy shares nothing.
    TempFile file("copy.xdr");
    const UtCString path(file.c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8);
    {
        XdrEnStream owner(path);
        XdrEnStream view(owner);
        view << 42;
    }
    XdrDeStream check(path);
    int v = 0;
    check >> v;
    EXPECT_EQ(v, 42);
}

TEST(XdrStream, StringReadsThatFailLeaveTheirTargets) {
    unsigned char block[64] = {};
    XD_XDR_STRUCT h{};
    ASSERT_TRUE(XdOpenMemIo(&h, block, sizeof block, XDR_ENCODE));
    {
        XdrEnStream out(&h);
        out << std::string("abc") << std::string() << static_cast<const char*>(nullptr);
    }
    ASSERT_TRUE(XdOpenMemIo(&h, block, sizeof block, XDR_DECODE));
    XdrDeStream in(&h);
    std::string a = "x", b = "y", c = "z";
    in >> a >> b >> c;
    EXPECT_EQ(a, "abc");
    EXPECT_EQ(b, "");
    EXPECT_EQ(c, "") << "a null text is written as the empty text";
    ASSERT_TRUE(in.SetPosition(XdrFilePos{0}));
    std::string kept = "kept";
    {
        kbase_test::FailNthAllocation fail(1);
        in >> kept;
    }
    EXPECT_EQ(kept, "kept");
}

}  // namespace
