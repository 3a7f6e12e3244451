#include "kbase/tables/internal/order.h"

#include <algorithm>
#include <utility>

namespace kbase_tables_internal {

CellView ViewOf(const UtCString* s) {
    CellView v;
    if (s == nullptr) return v;
    v.s = s;
    if (s->isUtf16EncodingType()) {
        const char16_t* w = s->uptr();
        if (w == nullptr) return v;
        if (*w == 0xFEFF || *w == 0xFFFE) ++w;
        v.p = w;
        v.n = static_cast<uint32_t>(std::char_traits<char16_t>::length(w));
        v.enc = 1200;
        return v;
    }
    const char* p = s->isUtf8EncodingType() ? s->stringSkipBOM() : s->ptr();
    if (p == nullptr) return v;
    v.p = p;
    v.n = static_cast<uint32_t>(s->isAnsiEncodingType() ? static_cast<size_t>(s->GetLength()) : std::strlen(p));
    v.enc = s->encodingType();
    return v;
}

namespace {

uint64_t Mix(uint64_t h) {
    h ^= h >> 33;
    h *= 0xff51afd7ed558ccdULL;
    h ^= h >> 33;
    return h;
}

// A word-at-a-time hash of the bytes; texts of up to 16 bytes are read as two (overlapping)
// words.
uint64_t HashBytes(const unsigned char* p, size_t n) {
    uint64_t h = 0x9E3779B97F4A7C15ULL ^ n;
    if (n > 16) {
        for (; n > 8; p += 8, n -= 8) h = Mix(h ^ Load64(p)) * 0x9E3779B97F4A7C15ULL;
        return Mix(h ^ Load64(p + n - 8));  // the last 8 bytes, overlapping the words before
    }
    uint64_t a = 0;
    uint64_t b = 0;
    Ends(p, n, a, b);
    return Mix(Mix(h ^ a) * 0x9E3779B97F4A7C15ULL ^ b);
}

size_t ElemSize(const CellView& v) { return v.enc == 1200 ? 2 : 1; }

}  // namespace

uint64_t HashView(const CellView& v) { return HashBytes(static_cast<const unsigned char*>(v.p), v.n * ElemSize(v)); }

void TextRanker::Grow() {
    const size_t cap = slots_.empty() ? 64 : slots_.size() * 2;
    std::vector<uint64_t> fresh(cap, 0);
    for (uint64_t slot : slots_) {
        if (slot == 0) continue;
        const CellView& v = distinct_[(slot & 0xFFFFFFFFu) - 1];
        size_t i = HashView(v) & (cap - 1);
        while (fresh[i] != 0) i = (i + 1) & (cap - 1);
        fresh[i] = slot;
    }
    slots_.swap(fresh);
}

bool TextRanker::Add(const CellView& v, uint32_t& id) {
    if (v.n != 0) {
        if (enc_ == 0) enc_ = v.enc;
        if (v.enc != enc_) return false;
    }
    if ((distinct_.size() + 1) * 2 > slots_.size()) Grow();
    const uint64_t h = HashView(v);
    const uint64_t tag = h & ~uint64_t{0xFFFFFFFFu};
    const size_t mask = slots_.size() - 1;
    for (size_t i = h & mask;; i = (i + 1) & mask) {
        const uint64_t slot = slots_[i];
        if (slot == 0) {
            distinct_.push_back(v);
            id = static_cast<uint32_t>(distinct_.size() - 1);
            slots_[i] = tag | (uint64_t{id} + 1);
            return true;
        }
        if ((slot & ~uint64_t{0xFFFFFFFFu}) == tag && EqualCells(distinct_[(slot & 0xFFFFFFFFu) - 1], v)) {
            id = static_cast<uint32_t>((slot & 0xFFFFFFFFu) - 1);
            return true;
        }
    }
}

void TextRanker::Ranks(std::vector<uint32_t>& rankOf) const {
    std::vector<uint32_t> order(distinct_.size());
    for (uint32_t d = 0; d < order.size(); ++d) order[d] = d;
    std::sort(order.begin(), order.end(),
              [&](uint32_t a, uint32_t b) { return CompareCells(distinct_[a], distinct_[b]) < 0; });
    rankOf.resize(order.size());
    for (uint32_t k = 0; k < order.size(); ++k) rankOf[order[k]] = k;
}

void RankNumbers(const std::vector<double>& values, std::vector<uint32_t>& rank, uint32_t& count) {
    const size_t n = values.size();
    std::vector<std::pair<double, uint32_t>> sorted(n);
    for (size_t r = 0; r < n; ++r) sorted[r] = {values[r], static_cast<uint32_t>(r)};
    std::sort(sorted.begin(), sorted.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    rank.resize(n);
    uint32_t k = 0;
    for (size_t i = 0; i < n; ++i) {
        if (i > 0 && sorted[i].first != sorted[i - 1].first) ++k;
        rank[sorted[i].second] = k;
    }
    count = n == 0 ? 0 : k + 1;
}

void CompositeKey::Densify() {
    std::vector<uint64_t> distinct(key_);
    std::sort(distinct.begin(), distinct.end());
    distinct.erase(std::unique(distinct.begin(), distinct.end()), distinct.end());
    for (uint64_t& k : key_) k = static_cast<uint64_t>(std::lower_bound(distinct.begin(), distinct.end(), k) - distinct.begin());
    distinct_ = distinct.size();
}

void CompositeKey::Add(const std::vector<uint32_t>& rank, uint32_t count) {
    if (count <= 1) return;  // one value orders nothing
    // Keys and ranks both stay below 2^32 after densifying, so the product fits in 64 bits.
    if (distinct_ > UINT64_MAX / count) Densify();
    for (size_t r = 0; r < key_.size(); ++r) key_[r] = key_[r] * count + rank[r];
    distinct_ *= count;
}

std::vector<uint32_t> CompositeKey::StableOrder() const {
    // Keys are below distinct_, so a least-significant-digit radix sort over the bits in use
    // orders them in a few linear passes of at most 16 bits each (one pass for up to 65536
    // distinct keys); every pass is stable, so equal keys keep row order.
    const size_t n = key_.size();
    std::vector<uint32_t> order(n);
    if (n < 2 || distinct_ <= 1) {
        for (size_t r = 0; r < n; ++r) order[r] = static_cast<uint32_t>(r);
        return order;
    }
    int bits = 0;
    while (bits < 64 && (distinct_ - 1) >> bits != 0) ++bits;
    const int passes = (bits + 15) / 16;
    const int digitBits = (bits + passes - 1) / passes;
    const uint64_t digitMask = (uint64_t{1} << digitBits) - 1;
    if (n * 8 < (size_t{1} << digitBits)) {
        // Few rows against many possible keys: clearing the buckets would cost more than
        // sorting the rows (a small table sorted by several columns).
        for (size_t r = 0; r < n; ++r) order[r] = static_cast<uint32_t>(r);
        std::stable_sort(order.begin(), order.end(),
                         [&](uint32_t a, uint32_t b) { return key_[a] < key_[b]; });
        return order;
    }
    std::vector<size_t> start(size_t{1} << digitBits);
    // Counts the digits of keys at shift and turns the counts into first positions.
    auto positions = [&](const std::vector<uint64_t>& keys, int shift) {
        std::fill(start.begin(), start.end(), 0);
        for (uint64_t k : keys) ++start[(k >> shift) & digitMask];
        size_t sum = 0;
        for (size_t& b : start) {
            const size_t c = b;
            b = sum;
            sum += c;
        }
    };
    if (passes == 1) {
        positions(key_, 0);
        for (size_t r = 0; r < n; ++r) order[start[key_[r]]++] = static_cast<uint32_t>(r);
        return order;
    }
    for (size_t r = 0; r < n; ++r) order[r] = static_cast<uint32_t>(r);
    std::vector<uint32_t> next(n);
    std::vector<uint64_t> keys(key_);
    std::vector<uint64_t> nextKeys(n);
    for (int shift = 0; shift < bits; shift += digitBits) {
        positions(keys, shift);
        for (size_t i = 0; i < n; ++i) {
            const size_t at = start[(keys[i] >> shift) & digitMask]++;
            next[at] = order[i];
            nextKeys[at] = keys[i];
        }
        order.swap(next);
        keys.swap(nextKeys);
    }
    return order;
}

}  // namespace kbase_tables_internal
