// The memory record of UtCString: exact bytes, round trips, refusal of hostile records.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "basert/memory.h"
#include "kbase/text/UtCString.h"
#include "string_test_util.h"
#include "test_support.h"

namespace {

using kbase_test::Make;
using kbase_test::RawBytes;

std::vector<unsigned char> Record(const UtCString& s) {
    unsigned char* block = nullptr;
    uint64_t size = 0;
    EXPECT_TRUE(s.SaveToMem(&block, size));
    std::vector<unsigned char> v(block, block + size);
    UtFreeMemory(block);
    return v;
}

TEST(StringRecord, HandComputedBytes) {
    const std::vector<unsigned char> ab = Record(Make("ab", eUtEncodingTypeAnsi1252));
    const std::vector<unsigned char> expected = {
        0, 0, 0, 0, 0, 0, 0xF0, 0x3F,  // 1.0
        0xE4, 0x04, 0, 0,              // 1252
        2, 0, 0, 0,                    // length
        3, 0, 0, 0, 0, 0, 0, 0,        // byte count with terminator
        'a', 'b', 0};
    EXPECT_EQ(ab, expected);
    const std::vector<unsigned char> w = Record(UtCString(u"\u00E4", eUtEncodingTypeUtf16));
    ASSERT_EQ(w.size(), 28u);
    EXPECT_EQ(std::vector<unsigned char>(w.begin() + 8, w.end()),
              (std::vector<unsigned char>{0xB0, 0x04, 0, 0, 1, 0, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0xE4, 0, 0, 0}));
    const std::vector<unsigned char> u8 = Record(Make("\xC3\xA4", eUtEncodingTypeUtf8));
    EXPECT_EQ(std::vector<unsigned char>(u8.begin() + 8, u8.end()),
              (std::vector<unsigned char>{0xE9, 0xFD, 0, 0, 1, 0, 0, 0, 6, 0, 0, 0, 0, 0, 0, 0, 0xEF, 0xBB, 0xBF, 0xC3, 0xA4, 0}));
}

TEST(StringRecord, SeveralRecordsRoundTripInBothReaders) {
    const UtCString originals[] = {Make("Stra\xC3\x9F" "e", eUtEncodingTypeAnsi1252),
                                   Make("\xE2\x82\xAC", eUtEncodingTypeUtf8), UtCString(u"x\U0001F600", eUtEncodingTypeUtf16),
                                   UtCString(eUtEncodingTypeUtf8), UtCString(eUtEncodingTypeUtf16BE)};
    unsigned char* block = nullptr;
    uint64_t size = 0;
    for (const auto& s : originals) ASSERT_TRUE(s.SaveToMem(&block, size));
    for (int bounded = 0; bounded < 2; ++bounded) {
        uint64_t offset = 0;
        for (const auto& s : originals) {
            UtCString r(eUtEncodingTypeAnsi1252);
            ASSERT_TRUE(bounded ? r.ReadFromMem(block, size, offset) : r.ReadFromMem(block, offset));
            EXPECT_EQ(RawBytes(r), RawBytes(s));
            EXPECT_EQ(r.encodingType(), s.encodingType());
            EXPECT_EQ(r.GetLength(), s.GetLength());
            EXPECT_EQ(r.hash(), s.hash());
        }
        EXPECT_EQ(offset, size);
    }
    UtFreeMemory(block);
}

TEST(StringRecord, BoundedReaderRefusesHostileRecords) {
    std::vector<unsigned char> good = Record(Make("abc", eUtEncodingTypeAnsi1252));
    auto refuses = [](std::vector<unsigned char> rec, const char* why) {
        UtCString s = Make("keep", eUtEncodingTypeUtf8);
        uint64_t offset = 0;
        EXPECT_FALSE(s.ReadFromMem(rec.data(), rec.size(), offset)) << why;
        EXPECT_EQ(offset, 0u) << why;
        EXPECT_EQ(kbase_test::U8(s), "keep") << why;
    };
    refuses(std::vector<unsigned char>(good.begin(), good.end() - 1), "text cut short");
    refuses(std::vector<unsigned char>(good.begin(), good.begin() + 20), "header cut short");
    auto huge = good;
    huge[23] = 0x7F;  // byte count near 2^63
    refuses(huge, "byte count past the block");
    auto unterminated = good;
    unterminated.at(good.size() - 1) = 'd';
    refuses(unterminated, "no terminator");
    auto lying = good;
    lying[12] = 9;  // length 9 for a three-byte text
    refuses(lying, "length disagrees with the text");
    auto utf16odd = Record(UtCString(u"ab", eUtEncodingTypeUtf16));
    utf16odd[16] = 5;
    utf16odd.pop_back();
    refuses(utf16odd, "odd UTF-16 byte count");
    auto systemDefault = good;
    systemDefault[8] = 0x00;
    systemDefault[9] = 0x01;  // 256
    refuses(systemDefault, "encoding 256 is never stored");
    auto noMark = Record(Make("ab", eUtEncodingTypeUtf8));
    noMark[24] = 'x';
    refuses(noMark, "UTF-8 without its mark");
    UtCString s;
    uint64_t offset = 0;
    EXPECT_FALSE(s.ReadFromMem(nullptr, offset));
    EXPECT_FALSE(s.ReadFromMem(good.data(), good.size(), offset = good.size() + 1));
}

TEST(StringRecord, AllocationFailureKeepsBlockAndString) {
    unsigned char* block = nullptr;
    uint64_t size = 0;
    const UtCString s = Make("abc", eUtEncodingTypeUtf16);
    ASSERT_TRUE(s.SaveToMem(&block, size));
    unsigned char* const before = block;
    const uint64_t sizeBefore = size;
    {
        kbase_test::FailNthAllocation fail(1);
        EXPECT_FALSE(s.SaveToMem(&block, size));
    }
    EXPECT_EQ(block, before);
    EXPECT_EQ(size, sizeBefore);
    UtCString r = Make("old", eUtEncodingTypeAnsi1252);
    uint64_t offset = 0;
    {
        kbase_test::FailNthAllocation fail(1);
        EXPECT_FALSE(r.ReadFromMem(block, size, offset));
    }
    EXPECT_EQ(offset, 0u);
    EXPECT_EQ(kbase_test::U8(r), "old");
    UtFreeMemory(block);
}

TEST(StringMemCopy, RawBytesRoundTrip) {
    const UtCString s = Make("\xC3\xA4x", eUtEncodingTypeUtf8);
    void* copy = nullptr;
    eUtEncodingType e = eUtEncodingTypeAnsi1252;
    EXPECT_EQ(s.GetMemCopy(&copy, &e), 7) << "mark, two code points in three bytes, terminator";
    EXPECT_EQ(e, eUtEncodingTypeUtf8);
    UtCString t(eUtEncodingTypeUtf16);
    EXPECT_TRUE(t.SetMemCopy(copy, 7, e));
    EXPECT_EQ(t.GetUtf16String(), u"\u00E4x");
    UtFreeMemory(copy);
}

}  // namespace
