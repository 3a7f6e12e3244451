#include <cstring>

#include "kbase/object_store/ObObject.h"
#include "kbase/object_store/internal/ObStoreState.h"

namespace {

constexpr int kGuidLength = 36;

bool IsHexDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// 8-4-4-4-12 hex digits.
bool IsGuidText(const char* text) {
    for (int i = 0; i < kGuidLength; ++i) {
        const char c = text[i];  // stops at the terminator of a shorter text: '\0' fails both tests
        const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        if (dash ? c != '-' : !IsHexDigit(c)) return false;
    }
    return text[kGuidLength] == '\0';
}

}  // namespace

void ObObjectExtendedData::PushUpdateDetail(int32_t event) {
    details_[top_] = DetailEntry{event, kbase::object_store_internal::g_store.updateDetail};
    top_ = (top_ + 1) % kDetailDepth;
    if (count_ < kDetailDepth) ++count_;
}

ObObjectExtendedData::DetailEntry ObObjectExtendedData::DetailAt(int i) const {
    if (i < 0 || i >= count_) return DetailEntry{0, 0};
    return details_[(top_ - 1 - i + kDetailDepth) % kDetailDepth];
}

bool ObObjectExtendedData::PopUpdateDetail(DetailEntry* out) {
    if (count_ == 0) return false;
    top_ = (top_ - 1 + kDetailDepth) % kDetailDepth;
    --count_;
    if (out != nullptr) *out = details_[top_];
    return true;
}

OB_STATUS ObObjectExtendedData::SetGuid(const char* text) {
    if (text == nullptr) {
        guid_[0] = '\0';
        return OB_OK;
    }
    if (!IsGuidText(text)) return OB_FAILED;
    std::memcpy(guid_, text, kGuidLength + 1);
    return OB_OK;
}
