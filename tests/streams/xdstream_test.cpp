// The checked streams: header, items, the exceptions and their exact messages, copies.
#include "kbase/streams/XdStream.h"

#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <memory>

#include "kbase/streams/ExMain.h"
#include "kbase/streams/XdrStream.h"
#include "kbase/text/UtCString.h"
#include "xdr_test_util.h"

namespace {

using xdr_test::TempFile;

UtCString U(const std::string& s) {
    return UtCString(s.c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8);
}

// Runs f and returns the message of the exception of type E it throws ("" when none).
template <typename E>
std::string MessageOf(const std::function<void()>& f) {
    try {
        f();
    } catch (const E& e) {
        return e.what();
    }
    return "";
}

TEST(XdStream, HeaderAndItemsRoundTrip) {
    TempFile file("checked.xdr");
    {
        XdStdio out;
        out.SetFileType(7);
        out.SetMajorVers(2);
        out.SetMinorVers(3);
        out.SetSubVers('b');
        out.SetHow(XD_HOW_UTFILE);
        out.Open(U(file.path()), U("w"));
        EXPECT_EQ(out.Tell(), static_cast<int64_t>(kXdMagicSize));
        out << 'x' << static_cast<unsigned char>(200) << static_cast<short>(-2)
            << static_cast<unsigned short>(65535) << -3L << 4000000000UL << INT_MIN << UINT_MAX
            << 1.5f << 2.25 << "text"
            << "";
        ASSERT_TRUE(out.Flush());
    }
    XdStdio in(U(file.path()), U("r"));
    EXPECT_EQ(in.fileType(), 7);
    EXPECT_EQ(in.majorVers(), 2);
    EXPECT_EQ(in.minorVers(), 3);
    EXPECT_EQ(in.subVers(), 'b');
    EXPECT_EQ(in.how(), XD_HOW_UTFILE);
    char c = 0;
    unsigned char uc = 0;
    short s = 0;
    unsigned short us = 0;
    long l = 0;
    unsigned long ul = 0;
    int i = 0;
    unsigned int ui = 0;
    float f = 0;
    double d = 0;
    char buffer[XdIStream::kMaxText + 1];
    char* allocated = nullptr;
    in >> c >> uc >> s >> us >> l >> ul >> i >> ui >> f >> d >> buffer >> &allocated;
    EXPECT_EQ(c, 'x');
    EXPECT_EQ(uc, 200);
    EXPECT_EQ(s, -2);
    EXPECT_EQ(us, 65535);
    EXPECT_EQ(l, -3);
    EXPECT_EQ(ul, 4000000000UL);
    EXPECT_EQ(i, INT_MIN);
    EXPECT_EQ(ui, UINT_MAX);
    EXPECT_EQ(f, 1.5f);
    EXPECT_EQ(d, 2.25);
    EXPECT_STREQ(buffer, "text");
    ASSERT_NE(allocated, nullptr);
    EXPECT_STREQ(allocated, "");
    UtFreeMemory(allocated);
}

// Without a header the data is read from where the file stood, with file type 0 and how 0.
TEST(XdStream, HeaderlessFileIsReadFromWhereItWas) {
    TempFile file("headerless.xdr");
    {
        XdrEnStream raw(U(file.path()));
        raw << 11 << 22 << 33 << 44 << 55;  // 20 bytes: longer than a header, but not one
    }
    {
        XdStdio in;
        in.SetFileType(9);
        in.SetHow(XD_HOW_FD);
        in.Open(U(file.path()), U("r"));
        EXPECT_EQ(in.fileType(), 0);
        EXPECT_EQ(in.how(), 0);
        EXPECT_EQ(in.Tell(), 0);
        int a = 0, b = 0;
        in >> a >> b;
        EXPECT_EQ(a * 100 + b, 1122);
    }
    FILE* f = UtFileOpen(file.c_str(), "rb");
    ASSERT_NE(f, nullptr);
    char skip[8];
    ASSERT_EQ(std::fread(skip, 1, 8, f), 8u);
    XdIStream in;
    EXPECT_EQ(in.Open(f, "r"), 0);
    EXPECT_EQ(in.Tell(), 8) << "back where the caller left the file";
    int v = 0;
    in >> v;
    EXPECT_EQ(v, 33);
    EXPECT_NE(MessageOf<kbase::ExRead>([&] { in >> v >> v >> v; }), "");
    UtFileClose(f);
}

// Every input operator on exhausted data throws ExRead with its module, line and text.
TEST(XdStream, EveryFailingReadThrowsItsExactMessage) {
    TempFile file("empty.xdr");
    file.Write({});
    FILE* f = UtFileOpen(file.c_str(), "rb");
    ASSERT_NE(f, nullptr);
    XdIStream in;
    ASSERT_EQ(in.Open(f, "r"), 0);
    char c;
    unsigned char uc;
    short s;
    unsigned short us;
    long l;
    unsigned long ul;
    int i;
    unsigned int ui;
    float fl;
    double d;
    char buffer[16];
    char* text = nullptr;
    const struct {
        std::function<void()> read;
        const char* message;
    } cases[] = {
        {[&] { in >> c; }, "in file \"XdIStream\" at line 118: XdIStream::operator >>/xdr_char"},
        {[&] { in >> uc; }, "in file \"XdIStream\" at line 134: XdIStream::operator >>/xdr_u_char"},
        {[&] { in >> s; }, "in file \"XdIStream\" at line 150: XdIStream::operator >>/xdr_short"},
        {[&] { in >> us; },
         "in file \"XdIStream\" at line 166: XdIStream::operator >>/xdr_u_short"},
        {[&] { in >> l; }, "in file \"XdIStream\" at line 182: XdIStream::operator >>/xdr_long"},
        {[&] { in >> ul; }, "in file \"XdIStream\" at line 198: XdIStream::operator >>/xdr_u_long"},
        {[&] { in >> i; }, "in file \"XdIStream\" at line 215: XdIStream::operator >>/xdr_int"},
        {[&] { in >> ui; }, "in file \"XdIStream\" at line 233: XdIStream::operator >>/xdr_u_int"},
        {[&] { in >> fl; }, "in file \"XdIStream\" at line 250: XdIStream::operator >>/xdr_float"},
        {[&] { in >> d; }, "in file \"XdIStream\" at line 266: XdIStream::operator >>/xdr_double"},
        {[&] { in >> buffer; },
         "in file \"XdIStream\" at line 283: XdIStream::operator >>/xdr_opaque"},
        {[&] { in >> &text; },
         "in file \"XdIStream\" at line 301: XdIStream::operator >>/xdr_opaque"},
    };
    for (const auto& c2 : cases) {
        EXPECT_EQ(MessageOf<kbase::ExRead>(c2.read), c2.message);
        EXPECT_EQ(MessageOf<kbase::ExMain>(c2.read), c2.message) << "an ExRead is an ExMain";
    }
    UtFileClose(f);
}

// Every output operator on a stream without a working handle throws ExWrite.
TEST(XdStream, EveryFailingWriteThrowsItsExactMessage) {
    XdOStream out;  // never opened
    const struct {
        std::function<void()> write;
        const char* message;
    } cases[] = {
        {[&] { out << 'c'; }, "in file \"XdOStream\" at line 113: XdOStream::operator <</xdr_char"},
        {[&] { out << static_cast<unsigned char>(1); },
         "in file \"XdOStream\" at line 129: XdOStream::operator <</xdr_u_char"},
        {[&] { out << static_cast<short>(1); },
         "in file \"XdOStream\" at line 145: XdOStream::operator <</xdr_short"},
        {[&] { out << static_cast<unsigned short>(1); },
         "in file \"XdOStream\" at line 161: XdOStream::operator <</xdr_u_short"},
        {[&] { out << 1L; }, "in file \"XdOStream\" at line 177: XdOStream::operator <</xdr_long"},
        {[&] { out << 1UL; },
         "in file \"XdOStream\" at line 193: XdOStream::operator <</xdr_u_long"},
        {[&] { out << 1; }, "in file \"XdOStream\" at line 210: XdOStream::operator <</xdr_int"},
        {[&] { out << 1U; }, "in file \"XdOStream\" at line 227: XdOStream::operator <</xdr_u_int"},
        {[&] { out << 1.0f; },
         "in file \"XdOStream\" at line 243: XdOStream::operator <</xdr_float"},
        {[&] { out << 1.0; },
         "in file \"XdOStream\" at line 259: XdOStream::operator <</xdr_u_float"},
        {[&] { out << "t"; },
         "in file \"XdOStream\" at line 277: XdOStream::operator <</xdr_STRING"},
    };
    for (const auto& c : cases) EXPECT_EQ(MessageOf<kbase::ExWrite>(c.write), c.message);
    // A long that its 32-bit item cannot hold is a failed write, not a silently cut value.
#if LONG_MAX > INT32_MAX  // not on Windows, where long has 32 bits
    TempFile file("wide.xdr");
    XdStdio wide(U(file.path()), U("w"));
    EXPECT_EQ(MessageOf<kbase::ExWrite>([&] { wide << (1L << 40); }),
              "in file \"XdOStream\" at line 177: XdOStream::operator <</xdr_long");
#endif
}

// A full disk shows when the stream is opened, since the header goes to the file at once; a
// stream that carries on regardless fails at its first item.
TEST(XdStream, AFullDiskFailsAtOpenAndAtTheFirstItem) {
    FILE* f = UtFileOpen("/dev/full", "wb");
    if (f == nullptr) GTEST_SKIP() << "no /dev/full here";
    try {
        XdStdio byName(U("/dev/full"), U("w"));
        ADD_FAILURE() << "no exception";
    } catch (const kbase::ExOpen& e) {
        EXPECT_EQ(std::string(e.what()),
                  "in file \"XdStdio\" at line 42:  Error opening file \"/dev/full\"");
        EXPECT_EQ(e.code(), kXdMagicIoError);
    }
    for (unsigned char how : {XD_HOW_STDIO, XD_HOW_FD, XD_HOW_UTFILE}) {
        XdOStream out;
        out.SetHow(how);
        EXPECT_EQ(out.Open(f, "w"), kXdMagicIoError) << int{how};
        EXPECT_EQ(MessageOf<kbase::ExWrite>([&] { out << 1.0; }),
                  "in file \"XdOStream\" at line 259: XdOStream::operator <</xdr_u_float")
            << int{how};
        EXPECT_FALSE(out.Flush());
        std::clearerr(f);
    }
    UtFileClose(f);
}

TEST(XdStream, TextIntoTheCallersBufferIsLimitedTo65535Bytes) {
    TempFile file("long_text.xdr");
    const std::string fits(65535, 'f');
    const std::string tooLong(65536, 'L');
    {
        XdStdio out(U(file.path()), U("w"));
        out << fits.c_str() << tooLong.c_str() << "after";
    }
    XdStdio in(U(file.path()), U("r"));
    std::vector<char> buffer(XdIStream::kMaxText + 1, '#');
    in >> buffer.data();
    EXPECT_EQ(std::string(buffer.data()), fits);
    buffer[0] = '#';
    EXPECT_EQ(MessageOf<kbase::ExRead>([&] { in >> buffer.data(); }),
              "in file \"XdIStream\" at line 283: XdIStream::operator >>/xdr_opaque");
    EXPECT_EQ(buffer[0], '#') << "nothing stored";
    EXPECT_EQ(MessageOf<kbase::ExRead>([&] { in >> static_cast<char*>(nullptr); }),
              "in file \"XdIStream\" at line 283: XdIStream::operator >>/xdr_opaque");
    // The allocating form has no such limit.
    XdStdio again(U(file.path()), U("r"));
    char* text = nullptr;
    again >> &text;
    UtFreeMemory(text);
    again >> &text;
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(std::strlen(text), tooLong.size());
    UtFreeMemory(text);
}

TEST(XdStream, OpeningByNameThrowsExMemOrExOpenWithTheirMessages) {
    // The location prefix ends in a space and the text adds another one.
    EXPECT_EQ(MessageOf<kbase::ExMem>([] { XdStdio s(U("/nonexistent-kbase/f.xdr"), U("r")); }),
              "in file \"XdStdio\" at line 34:  Cannot open file \"/nonexistent-kbase/f.xdr\", "
              "mode \"r\"");
    TempFile file("readonly.xdr");
    file.Write({1, 2, 3, 4});
    // glibc opens "rw" for reading only, so the header cannot be written.
    try {
        XdStdio s(U(file.path()), U("rw"));
        ADD_FAILURE() << "no exception";
    } catch (const kbase::ExOpen& e) {
        EXPECT_EQ(std::string(e.what()),
                  "in file \"XdStdio\" at line 42:  Error opening file \"" + file.path() + "\"");
        EXPECT_EQ(e.code(), kXdMagicIoError);
    }
    EXPECT_EQ(file.Bytes(), (std::vector<unsigned char>{1, 2, 3, 4}));

    // The caller's read-only FILE: Open reports the header's failure as its result.
    FILE* f = UtFileOpen(file.c_str(), "rb");
    ASSERT_NE(f, nullptr);
    XdOStream out;
    EXPECT_EQ(out.Open(f, "w"), kXdMagicIoError);
    EXPECT_EQ(out.Open(nullptr, "w"), +XdStream::kNoHandle);
    UtFileClose(f);
}

// Dup and copies: a new handle at the original's position on the same file; XdStdio copies
// share the file object, which closes with the last of them.
TEST(XdStream, DupAndCopiesContinueTheSameFile) {
    TempFile file("dup.xdr");
    {
        std::unique_ptr<UtOStream> dup;
        {
            XdStdio out;
            out.SetHow(XD_HOW_FD);
            out.Open(U(file.path()), U("w"));
            out << 1 << 2;
            dup.reset(static_cast<XdOStream&>(out).Dup());
            ASSERT_NE(dup, nullptr);
        }
        *dup << 3;  // the original is gone; the copy holds the file
    }
    XdStdio in(U(file.path()), U("r"));
    EXPECT_EQ(in.how(), XD_HOW_FD);
    int a = 0;
    in >> a;
    XdIStream copy(in);
    int b = 0, c = 0;
    copy >> b >> c;
    EXPECT_EQ(a * 100 + b * 10 + c, 123);
    std::unique_ptr<UtIStream> dup(static_cast<XdIStream&>(in).Dup());
    int again = 0;
    *dup >> again;
    EXPECT_EQ(again, 2) << "the copy starts at the original's position";
    XdStdio assigned;
    assigned = in;
    EXPECT_EQ(assigned.fileType(), in.fileType());
    assigned >> again;
    EXPECT_EQ(again, 2);
}

}  // namespace
