// UtBitList: construction, the kept append placement, edits against a model, XDR round trips.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "basert/xdr.h"
#include "kbase/streams/XdrStream.h"
#include "kbase/text/UtBitList.h"
#include "test_support.h"

namespace {

TEST(BitList, ConstructionFillsWholeWords) {
    const struct {
        unsigned long count;
        bool value;
        unsigned long words;
    } cases[] = {{0, true, 0},  {1, true, 1},   {31, false, 1},
                 {32, true, 2}, {33, false, 2}, {64, true, 3}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.count);
        UtBitList bits(c.count, c.value);
        EXPECT_EQ(bits.count(), c.count);
        EXPECT_EQ(bits.size(), c.words);
        for (unsigned long i = 0; i < 32 * c.words; ++i) ASSERT_EQ(bits.bit(i), c.value) << i;
        EXPECT_FALSE(bits.bit(32 * c.words)) << "past the words: false, no read";
    }
    kbase_test::FailNthAllocation fail(1);
    UtBitList refused(100, true);
    EXPECT_EQ(refused.count(), 0u);
    EXPECT_EQ(refused.size(), 0u);
}

// Appending writes into the last word: when the append added a word (count 31, 63, ...), the bit
// lands one word past where bit() looks for it. Kept exactly.
TEST(BitList, AppendPlacesTheBitInTheLastWord) {
    std::mt19937 rng(3);
    std::vector<bool> values;
    UtBitList bits;
    for (int i = 0; i < 100; ++i) {
        values.push_back(rng() % 2 == 1);
        ASSERT_EQ(bits.Append(values.back()), kUtMemOk);
    }
    EXPECT_EQ(bits.count(), 100u);
    EXPECT_EQ(bits.size(), 4u);
    for (unsigned long i = 0; i < 100; ++i) {
        if (i == 31 || i == 63 || i == 95) continue;
        EXPECT_EQ(bits.bit(i), values[i]) << i;
    }
    EXPECT_FALSE(bits.bit(31)) << "never written";
    EXPECT_EQ(bits.bit(63), values[31]);
    EXPECT_EQ(bits.bit(95), values[63]);
    EXPECT_EQ(bits.bit(127), values[95]);

    // A list made with a multiple of 32 bits has its spare word: no misplacement then.
    UtBitList made(32, false);
    ASSERT_EQ(made.Append(true), kUtMemOk);
    EXPECT_TRUE(made.bit(32));
    EXPECT_EQ(made.size(), 2u);

    // No memory for the new word: the allocator's status, nothing changes.
    UtBitList full(31, true);
    {
        kbase_test::FailNthAllocation fail(1);
        EXPECT_EQ(full.Append(false), kUtMemNoMemory);
    }
    EXPECT_EQ(full.count(), 31u);
    EXPECT_EQ(full.size(), 1u);
}

// Insert and Remove at random places, against a std::vector<bool> (appends are left out: their
// placement is the kept one above).
TEST(BitList, InsertAndRemoveMatchAModel) {
    std::mt19937 rng(17);
    UtBitList bits(150, false);
    std::vector<bool> model(150, false);
    for (unsigned long i = 0; i < 150; ++i) {
        if (rng() % 3 == 0) {
            ASSERT_EQ(bits.SetBit(i, true, false), kUtMemOk);
            model[i] = true;
        }
    }
    for (int step = 0; step < 3000; ++step) {
        const unsigned long n = bits.count();
        if (n > 1 && rng() % 2 == 0) {
            const unsigned long i = rng() % n;
            bits.Remove(i);
            model.erase(model.begin() + static_cast<long>(i));
        } else {
            const unsigned long i = n == 0 ? 0 : rng() % n;  // below count: a real insert
            const bool v = rng() % 2 == 1;
            ASSERT_EQ(n == 0 ? bits.Append(v) : bits.Insert(i, v), kUtMemOk);
            model.insert(model.begin() + static_cast<long>(i), v);
        }
        ASSERT_EQ(bits.count(), model.size());
        ASSERT_GT(bits.size(), bits.count() / 32);
        for (unsigned long k = 0; k < model.size(); ++k)
            ASSERT_EQ(bits.bit(k), model[k]) << step << " " << k;
    }
    EXPECT_EQ(bits.Insert(bits.count() + 1, true), kUtMemBadArgument);
    const unsigned long before = bits.count();
    bits.Remove(before);
    EXPECT_EQ(bits.count(), before);
    ASSERT_EQ(bits.Prepend(true), kUtMemOk);
    EXPECT_TRUE(bits[0]);
}

