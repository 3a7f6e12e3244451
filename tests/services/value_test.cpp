// VlValue: kinds, conversions, ownership of the text, and the stream form through an XDR file.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "basert/memory.h"
#include "kbase/services/VlValue.h"
#include "kbase/streams/ExMain.h"
#include "kbase/streams/XdStream.h"
#include "kbase/text/UtCString.h"
#include "services_test_util.h"

namespace {

TEST(Value, KindsAndReaders) {
    VlValue v;
    EXPECT_TRUE(v.IsVoid());
    EXPECT_EQ(v.GetVoid(), 0);
    struct Case {
        VlValue value;
        VlValue::eVlType type;
        double real;
        long asLong;
        bool asBool;
    };
    int x = 0;
    VlValue ptr;
    ptr.SetVptr(&x);
    VlValue voidValue;
    voidValue.SetVoid_(-7);
    const std::vector<Case> cases = {
        {VlValue(2.75), VlValue::eVlReal, 2.75, 2, true},
        {VlValue(-2.75), VlValue::eVlReal, -2.75, -2, true},
        {VlValue(1e12), VlValue::eVlReal, 1e12, 2147483647, true},
        {VlValue(std::numeric_limits<double>::quiet_NaN()), VlValue::eVlReal, 0, 0, true},
        {VlValue(5L), VlValue::eVlLong, 5, 5, true},
        {VlValue(0L), VlValue::eVlLong, 0, 0, false},
        {VlValue("text"), VlValue::eVlText, 0, 0, true},
        {VlValue(""), VlValue::eVlText, 0, 0, false},
        {voidValue, VlValue::eVlVoid, 0, -7, true},
        {ptr, VlValue::eVlVptr, 0, 0, true},
    };
    for (size_t i = 0; i < cases.size(); ++i) {
        const Case& c = cases[i];
        EXPECT_EQ(c.value.GetType(), c.type) << i;
        if (c.type == VlValue::eVlReal && std::isnan(c.value.GetReal())) continue;
        EXPECT_EQ(c.value.GetReal(), c.real) << i;
        EXPECT_EQ(c.value.GetLong(), c.asLong) << i;
        EXPECT_EQ(c.value.GetBool(), c.asBool) << i;
        EXPECT_EQ(c.value.IsText(), c.type == VlValue::eVlText) << i;
    }
    EXPECT_EQ(ptr.GetVptr(), &x);
    EXPECT_EQ(VlValue(70000L).GetShort(), static_cast<short>(70000));
    EXPECT_EQ(VlValue(1.0).GetText(), nullptr);
    EXPECT_EQ(VlValue(1.0).GetVptr(), nullptr);

    v = 3.5;
    EXPECT_TRUE(v.IsReal());
    v = 9L;
    EXPECT_TRUE(v.IsLong());
    v = "abc";
    EXPECT_STREQ(v.GetText(), "abc");
    v.SetReal();
    EXPECT_EQ(v.GetReal(), 0);
    v.SetText();
    EXPECT_STREQ(v.GetText(), "");
    v.SetText(nullptr);
    EXPECT_STREQ(v.GetText(), "");
}

TEST(Value, TheTextIsOwnedCopiedAndHandedOut) {
    VlValue a("owned");
    VlValue b(a);
    EXPECT_NE(a.GetText(), b.GetText()) << "copies own their text";
    EXPECT_EQ(a, b);
    VlValue c;
    c = a;
    c = c;
    EXPECT_STREQ(c.GetText(), "owned");
    VlValue moved(std::move(c));
    EXPECT_STREQ(moved.GetText(), "owned");
    EXPECT_TRUE(c.IsVoid());  // NOLINT: the moved-from state is part of the contract
    char* text = moved.RemoveText();
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "owned");
    UtFreeMemory(text);
    EXPECT_TRUE(moved.IsVoid());
    EXPECT_EQ(moved.RemoveText(), nullptr);
    a.Free();
    EXPECT_TRUE(a.IsVoid());
    b.Clear();
    EXPECT_TRUE(b.IsVoid());
    EXPECT_NE(VlValue(1L), VlValue(1.0));
    VlValue voidOne;
    voidOne.SetVoid_(1);
    EXPECT_NE(VlValue(1L), voidOne);
}

TEST(Value, WrittenAndReadBackThroughAnXdrFile) {
    services_test::TempDir dir("value_xdr");
    const std::string path = dir.File("values.xdr");
    VlValue voidValue;
    voidValue.SetVoid_(-3);
    int target = 0;
    VlValue ptr;
    ptr.SetVptr(&target);
    std::string longText(70000, 'x');
    const std::vector<VlValue> values = {VlValue(-0.0),
                                         VlValue(1e-300),
                                         VlValue(-2147483647L - 1),
                                         VlValue("K\xF6ln"),
                                         VlValue(""),
                                         VlValue(longText.c_str()),
                                         voidValue,
                                         ptr};
    {
        XdStdio out(UtCString(path.c_str()), UtCString("w"));
        for (const VlValue& v : values) out << v;
        ASSERT_TRUE(out.Flush());
    }
    XdStdio in(UtCString(path.c_str()), UtCString("r"));
    for (size_t i = 0; i < values.size(); ++i) {
        VlValue v(99L);
        in >> v;
        if (values[i].IsVptr()) {
            EXPECT_TRUE(v.IsVptr());
            EXPECT_EQ(v.GetVptr(), nullptr) << "an address is not carried";
        } else {
            EXPECT_EQ(v, values[i]) << i;
        }
    }
    EXPECT_TRUE(std::signbit(VlValue(-0.0).GetReal()));
    VlValue past;
    EXPECT_THROW(in >> past, kbase::ExRead) << "the end of the file";

    // An unknown kind throws and leaves the value as it was.
    const std::string bad = dir.File("bad.xdr");
    {
        XdStdio out(UtCString(bad.c_str()), UtCString("w"));
        out << static_cast<unsigned char>(9) << 1L;
        ASSERT_TRUE(out.Flush());
    }
    XdStdio badIn(UtCString(bad.c_str()), UtCString("r"));
    VlValue kept("kept");
    EXPECT_THROW(badIn >> kept, kbase::ExRead);
    EXPECT_STREQ(kept.GetText(), "kept");
}

}  // namespace
