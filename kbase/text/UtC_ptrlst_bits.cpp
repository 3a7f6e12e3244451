#include <algorithm>
#include <cstring>
#include <utility>

#include "basert/memory.h"
#include "kbase/streams/XdrStream.h"
#include "kbase/text/UtBitList.h"

namespace {

// Bits below position b (0..31).
uint32_t LowMask(uint32_t b) { return (uint32_t{1} << b) - 1u; }

// Words read per step when decoding: memory follows the data actually read.
constexpr uint32_t kDecodeChunkWords = 1024;

}  // namespace

UtBitList::UtBitList(unsigned long count, bool value) : words_(nullptr), wordCount_(0), bitCount_(0) {
    if (count == 0 || count > UINT32_MAX) return;
    const uint32_t words = static_cast<uint32_t>(count / 32 + 1);
    if (UtAllocMemoryBlockT(&words_, words) != kUtMemOk) return;
    std::memset(words_, value ? 0xFF : 0x00, sizeof(uint32_t) * words);
    wordCount_ = words;
    bitCount_ = static_cast<uint32_t>(count);
}

UtBitList::UtBitList(const UtBitList& other) : words_(nullptr), wordCount_(0), bitCount_(0) {
    *this = other;
}

UtBitList& UtBitList::operator=(const UtBitList& other) {
    if (this == &other) return *this;
    uint32_t* copy = nullptr;
    if (other.wordCount_ > 0) {
        if (UtAllocMemoryBlockT(&copy, other.wordCount_) != kUtMemOk) return *this;
        std::memcpy(copy, other.words_, sizeof(uint32_t) * other.wordCount_);
    }
    UtFreeMemory(words_);
    words_ = copy;
    wordCount_ = other.wordCount_;
    bitCount_ = other.bitCount_;
    return *this;
}

UtBitList& UtBitList::operator|=(const UtBitList& other) {
    if (other.wordCount_ > wordCount_ && AddWords(other.wordCount_ - wordCount_) != kUtMemOk) {
        return *this;
    }
    for (uint32_t w = 0; w < other.wordCount_; ++w) words_[w] |= other.words_[w];
    bitCount_ = std::max(bitCount_, other.bitCount_);
    return *this;
}

UtBitList::~UtBitList() { UtFreeMemory(words_); }

int UtBitList::AddWords(uint32_t n) {
    if (n > UINT32_MAX - wordCount_) return kUtMemBadArgument;
    uint32_t* grown = words_;
    const int rc = UtAllocMemoryBlockT(&grown, uint64_t{wordCount_} + n);
    if (rc != kUtMemOk) return rc;
    std::memset(grown + wordCount_, 0, sizeof(uint32_t) * n);
    words_ = grown;
    wordCount_ += n;
    return kUtMemOk;
}

void UtBitList::Swap(UtBitList& other) {
    std::swap(words_, other.words_);
    std::swap(wordCount_, other.wordCount_);
    std::swap(bitCount_, other.bitCount_);
}

void UtBitList::Set(unsigned long i) {
    if (i / 32 < wordCount_) words_[i / 32] |= uint32_t{1} << (i % 32);
}

void UtBitList::Reset(unsigned long i) {
    if (i / 32 < wordCount_) words_[i / 32] &= ~(uint32_t{1} << (i % 32));
}

void UtBitList::Toggle(unsigned long i) {
    if (i / 32 < wordCount_) words_[i / 32] ^= uint32_t{1} << (i % 32);
}

int UtBitList::SetBit(unsigned long i, bool value, bool extend) {
    if (i >= bitCount_) {
        if (!extend || i >= UINT32_MAX) return kUtMemBadArgument;
        while (bitCount_ <= i) {
            const int rc = Append(false);
            if (rc != kUtMemOk) return rc;
        }
    }
    if (value) {
        Set(i);
    } else {
        Reset(i);
    }
    return kUtMemOk;
}

void UtBitList::SetAll() {
    if (wordCount_ > 0) std::memset(words_, 0xFF, sizeof(uint32_t) * wordCount_);
}

void UtBitList::ClearAll() {
    if (wordCount_ > 0) std::memset(words_, 0, sizeof(uint32_t) * wordCount_);
}

