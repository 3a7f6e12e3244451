// The runtime's XDR handles on files: buffering, positions, errors and the file header.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <random>

#include "xdr_test_util.h"

namespace {

using namespace xdr_test;

enum class Opener { Stdio, Fd, UtFile };
const char* Name(Opener o) {
    return o == Opener::Stdio ? "stdio" : o == Opener::Fd ? "fd" : "utfile";
}

int Open(XD_XDR_STRUCT* x, Opener o, FILE* f, xdr_op op) {
    switch (o) {
        case Opener::Stdio:
            return XdOpenXdrStdIo(x, f, op);
        case Opener::Fd: {
            // The caller settles stdio before using the descriptor underneath. Windows' fflush
            // drops an input stream's read-ahead but leaves the descriptor past it.
            const long pos = std::ftell(f);
            std::fflush(f);
#ifdef _WIN32
            _lseek(XdFileno(f), pos, SEEK_SET);
#else
            (void)pos;
#endif
            return XdOpenFdIo(x, XdFileno(f), op);
        }
        case Opener::UtFile:
            return XdOpenUtFileIo(x, f, op);
    }
    return 0;
}

// A stream of mixed items several buffers long, with texts that straddle buffer ends and one
// text larger than a buffer.
std::vector<Item> MixedItems(unsigned seed) {
    std::mt19937 rng(seed);
    std::vector<Item> items;
    for (int i = 0; i < 60000; ++i) {
        switch (rng() % 5) {
            case 0:
                items.push_back(Item{Kind::Int, static_cast<int32_t>(rng())});
                break;
            case 1:
                items.push_back(Item{Kind::Double, 0, 0, 0, static_cast<double>(rng()) / 7.0});
                break;
            case 2:
                items.push_back(Item{Kind::UHyper, 0, (uint64_t{rng()} << 32) | rng()});
                break;
            case 3:
                items.push_back(Item{Kind::Short, static_cast<int16_t>(rng())});
                break;
            default: {
                Item s{Kind::String};
                s.s.assign(rng() % 13, static_cast<char>('a' + rng() % 26));
                items.push_back(s);
            }
        }
    }
    Item huge{Kind::String};
    huge.s.assign(kXdBufferSize + 1000, 'H');
    items.insert(items.begin() + 30000, huge);
    return items;
}

class XdrFileKinds : public ::testing::TestWithParam<Opener> {};

// Write through the opener, compare the file with libtirpc's bytes, read back through the opener,
// then jump to remembered positions and read the items found there.
TEST_P(XdrFileKinds, WriteReadAndSeekAgreeWithLibtirpc) {
    const Opener opener = GetParam();
    const std::vector<Item> items = MixedItems(7);
    std::vector<unsigned char> expected;
    ASSERT_TRUE(tirpc_oracle::Encode(items, expected));

    TempFile file(std::string("kinds_") + Name(opener));
    std::vector<uint64_t> positions;
    {
        FILE* f = UtFileOpen(file.c_str(), "wb");
        ASSERT_NE(f, nullptr);
        XD_XDR_STRUCT x{};
        ASSERT_TRUE(Open(&x, opener, f, XDR_ENCODE));
        for (Item item : items) {
            positions.push_back(Xdr_getpos(&x).value);
            ASSERT_TRUE(CodeOurs(&x, item));
        }
        EXPECT_EQ(Xdr_getpos(&x).value, expected.size());
        EXPECT_EQ(XdClose(&x), 1);
        EXPECT_EQ(UtFileClose(f), 0);
    }
    ASSERT_TRUE(file.Bytes() == expected);

    FILE* f = UtFileOpen(file.c_str(), "rb");
    ASSERT_NE(f, nullptr);
    XD_XDR_STRUCT x{};
    ASSERT_TRUE(Open(&x, opener, f, XDR_DECODE));
    std::vector<Item> decoded = Blank(items);
    for (size_t i = 0; i < decoded.size(); ++i) {
        ASSERT_TRUE(CodeOurs(&x, decoded[i])) << i;
        ASSERT_TRUE(SameItem(decoded[i], items[i])) << i;
    }
    int past = 0;
    EXPECT_FALSE(Xdr_INT(&x, &past)) << "end of the data";

    std::mt19937 rng(11);
    for (int n = 0; n < 300; ++n) {
        const size_t i = rng() % items.size();
        ASSERT_TRUE(Xdr_setpos(&x, XdrFilePos{positions[i]}));
        Item item{items[i].kind};
        ASSERT_TRUE(CodeOurs(&x, item)) << i;
        ASSERT_TRUE(SameItem(item, items[i])) << i;
        EXPECT_EQ(Xdr_getpos(&x).value,
                  i + 1 < positions.size() ? positions[i + 1] : expected.size());
    }
    XdClose(&x);
    UtFileClose(f);
}

// Closing hands the read-ahead back and writes the buffer out, so stdio continues exactly where
// the XDR data ended, in both directions.
TEST_P(XdrFileKinds, FileContinuesWhereTheHandleStopped) {
    const Opener opener = GetParam();
    TempFile file(std::string("continue_") + Name(opener));
    FILE* f = UtFileOpen(file.c_str(), "w+b");
    ASSERT_NE(f, nullptr);
    std::fputs("HEAD", f);
    XD_XDR_STRUCT x{};
    ASSERT_TRUE(Open(&x, opener, f, XDR_ENCODE));
    EXPECT_EQ(Xdr_getpos(&x).value, 4u);
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(Xdr_INT(&x, &i));
    ASSERT_EQ(XdClose(&x), 1);
    std::fputs("TAIL", f);
    std::fflush(f);
    EXPECT_EQ(file.Bytes(),
              (std::vector<unsigned char>{'H', 'E', 'A', 'D', 0, 0, 0,   0,   0,   0,
                                          0,   1,   0,   0,   0, 2, 'T', 'A', 'I', 'L'}));

    std::rewind(f);
    char head[5] = {};
    ASSERT_EQ(std::fread(head, 1, 4, f), 4u);
    ASSERT_TRUE(Open(&x, opener, f, XDR_DECODE));
    int v = -1;
    ASSERT_TRUE(Xdr_INT(&x, &v));
    EXPECT_EQ(v, 0);
    ASSERT_TRUE(Xdr_INT(&x, &v));
    EXPECT_EQ(v, 1);
    XdClose(&x);
    unsigned char rest[8] = {};
    ASSERT_EQ(std::fread(rest, 1, 8, f), 8u) << "the handle read ahead; closing gave it back";
    EXPECT_EQ(std::memcmp(rest, "\0\0\0\x02TAIL", 8), 0);
    UtFileClose(f);
}

// A full disk: the failure shows at the item that needs the buffer written out, and sticks.
TEST_P(XdrFileKinds, WriteErrorsStick) {
    FILE* f = UtFileOpen("/dev/full", "wb");
    if (f == nullptr) GTEST_SKIP() << "no /dev/full here";
    XD_XDR_STRUCT x{};
    ASSERT_TRUE(Open(&x, GetParam(), f, XDR_ENCODE));
    double d = 1.0;
    int written = 0;
    while (Xdr_REAL(&x, &d) && written < 1000000) ++written;
    EXPECT_GT(written, 0);
    EXPECT_LE(written, static_cast<int>(kXdBufferSize / 8))
        << "no more than one buffer is accepted";
    int i = 0;
    EXPECT_FALSE(Xdr_INT(&x, &i)) << "the error sticks";
    EXPECT_EQ(XdClose(&x), 0);
    UtFileClose(f);
}

// The header passes through every buffer on its way, so a full disk refuses it at once.
TEST_P(XdrFileKinds, AFullDiskRefusesTheHeader) {
    FILE* f = UtFileOpen("/dev/full", "wb");
    if (f == nullptr) GTEST_SKIP() << "no /dev/full here";
    XD_XDR_STRUCT x{};
    ASSERT_TRUE(Open(&x, GetParam(), f, XDR_ENCODE));
    EXPECT_EQ(OsMagicWrite(&x, 1, 1, 1, '-', 1), kXdMagicIoError);
    EXPECT_EQ(XdClose(&x), 0);
    UtFileClose(f);
}

INSTANTIATE_TEST_SUITE_P(Openers, XdrFileKinds,
                         ::testing::Values(Opener::Stdio, Opener::Fd, Opener::UtFile),
                         [](const ::testing::TestParamInfo<Opener>& p) {
                             return std::string(Name(p.param));
                         });

TEST(XdrFile, ReadingPastTheEndConsumesNothing) {
    TempFile file("short.xdr");
    file.Write({0, 0, 0, 7, 0, 0});
    FILE* f = UtFileOpen(file.c_str(), "rb");
    ASSERT_NE(f, nullptr);
    XD_XDR_STRUCT x{};
    ASSERT_TRUE(XdOpenXdrStdIo(&x, f, XDR_DECODE));
    double d = 0;
    EXPECT_FALSE(Xdr_REAL(&x, &d));
    EXPECT_EQ(Xdr_getpos(&x).value, 0u);
    int i = 0;
    EXPECT_TRUE(Xdr_INT(&x, &i));
    EXPECT_EQ(i, 7);
    EXPECT_FALSE(Xdr_INT(&x, &i));
    EXPECT_EQ(Xdr_getpos(&x).value, 4u);
    XdClose(&x);
    UtFileClose(f);
}

// A pipe cannot seek, but a step back within what the handle has read ahead needs no seek.
TEST(XdrFile, PipeStepsBackWithinTheReadAhead) {
    int fds[2];
    ASSERT_EQ(kbase_test::MakePipe(fds), 0);
    const unsigned char data[] = {0, 0, 0, 5, 0, 0, 0, 6};
    ASSERT_TRUE(kbase_test::WriteAll(fds[1], data, sizeof data));
    kbase_test::CloseDescriptor(fds[1]);
    XD_XDR_STRUCT x{};
    ASSERT_TRUE(XdOpenFdIo(&x, fds[0], XDR_DECODE));
    unsigned char type = 0, major = 0, minor = 0, how = 0;
    char sub = 0;
    EXPECT_EQ(OsMagicRead(&x, &type, &major, &minor, &sub, &how), kXdMagicNoHeader);
    ASSERT_TRUE(Xdr_setpos(&x, XdrFilePos{0}));
    int a = 0, b = 0;
    EXPECT_TRUE(Xdr_INT(&x, &a) && Xdr_INT(&x, &b));
    EXPECT_EQ(a * 10 + b, 56);
    EXPECT_FALSE(Xdr_setpos(&x, XdrFilePos{100})) << "outside the read-ahead a pipe cannot go";
    XdClose(&x);
    kbase_test::CloseDescriptor(fds[0]);
}

TEST(XdrFile, HeaderRoundTripsAndAnyChangedByteIsNoHeader) {
    unsigned char block[32] = {};
    XD_XDR_STRUCT x{};
    ASSERT_TRUE(XdOpenMemIo(&x, block, sizeof block, XDR_ENCODE));
    ASSERT_EQ(OsMagicWrite(&x, 200, 3, 14, 'c', XD_HOW_UTFILE), kXdMagicOk);
    EXPECT_EQ(Xdr_getpos(&x).value, kXdMagicSize);
    EXPECT_EQ(std::memcmp(block,
                          "KBXD\x01\xC8\x03\x0E"
                          "c\x04\0\0",
                          12),
              0);

    unsigned char type = 0, major = 0, minor = 0, how = 0;
    char sub = 0;
    ASSERT_TRUE(XdOpenMemIo(&x, block, sizeof block, XDR_DECODE));
    ASSERT_EQ(OsMagicRead(&x, &type, &major, &minor, &sub, &how), kXdMagicOk);
    EXPECT_EQ(type, 200);
    EXPECT_EQ(major, 3);
    EXPECT_EQ(minor, 14);
    EXPECT_EQ(sub, 'c');
    EXPECT_EQ(how, XD_HOW_UTFILE);

    for (size_t i = 0; i < kXdMagicSize; ++i) {
        for (unsigned char flip : {0x01, 0x80}) {
            unsigned char copy[32];
            std::memcpy(copy, block, sizeof copy);
            copy[i] ^= flip;
            ASSERT_TRUE(XdOpenMemIo(&x, copy, sizeof copy, XDR_DECODE));
            type = 99;
            EXPECT_EQ(OsMagicRead(&x, &type, &major, &minor, &sub, &how), kXdMagicNoHeader)
                << "byte " << i << " flipped by " << int{flip};
            EXPECT_EQ(type, 99) << "nothing stored";
        }
    }
    ASSERT_TRUE(XdOpenMemIo(&x, block, 15, XDR_DECODE));
    EXPECT_EQ(OsMagicRead(&x, &type, &major, &minor, &sub, &how), kXdMagicNoHeader) << "too short";
    EXPECT_EQ(OsMagicRead(nullptr, &type, &major, &minor, &sub, &how), kXdMagicIoError);
    ASSERT_TRUE(XdOpenMemIo(&x, block, sizeof block, XDR_DECODE));
    EXPECT_EQ(OsMagicWrite(&x, 1, 1, 1, '-', 1), kXdMagicIoError) << "wrong direction";

    // A file that refuses writes is noticed when the header is written.
    TempFile file("readonly.xdr");
    file.Write({});
    FILE* f = UtFileOpen(file.c_str(), "rb");
    ASSERT_NE(f, nullptr);
    ASSERT_TRUE(XdOpenXdrStdIo(&x, f, XDR_ENCODE));
    EXPECT_EQ(OsMagicWrite(&x, 1, 1, 1, '-', 1), kXdMagicIoError);
    XdClose(&x);
    UtFileClose(f);
}

// Whether writing at offset beyond leaves a hole instead of taking the disk space.
bool MakesSparseFiles(const std::string& path) {
#ifdef _WIN32
    (void)path;
    return false;  // a Windows file is sparse only when asked to be
#else
    FILE* f = UtFileOpen(path.c_str(), "wb");
    if (f == nullptr) return false;
    const bool wrote = fseeko(f, 64 << 20, SEEK_SET) == 0 && std::fputc('x', f) != EOF;
    UtFileClose(f);
    struct stat st;
    const bool sparse = wrote && ::stat(path.c_str(), &st) == 0 && st.st_blocks * 512 < (1 << 20);
    std::remove(path.c_str());
    return sparse;
#endif
}

TEST(XdrFile, PositionsBeyondFourGiB) {
    TempFile file("big.xdr");
    char dir[512];
    UtGetTempDir(dir, sizeof dir);
    const uint64_t needed = (uint64_t{5} << 30) + (uint64_t{1} << 20);
    std::error_code error;
    const bool roomy = std::filesystem::space(dir, error).available > needed && !error;
    if (!MakesSparseFiles(file.path()) && !roomy) {
        GTEST_SKIP() << "the temporary folder neither makes sparse files nor has 5 GiB free";
    }
    const XdrFilePos far{(uint64_t{5} << 30) + 12};
    for (Opener opener : {Opener::Stdio, Opener::Fd, Opener::UtFile}) {
        SCOPED_TRACE(Name(opener));
        FILE* f = UtFileOpen(file.c_str(), "wb");
        ASSERT_NE(f, nullptr);
        XD_XDR_STRUCT x{};
        ASSERT_TRUE(Open(&x, opener, f, XDR_ENCODE));
        int first = 17;
        ASSERT_TRUE(Xdr_INT(&x, &first));
        ASSERT_TRUE(Xdr_setpos(&x, far));
        XdrFilePos here = Xdr_getpos(&x);
        EXPECT_EQ(here, far);
        int marker = -99;
        ASSERT_TRUE(Xdr_INT(&x, &marker) && Xdr_F_POS(&x, &here));
        XdrFilePos back{4};
        ASSERT_TRUE(Xdr_setpos(&x, back) && Xdr_F_POS(&x, &here));
        ASSERT_EQ(XdClose(&x), 1);
        ASSERT_EQ(UtFileClose(f), 0);

        f = UtFileOpen(file.c_str(), "rb");
        ASSERT_NE(f, nullptr);
        ASSERT_TRUE(Open(&x, opener, f, XDR_DECODE));
        int v = 0;
        XdrFilePos pos{};
        ASSERT_TRUE(Xdr_INT(&x, &v) && Xdr_F_POS(&x, &pos));
        EXPECT_EQ(v, 17);
        EXPECT_EQ(pos, far) << "a position above 4 GiB written as an item";
        ASSERT_TRUE(Xdr_setpos(&x, pos));
        XdrFilePos again{};
        ASSERT_TRUE(Xdr_INT(&x, &v) && Xdr_F_POS(&x, &again));
        EXPECT_EQ(v, -99);
        EXPECT_EQ(again, far);
        EXPECT_EQ(Xdr_getpos(&x).value, far.value + 12);
        XdClose(&x);
        UtFileClose(f);
    }
}

}  // namespace
