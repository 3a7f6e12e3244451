// The runtime's item codecs against libtirpc, and their refusals.
#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>

#include "test_support.h"
#include "xdr_test_util.h"

namespace {

using namespace xdr_test;

float FloatBits(uint32_t bits) {
    float f;
    std::memcpy(&f, &bits, 4);
    return f;
}
double DoubleBits(uint64_t bits) {
    double d;
    std::memcpy(&d, &bits, 8);
    return d;
}

// Boundary values of every standard type our codecs write.
std::vector<Item> BoundaryItems() {
    std::vector<Item> v;
    for (int64_t i : {int64_t{INT_MIN}, int64_t{-1}, int64_t{0}, int64_t{1}, int64_t{INT_MAX},
                      int64_t{0x12345678}}) {
        v.push_back(Item{Kind::Int, i});
    }
    for (uint64_t u : {uint64_t{0}, uint64_t{1}, uint64_t{0x80000000u}, uint64_t{UINT_MAX}}) {
        v.push_back(Item{Kind::UInt, 0, u});
    }
    for (int64_t i : {INT64_MIN, int64_t{-1}, int64_t{0x0102030405060708}, INT64_MAX}) {
        v.push_back(Item{Kind::Hyper, i});
    }
    for (uint64_t u : {uint64_t{0}, uint64_t{0x8000000000000000u}, UINT64_MAX}) {
        v.push_back(Item{Kind::UHyper, 0, u});
    }
    for (float f :
         {0.0f, -0.0f, 1.5f, -FLT_MAX, FLT_MIN, FloatBits(1) /* denormal */,
          std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(),
          std::numeric_limits<float>::quiet_NaN(), FloatBits(0x7FA00001u) /* payload */}) {
        Item item{Kind::Float};
        item.f = f;
        v.push_back(item);
    }
    for (double d :
         {0.0, -0.0, 3.141592653589793, DBL_MAX, DBL_MIN, DoubleBits(1),
          std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
          std::numeric_limits<double>::quiet_NaN(), DoubleBits(0xFFF4000000000001u)}) {
        Item item{Kind::Double};
        item.d = d;
        v.push_back(item);
    }
    for (int64_t i : {int64_t{SHRT_MIN}, int64_t{-1}, int64_t{SHRT_MAX}})
        v.push_back(Item{Kind::Short, i});
    for (uint64_t u : {uint64_t{0}, uint64_t{USHRT_MAX}}) v.push_back(Item{Kind::UShort, 0, u});
    for (int64_t i : {int64_t{-128}, int64_t{-23} /* 0xE9 */, int64_t{'A'}, int64_t{127}}) {
        v.push_back(Item{Kind::Char, i});
    }
    for (uint64_t u : {uint64_t{0}, uint64_t{255}}) v.push_back(Item{Kind::UChar, 0, u});
    for (const std::string& s : {std::string(), std::string("a"), std::string("abc"),
                                 std::string("abcd"), std::string("abcde"),
                                 std::string("Gr\xC3\xBC\xC3\x9F"
                                             "e"),
                                 std::string(65535, 'x'), std::string(65536, 'y')}) {
        Item item{Kind::String};
        item.s = s;
        v.push_back(item);
    }
    return v;
}

std::string Describe(const Item& item) {
    return "kind " + std::to_string(static_cast<int>(item.kind)) + " i=" + std::to_string(item.i) +
           " u=" + std::to_string(item.u) + " size=" + std::to_string(item.s.size());
}

// Encodes with our codecs into a memory block of exactly the oracle's size.
bool EncodeOurs(std::vector<Item> items, size_t size, std::vector<unsigned char>& bytes) {
    bytes.assign(size, 0xAA);
    XD_XDR_STRUCT x{};
    if (!XdOpenMemIo(&x, bytes.data(), bytes.size(), XDR_ENCODE)) return false;
    for (Item& item : items) {
        if (!CodeOurs(&x, item)) return false;
    }
    return Xdr_getpos(&x).value == size;
}

bool DecodeOurs(std::vector<unsigned char> bytes, std::vector<Item>& items) {
    XD_XDR_STRUCT x{};
    if (!XdOpenMemIo(&x, bytes.data(), bytes.size(), XDR_DECODE)) return false;
    for (Item& item : items) {
        if (!CodeOurs(&x, item)) return false;
    }
    return Xdr_getpos(&x).value == bytes.size();
}

TEST(XdrCodec, EveryStandardTypeMatchesLibtirpcBothWays) {
    const std::vector<Item> all = BoundaryItems();
    for (const Item& item : all) {
        SCOPED_TRACE(Describe(item));
        std::vector<unsigned char> theirs;
        std::vector<unsigned char> ours;
        ASSERT_TRUE(tirpc_oracle::Encode({item}, theirs));
        ASSERT_TRUE(EncodeOurs({item}, theirs.size(), ours));
        EXPECT_EQ(ours, theirs);

        std::vector<Item> decoded = Blank({item});
        ASSERT_TRUE(DecodeOurs(theirs, decoded)) << "our decoder on libtirpc's bytes";
        EXPECT_TRUE(SameItem(decoded[0], item));
        decoded = Blank({item});
        ASSERT_TRUE(tirpc_oracle::Decode(ours, decoded)) << "libtirpc on our bytes";
        EXPECT_TRUE(SameItem(decoded[0], item));
    }
    // And as one stream, so that items follow each other without gaps.
    std::vector<unsigned char> theirs;
    std::vector<unsigned char> ours;
    ASSERT_TRUE(tirpc_oracle::Encode(all, theirs));
    ASSERT_TRUE(EncodeOurs(all, theirs.size(), ours));
    EXPECT_TRUE(ours == theirs);
}

TEST(XdrCodec, GeometryAndAddressesTravelAsTheirComponents) {
    RPT3H h{1.0, -2.5, 1e300, 0.25};
    RPT r{-0.0, 7.0};
    RPT3 r3{1.0, 2.0, 3.0};
    IPT ip{INT_MIN, INT_MAX};
    FPT3 f3{1.5f, -1.5f, FLT_MAX};
    UT_MAT44 m;
    for (int i = 0; i < 16; ++i) m[i / 4][i % 4] = i * 1.25 - 3;
    void* ptr = reinterpret_cast<void*>(uintptr_t{0x7FFF12345678});
    XdrFilePos pos{0x123456789ABCDEFull};

    std::vector<Item> expected;
    auto dbl = [&](double d) { expected.push_back(Item{Kind::Double, 0, 0, 0, d}); };
    dbl(h.x), dbl(h.y), dbl(h.z), dbl(h.w), dbl(r.x), dbl(r.y), dbl(r3.x), dbl(r3.y), dbl(r3.z);
    expected.push_back(Item{Kind::Int, ip.x});
    expected.push_back(Item{Kind::Int, ip.y});
    for (float f : {f3.x, f3.y, f3.z}) expected.push_back(Item{Kind::Float, 0, 0, f});
    for (int i = 0; i < 16; ++i) dbl(m[i / 4][i % 4]);
    expected.push_back(Item{Kind::UHyper, 0, 0x7FFF12345678u});
    expected.push_back(Item{Kind::UHyper, 0, pos.value});
    std::vector<unsigned char> theirs;
    ASSERT_TRUE(tirpc_oracle::Encode(expected, theirs));

    std::vector<unsigned char> ours(theirs.size());
    XD_XDR_STRUCT x{};
    ASSERT_TRUE(XdOpenMemIo(&x, ours.data(), ours.size(), XDR_ENCODE));
    ASSERT_TRUE(Xdr_RPT3H(&x, &h) && Xdr_RPT(&x, &r) && Xdr_RPT3(&x, &r3) && Xdr_IPT(&x, &ip) &&
                Xdr_FPT3(&x, &f3) && Xdr_UT_MAT44(&x, m) && Xdr_POINTER(&x, &ptr) &&
                Xdr_F_POS(&x, &pos));
    EXPECT_EQ(ours, theirs);

    RPT3H h2{};
    RPT r2{};
    RPT3 r32{};
    IPT ip2{};
    FPT3 f32{};
    UT_MAT44 m2{};
    void* ptr2 = nullptr;
    XdrFilePos pos2{};
    ASSERT_TRUE(XdOpenMemIo(&x, theirs.data(), theirs.size(), XDR_DECODE));
    ASSERT_TRUE(Xdr_RPT3H(&x, &h2) && Xdr_RPT(&x, &r2) && Xdr_RPT3(&x, &r32) && Xdr_IPT(&x, &ip2) &&
                Xdr_FPT3(&x, &f32) && Xdr_UT_MAT44(&x, m2) && Xdr_POINTER(&x, &ptr2) &&
                Xdr_F_POS(&x, &pos2));
    EXPECT_EQ(std::memcmp(&h, &h2, sizeof h), 0);
    EXPECT_EQ(std::memcmp(&r, &r2, sizeof r), 0);
    EXPECT_EQ(std::memcmp(&r3, &r32, sizeof r3), 0);
    EXPECT_EQ(ip2.x, ip.x);
    EXPECT_EQ(ip2.y, ip.y);
    EXPECT_EQ(std::memcmp(&f3, &f32, sizeof f3), 0);
    EXPECT_EQ(std::memcmp(m, m2, sizeof m), 0);
    EXPECT_EQ(ptr2, ptr);
    EXPECT_EQ(pos2, pos);
}

// A 32-bit unit on the wire decoded as each narrow type: which values the type can hold.
TEST(XdrCodec, DecodingRefusesUnitsOutsideTheTargetType) {
    const struct {
        int32_t unit;
        bool asShort, asUShort, asChar, asUChar;
    } cases[] = {
        {0, true, true, true, true},           {-1, true, false, true, false},
        {127, true, true, true, true},         {-128, true, false, true, false},
        {-129, true, false, false, false},     {255, true, true, true, true},
        {256, true, true, false, false},       {32767, true, true, false, false},
        {-32768, true, false, false, false},   {32768, false, true, false, false},
        {65535, false, true, false, false},    {65536, false, false, false, false},
        {INT_MIN, false, false, false, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.unit);
        std::vector<unsigned char> bytes;
        ASSERT_TRUE(tirpc_oracle::Encode({Item{Kind::Int, c.unit}}, bytes));
        XD_XDR_STRUCT x{};
        short s = 0;
        unsigned short us = 0;
        char ch = 0;
        unsigned char uc = 0;
        ASSERT_TRUE(XdOpenMemIo(&x, bytes.data(), 4, XDR_DECODE));
        EXPECT_EQ(Xdr_SSHORT(&x, &s) != 0, c.asShort);
        ASSERT_TRUE(XdOpenMemIo(&x, bytes.data(), 4, XDR_DECODE));
        EXPECT_EQ(Xdr_USHORT(&x, &us) != 0, c.asUShort);
        ASSERT_TRUE(XdOpenMemIo(&x, bytes.data(), 4, XDR_DECODE));
        EXPECT_EQ(Xdr_CHAR(&x, &ch) != 0, c.asChar);
        if (c.asChar) {
            EXPECT_EQ(static_cast<unsigned char>(ch), static_cast<unsigned char>(c.unit & 0xFF));
        }
        ASSERT_TRUE(XdOpenMemIo(&x, bytes.data(), 4, XDR_DECODE));
        EXPECT_EQ(Xdr_UBYTE(&x, &uc) != 0, c.asUChar);
    }
    // long is wider than its 32-bit wire form on LP64: values that do not fit are refused.
    unsigned char block[8];
    XD_XDR_STRUCT x{};
    ASSERT_TRUE(XdOpenMemIo(&x, block, sizeof block, XDR_ENCODE));
#if LONG_MAX > INT32_MAX  // not on Windows, where long has 32 bits
    long big = static_cast<long>(INT32_MAX) + 1;
    long small = static_cast<long>(INT32_MIN) - 1;
    unsigned long ubig = static_cast<unsigned long>(UINT32_MAX) + 1;
    EXPECT_FALSE(Xdr_SLONG(&x, &big));
    EXPECT_FALSE(Xdr_SLONG(&x, &small));
    EXPECT_FALSE(Xdr_ULONG(&x, &ubig));
    EXPECT_EQ(Xdr_getpos(&x).value, 0u) << "a refused item writes nothing";
#endif
    long lo = INT32_MIN;
    unsigned long hi = UINT32_MAX;
    EXPECT_TRUE(Xdr_SLONG(&x, &lo) && Xdr_ULONG(&x, &hi));
}

TEST(XdrCodec, StringLimitsAndLengthsThatTheDataCannotHold) {
    // Xdr_STRING's limit on both sides, and decoding into the caller's buffer.
    std::vector<unsigned char> block(64, 0);
    XD_XDR_STRUCT x{};
    ASSERT_TRUE(XdOpenMemIo(&x, block.data(), block.size(), XDR_ENCODE));
    char text[] = "hello";
    char* p = text;
    EXPECT_FALSE(Xdr_STRING(&x, &p, 4));
    EXPECT_EQ(Xdr_getpos(&x).value, 0u);
    EXPECT_TRUE(Xdr_STRING(&x, &p, 5));
    ASSERT_TRUE(XdOpenMemIo(&x, block.data(), block.size(), XDR_DECODE));
    char out[8];
    std::memset(out, '#', sizeof out);
    char* q = out;
    EXPECT_FALSE(Xdr_STRING(&x, &q, 4));
    EXPECT_EQ(out[0], '#') << "refused before its bytes are stored";
    ASSERT_TRUE(Xdr_setpos(&x, XdrFilePos{0}));
    EXPECT_TRUE(Xdr_STRING(&x, &q, 5));
    EXPECT_STREQ(out, "hello");
    EXPECT_EQ(Xdr_getpos(&x).value, 12u) << "length, 5 bytes, 3 of padding";

    // A length claiming more than the data holds: refused without asking for memory, for a
    // memory block, a regular file, and a descriptor of a regular file.
    std::vector<unsigned char> hostile;
    ASSERT_TRUE(
        tirpc_oracle::Encode({Item{Kind::UInt, 0, 0x7FFFFFF0u}, Item{Kind::Int, 42}}, hostile));
    TempFile file("hostile.xdr");
    file.Write(hostile);
    FILE* f = UtFileOpen(file.c_str(), "rb");
    ASSERT_NE(f, nullptr);
    for (int kind = 0; kind < 3; ++kind) {
        SCOPED_TRACE(kind);
        std::rewind(f);
        if (kind == 0) {
            ASSERT_TRUE(XdOpenMemIo(&x, hostile.data(), hostile.size(), XDR_DECODE));
        } else if (kind == 1) {
            ASSERT_TRUE(XdOpenXdrStdIo(&x, f, XDR_DECODE));
        } else {
            ASSERT_TRUE(XdOpenFdIo(&x, XdFileno(f), XDR_DECODE));
        }
        const uint64_t requests = UtMemRequestCount();
        char* s = reinterpret_cast<char*>(1);
        EXPECT_FALSE(Xdr_A_STRING(&x, &s));
        EXPECT_EQ(s, nullptr);
        EXPECT_EQ(UtMemRequestCount(), requests)
            << "no allocation for a length the data cannot hold";
        char small[8];
        char* sp = small;
        EXPECT_FALSE(Xdr_STRING(&x, &sp, UINT_MAX));
        XdClose(&x);
    }
    UtFileClose(f);

    // Where the size is unknown (a pipe), the text is read in pieces: one piece is asked for, and
    // its read fails.
    {
        PipeStream pipe(hostile);
        ASSERT_NE(pipe.file(), nullptr);
        ASSERT_TRUE(XdOpenXdrStdIo(&x, pipe.file(), XDR_DECODE));
        const uint64_t requests = UtMemRequestCount();
        char* s = nullptr;
        EXPECT_FALSE(Xdr_A_STRING(&x, &s));
        EXPECT_EQ(UtMemRequestCount(), requests + 1);
        XdClose(&x);
    }

    // Text read in pieces arrives whole; XDR_FREE releases it.
    Item big{Kind::String};
    big.s.assign(kXdBufferSize + 40000, 'z');
    std::vector<unsigned char> bytes;
    ASSERT_TRUE(tirpc_oracle::Encode({big}, bytes));
    char* s = nullptr;
    {
        PipeStream pipe(bytes);
        ASSERT_TRUE(XdOpenXdrStdIo(&x, pipe.file(), XDR_DECODE));
        ASSERT_TRUE(Xdr_A_STRING(&x, &s));
        EXPECT_EQ(std::strlen(s), big.s.size());
        XdClose(&x);
    }
    XD_XDR_STRUCT freer{};
    freer.x_op = XDR_FREE;
    EXPECT_TRUE(Xdr_A_STRING(&freer, &s));
    EXPECT_EQ(s, nullptr);

    // No memory for the text: the item fails and nothing leaks.
    ASSERT_TRUE(XdOpenMemIo(&x, bytes.data(), bytes.size(), XDR_DECODE));
    {
        kbase_test::FailNthAllocation fail(1);
        EXPECT_FALSE(Xdr_A_STRING(&x, &s));
        EXPECT_EQ(s, nullptr);
    }
}

TEST(XdrCodec, ClosedAndNullHandlesFailEveryItem) {
    XD_XDR_STRUCT closed{};
    int i = 1;
    double d = 1;
    char* s = nullptr;
    EXPECT_FALSE(Xdr_INT(&closed, &i));
    EXPECT_FALSE(Xdr_REAL(&closed, &d));
    EXPECT_FALSE(Xdr_A_STRING(&closed, &s));
    EXPECT_FALSE(Xdr_INT(nullptr, &i));
    EXPECT_FALSE(Xdr_POINTER(nullptr, reinterpret_cast<void**>(&s)));
    EXPECT_EQ(Xdr_getpos(&closed).value, UINT64_MAX);
    EXPECT_FALSE(Xdr_setpos(&closed, XdrFilePos{0}));
    EXPECT_EQ(XdClose(&closed), 1);
    EXPECT_FALSE(XdOpenXdrStdIo(&closed, nullptr, XDR_DECODE));
    EXPECT_FALSE(XdOpenFdIo(&closed, -1, XDR_DECODE));
    EXPECT_FALSE(XdOpenMemIo(&closed, nullptr, 4, XDR_DECODE));
    {
        kbase_test::FailNthAllocation fail(1);
        TempFile file("nomem.xdr");
        FILE* f = UtFileOpen(file.c_str(), "wb");
        ASSERT_NE(f, nullptr);
        EXPECT_FALSE(XdOpenXdrStdIo(&closed, f, XDR_ENCODE)) << "no memory for the buffer";
        EXPECT_FALSE(Xdr_INT(&closed, &i));
        UtFileClose(f);
    }
}

}  // namespace