TEST(BitList, SettersOrAndCopies) {
    UtBitList bits(10, false);
    bits.Set(3);
    bits.Toggle(4);
    bits.Toggle(3);
    bits.Reset(5);
    bits.Set(1000);  // no such word: nothing
    EXPECT_FALSE(bits.bit(3));
    EXPECT_TRUE(bits.bit(4));
    EXPECT_EQ(bits.SetBit(20, true, false), kUtMemBadArgument);
    EXPECT_EQ(bits.count(), 10u);
    ASSERT_EQ(bits.SetBit(40, true, true), kUtMemOk);
    EXPECT_EQ(bits.count(), 41u);
    EXPECT_TRUE(bits.bit(40));

    UtBitList other(70, false);
    other.Set(1);
    other.Set(69);
    UtBitList copy(bits);
    copy |= other;
    EXPECT_EQ(copy.count(), 70u);
    EXPECT_EQ(copy.size(), other.size());
    EXPECT_TRUE(copy.bit(1) && copy.bit(4) && copy.bit(40) && copy.bit(69));
    EXPECT_FALSE(bits.bit(1)) << "the copy has its own words";
    bits = copy;
    EXPECT_TRUE(bits.bit(69));
    bits.SetAll();
    EXPECT_TRUE(bits.bit(95));
    bits.ClearAll();
    EXPECT_FALSE(bits.bit(69));
    bits.RemoveAll();
    EXPECT_EQ(bits.count(), 0u);
    EXPECT_EQ(bits.size(), copy.size());
}

TEST(BitList, IteratorVisitsSetBitsAndRemoves) {
    UtBitList bits(40, false);
    for (unsigned long i : {0ul, 5ul, 31ul, 32ul, 39ul}) bits.Set(i);
    std::vector<int64_t> seen;
    UtBitListIter it(bits);
    if (it.cur()) seen.push_back(it.index());
    while (it.nextSet()) seen.push_back(it.index());
    EXPECT_EQ(seen, (std::vector<int64_t>{0, 5, 31, 32, 39}));
    EXPECT_FALSE(it.more());

    UtBitListIter rm(bits);
    for (; rm.more(); ++rm) {
        if (rm.cur()) rm.RemoveCur();
    }
    EXPECT_EQ(bits.count(), 35u);
    for (unsigned long i = 0; i < 35; ++i) EXPECT_FALSE(bits.bit(i)) << i;
    UtBitListIter last(bits);
    while (!last.last()) last.next();
    EXPECT_EQ(last.index(), 34);
}

TEST(BitList, PrintShowsCountAndBits) {
    UtBitList bits(70, false);
    bits.Set(0);
    bits.Set(65);
    FILE* f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    bits.Print(f);
    std::rewind(f);
    char text[256] = {};
    const size_t n = std::fread(text, 1, sizeof text - 1, f);
    std::fclose(f);
    EXPECT_EQ(std::string(text, n), "UtBitList: 70 bits\n1" + std::string(63, '0') + "\n010000\n");
}

// Through XDR the list comes back word for word, bits past the count included.
TEST(BitList, RoundTripsThroughXdrAndRefusesBadCounts) {
    UtBitList bits;
    for (int i = 0; i < 70; ++i) ASSERT_EQ(bits.Append(i % 3 == 0), kUtMemOk);
    std::vector<unsigned char> block(256);
    XD_XDR_STRUCT h{};
    ASSERT_TRUE(XdOpenMemIo(&h, block.data(), block.size(), XDR_ENCODE));
    {
        XdrEnStream out(&h);
        out << bits << UtBitList() << UtBitList(32, true);
    }
    EXPECT_EQ(Xdr_getpos(&h).value, 4u * (2 + 3) + 4u * 2 + 4u * (2 + 2));

    ASSERT_TRUE(XdOpenMemIo(&h, block.data(), block.size(), XDR_DECODE));
    XdrDeStream in(&h);
    UtBitList back(5, true), empty(3, true), ones;
    in >> back >> empty >> ones;
    EXPECT_EQ(back.count(), 70u);
    EXPECT_EQ(back.size(), bits.size());
    for (unsigned long i = 0; i < 32 * bits.size(); ++i) ASSERT_EQ(back.bit(i), bits.bit(i)) << i;
    EXPECT_EQ(empty.count(), 0u);
    EXPECT_EQ(empty.size(), 0u);
    EXPECT_EQ(ones.count(), 32u);
    EXPECT_TRUE(ones.bit(63));

    // Counts that contradict each other, a word count the data cannot hold, truncated words:
    // refused, the target unchanged, memory bounded by what was read.
    const struct {
        std::vector<uint32_t> units;
    } bad[] = {
        {{100, 1, 0}},                // 100 bits need 4 words
        {{32, 1, 0}},                 // a multiple of 32 always has its spare word
        {{10, 0x7FFFFFFF, 1, 2, 3}},  // words the data does not hold
        {{10, 2, 1}},                 // truncated
    };
    for (const auto& b : bad) {
        std::vector<unsigned char> bytes;
        for (uint32_t u : b.units) {
            for (int shift = 24; shift >= 0; shift -= 8)
                bytes.push_back(static_cast<unsigned char>(u >> shift));
        }
        ASSERT_TRUE(XdOpenMemIo(&h, bytes.data(), bytes.size(), XDR_DECODE));
        XdrDeStream hostile(&h);
        UtBitList target(7, true);
        const uint64_t requests = UtMemRequestCount();
        hostile >> target;
        EXPECT_EQ(target.count(), 7u);
        EXPECT_TRUE(target.bit(6));
        EXPECT_LE(UtMemRequestCount(), requests + 1) << "one piece at most";
    }
}

}  // namespace
