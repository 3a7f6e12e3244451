#include "kbase/services/VlValue.h"

#include <cmath>
#include <cstring>
#include <utility>

#include "basert/memory.h"
#include "kbase/streams/ExMain.h"
#include "kbase/streams/XdStream.h"

namespace {

constexpr int kLineUnknownKind = 1;

char* CopyText(const char* text) {
    const size_t n = std::strlen(text);
    void* p = nullptr;
    if (UtAllocMemoryBlock(&p, n + 1, 1) != kUtMemOk) return nullptr;
    std::memcpy(p, text, n + 1);
    return static_cast<char*>(p);
}

int32_t Saturate(double v) {
    if (std::isnan(v)) return 0;
    if (v >= 2147483647.0) return INT32_MAX;
    if (v <= -2147483648.0) return INT32_MIN;
    return static_cast<int32_t>(v);
}

}  // namespace

VlValue::VlValue(const VlValue& other) {
    *this = other;
}
VlValue::VlValue(VlValue&& other) noexcept {
    *this = std::move(other);
}

VlValue& VlValue::operator=(const VlValue& other) {
    if (this == &other) return *this;
    if (other.type_ == eVlText) {
        SetText(other.text_);
        return *this;
    }
    Free();
    type_ = other.type_;
    real_ = other.real_;
    long_ = other.long_;
    ptr_ = other.ptr_;
    return *this;
}

VlValue& VlValue::operator=(VlValue&& other) noexcept {
    if (this == &other) return *this;
    Free();
    type_ = other.type_;
    real_ = other.real_;
    long_ = other.long_;
    ptr_ = other.ptr_;
    text_ = other.text_;
    other.text_ = nullptr;
    other.type_ = eVlVoid;
    other.long_ = 0;
    return *this;
}

VlValue::~VlValue() {
    UtFreeMemory(text_);
}

double VlValue::GetReal() const {
    switch (type_) {
        case eVlReal:
            return real_;
        case eVlLong:
            return long_;
        default:
            return 0;
    }
}

long VlValue::GetLong() const {
    switch (type_) {
        case eVlReal:
            return Saturate(real_);
        case eVlLong:
        case eVlVoid:
            return long_;
        default:
            return 0;
    }
}

bool VlValue::GetBool() const {
    if (type_ == eVlText) return text_ != nullptr && text_[0] != '\0';
    if (type_ == eVlVptr) return ptr_ != nullptr;
    if (type_ == eVlReal) return real_ != 0;
    return GetLong() != 0;
}

void VlValue::Free() {
    UtFreeMemory(text_);
    text_ = nullptr;
    type_ = eVlVoid;
    real_ = 0;
    long_ = 0;
    ptr_ = nullptr;
}

void VlValue::SetReal(double v) {
    Free();
    type_ = eVlReal;
    real_ = v;
}
void VlValue::SetLong(long v) {
    Free();
    type_ = eVlLong;
    long_ = static_cast<int32_t>(v);
}
void VlValue::SetText(const char* text) {
    char* copy = CopyText(text != nullptr ? text : "");
    Free();
    if (copy == nullptr) return;
    type_ = eVlText;
    text_ = copy;
}
void VlValue::SetVoid_(long v) {
    Free();
    long_ = static_cast<int32_t>(v);
}
void VlValue::SetVptr(void* p) {
    Free();
    type_ = eVlVptr;
    ptr_ = p;
}

char* VlValue::RemoveText() {
    if (type_ != eVlText) return nullptr;
    char* t = text_;
    text_ = nullptr;
    Free();
    return t;
}

bool VlValue::operator==(const VlValue& other) const {
    if (type_ != other.type_) return false;
    switch (type_) {
        case eVlReal:
            return real_ == other.real_;
        case eVlText:
            return std::strcmp(text_, other.text_) == 0;
        case eVlVptr:
            return ptr_ == other.ptr_;
        default:
            return long_ == other.long_;
    }
}

XdOStream& operator<<(XdOStream& out, const VlValue& v) {
    out << static_cast<unsigned char>(v.GetType());
    switch (v.GetType()) {
        case VlValue::eVlReal:
            out << v.GetReal();
            break;
        case VlValue::eVlLong:
        case VlValue::eVlVoid:
            out << v.GetLong();
            break;
        case VlValue::eVlText:
            out << v.GetText();
            break;
        case VlValue::eVlVptr:
            break;
    }
    return out;
}

XdIStream& operator>>(XdIStream& in, VlValue& v) {
    unsigned char kind = 0;
    in >> kind;
    switch (kind) {
        case VlValue::eVlReal: {
            double d = 0;
            in >> d;
            v.SetReal(d);
            break;
        }
        case VlValue::eVlLong:
        case VlValue::eVlVoid: {
            long l = 0;
            in >> l;
            if (kind == VlValue::eVlLong) {
                v.SetLong(l);
            } else {
                v.SetVoid_(l);
            }
            break;
        }
        case VlValue::eVlText: {
            char* text = nullptr;
            in >> &text;
            v.SetText(text);
            const bool copied = v.IsText();
            UtFreeMemory(text);
            if (!copied) throw kbase::ExMem("VlValue", kLineUnknownKind, "no memory for a text");
            break;
        }
        case VlValue::eVlVptr:
            v.SetVptr(nullptr);
            break;
        default:
            throw kbase::ExRead("VlValue", kLineUnknownKind, "unknown value kind");
    }
    return in;
}