int UtBitList::Append(bool value) {
    if (bitCount_ == UINT32_MAX) return kUtMemBadArgument;
    if ((bitCount_ + 1) / 32 + 1 > wordCount_) {
        const int rc = AddWords(1);
        if (rc != kUtMemOk) return rc;
    }
    // Into the last word, not necessarily word bitCount_ / 32: the placement is kept on purpose
    // (see the header).
    uint32_t& word = words_[wordCount_ - 1];
    const uint32_t mask = uint32_t{1} << (bitCount_ % 32);
    word = value ? (word | mask) : (word & ~mask);
    ++bitCount_;
    return kUtMemOk;
}

int UtBitList::Insert(unsigned long i, bool value) {
    if (i > bitCount_) return kUtMemBadArgument;
    if (i == bitCount_) return Append(value);
    if ((bitCount_ + 1) / 32 + 1 > wordCount_) {
        const int rc = AddWords(1);
        if (rc != kUtMemOk) return rc;
    }
    // Shift bits i..count-1 up by one, from the word that receives the new top bit down.
    const uint32_t first = static_cast<uint32_t>(i / 32);
    const uint32_t b = static_cast<uint32_t>(i % 32);
    for (uint32_t w = bitCount_ / 32; w > first; --w) {
        words_[w] = (words_[w] << 1) | (words_[w - 1] >> 31);
    }
    const uint32_t word = words_[first];
    const uint32_t low = word & LowMask(b);
    words_[first] = low | ((word & ~LowMask(b)) << 1);
    if (value) {
        words_[first] |= uint32_t{1} << b;
    }
    ++bitCount_;
    return kUtMemOk;
}

void UtBitList::Remove(unsigned long i) {
    if (i >= bitCount_) return;
    const uint32_t first = static_cast<uint32_t>(i / 32);
    const uint32_t b = static_cast<uint32_t>(i % 32);
    const uint32_t top = (bitCount_ - 1) / 32;
    const uint32_t word = words_[first];
    uint32_t shifted = (word & LowMask(b)) | ((word >> 1) & ~LowMask(b));
    if (first < top) shifted |= words_[first + 1] << 31;
    words_[first] = shifted;
    for (uint32_t w = first + 1; w <= top; ++w) {
        words_[w] = (words_[w] >> 1) | (w < top ? words_[w + 1] << 31 : 0u);
    }
    --bitCount_;
}

void UtBitList::Print(FILE* file) const {
    if (file == nullptr) return;
    std::fprintf(file, "UtBitList: %lu bits\n", static_cast<unsigned long>(bitCount_));
    char line[65];
    uint32_t n = 0;
    for (uint32_t i = 0; i < bitCount_; ++i) {
        line[n++] = bit(i) ? '1' : '0';
        if (n == 64 || i + 1 == bitCount_) {
            line[n] = '\0';
            std::fprintf(file, "%s\n", line);
            n = 0;
        }
    }
}

void UtBitList::debug() const { Print(stderr); }

XdrEnStream& operator<<(XdrEnStream& s, const UtBitList& bits) {
    unsigned long count = bits.bitCount_;
    unsigned long words = bits.wordCount_;
    if (!s.Xdr(&count) || !s.Xdr(&words)) return s;
    for (uint32_t w = 0; w < bits.wordCount_; ++w) {
        unsigned long word = bits.words_[w];
        if (!s.Xdr(&word)) break;
    }
    return s;
}

XdrDeStream& operator>>(XdrDeStream& s, UtBitList& bits) {
    unsigned long count = 0;
    unsigned long words = 0;
    if (!s.Xdr(&count) || !s.Xdr(&words)) return s;
    // Every list this class makes has a word for bit count / 32 once it has bits.
    if (count > 0 && words <= count / 32) return s;
    UtBitList read;
    while (read.wordCount_ < words) {
        // Doubling steps: at most twice the words read so far are ever allocated.
        const unsigned long want = std::max<unsigned long>(kDecodeChunkWords, read.wordCount_);
        const uint32_t step = static_cast<uint32_t>(std::min(want, words - read.wordCount_));
        const uint32_t start = read.wordCount_;
        if (read.AddWords(step) != kUtMemOk) return s;
        for (uint32_t w = start; w < start + step; ++w) {
            unsigned long word = 0;
            if (!s.Xdr(&word)) return s;
            read.words_[w] = static_cast<uint32_t>(word);
        }
    }
    read.bitCount_ = static_cast<uint32_t>(count);
    bits.Swap(read);
    return s;
}
