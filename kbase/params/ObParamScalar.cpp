// The scalar parameter kinds.
#include "kbase/params/ObParamScalar.h"

#include <cmath>
#include <cstdio>
#include <functional>
#include <type_traits>

#include "kbase/params/internal/text.h"

using kbase_params_internal::OwnText;
using kbase_params_internal::StoreText;

namespace {

// The border messages, kept byte for byte in code page 1252 (0xF6 is the o umlaut, 0xDF the
// sharp s): hosts show them as they are.
constexpr const char* kTooSmallInt = "Der Wert ist zu klein. Minimal m\xF6glicher Wert: %ld";
constexpr const char* kTooLargeInt = "Der Wert ist zu gro\xDF. Maximal m\xF6glicher Wert: %ld";
constexpr const char* kTooSmallFloat = "Der Wert ist zu klein. Minimal m\xF6glicher Wert: %lf";
constexpr const char* kTooLargeFloat = "Der Wert ist zu gro\xDF. Maximal m\xF6glicher Wert: %lf";

constexpr double kFloatTolerance = 1e-5;

template <typename T>
void SetMessage(UtCString& message, const char* format, T limit) {
    // %lf of the largest double needs about 320 characters.
    char text[400];
    const int n = std::snprintf(text, sizeof text, format, limit);
    const int length =
        n < 0 ? 0 : (n < static_cast<int>(sizeof text) ? n : static_cast<int>(sizeof text) - 1);
    StoreText(message, UtCString(text, length, eUtEncodingTypeAnsi1252, eUtEncodingTypeAnsi1252));
}

// Clamping to the active borders, both ends inclusive.
template <typename T>
T Clamp(T value, int32_t borders, T min, T max) {
    if ((borders & ObParamInt::kBorderMin) != 0 && value <= min) return min;
    if ((borders & ObParamInt::kBorderMax) != 0 && value >= max) return max;
    return value;
}

// The border check, both ends exclusive; the message is written only when the value is refused.
template <typename T>
int Check(T value, int32_t borders, T min, T max, const char* tooSmall, const char* tooLarge,
          UtCString& message) {
    using Limit = std::conditional_t<std::is_floating_point_v<T>, double, long>;
    if ((borders & ObParamInt::kBorderMin) != 0 && value <= min) {
        SetMessage(message, tooSmall, static_cast<Limit>(min));
        return ObParamInt::kTooSmall;
    }
    if ((borders & ObParamInt::kBorderMax) != 0 && value >= max) {
        SetMessage(message, tooLarge, static_cast<Limit>(max));
        return ObParamInt::kTooLarge;
    }
    return ObParamInt::kInside;
}

template <typename T>
int Sign(T difference) {
    return (difference > 0) - (difference < 0);
}

}  // namespace

// ---- ObParamInt ----

ObParamInt::ObParamInt(long value) : value_(static_cast<int32_t>(value)) {
    SetParamType(kTypeInt);
}

ObParamInt::ObParamInt(long id, const UtCString& name, long value)
    : ObParam(id, name), value_(static_cast<int32_t>(value)) {
    SetParamType(kTypeInt);
}

ObParamInt::ObParamInt(const ObParamInt& other)
    : ObParam(other),
      value_(other.value_),
      validBorders_(other.validBorders_),
      minValue_(other.minValue_),
      maxValue_(other.maxValue_),
      unit_(OwnText(other.unit_)),
      inputStyle_(other.inputStyle_) {}

ObParamInt::~ObParamInt() = default;

ObParamInt* ObParamInt::Clone() const {
    return new ObParamInt(*this);
}

int ObParamInt::CompareTo(const ObParam& other) const {
    int result = 0;
    const ObParamInt* o = SameKind<ObParamInt>(other, &result);
    if (o == nullptr) return result;
    return value_ < o->value_ ? -1 : (value_ > o->value_ ? 1 : 0);
}

int ObParamInt::CompareWrapped(const ObParamInt& other) const {
    if (value_ == other.value_) return 0;
    const auto difference =
        static_cast<int32_t>(static_cast<uint32_t>(value_) - static_cast<uint32_t>(other.value_));
    return difference < 0 ? -1 : 1;
}

ObParamInt& ObParamInt::operator=(const ObParamInt& other) {
    ObParam::operator=(other);
    if (this == &other) return *this;
    value_ = other.value_;
    validBorders_ = other.validBorders_;
    minValue_ = other.minValue_;
    maxValue_ = other.maxValue_;
    StoreText(unit_, other.unit_);
    inputStyle_ = other.inputStyle_;
    return *this;
}

void ObParamInt::SetValue(long value) {
    value_ = static_cast<int32_t>(value);
    MarkChanged();
}

void ObParamInt::SetMinValue(long value) {
    minValue_ = static_cast<int32_t>(value);
    MarkChanged();
}

void ObParamInt::SetMaxValue(long value) {
    maxValue_ = static_cast<int32_t>(value);
    MarkChanged();
}

void ObParamInt::SetUnit(const UtCString& unit) {
    StoreText(unit_, unit);
}

long ObParamInt::GetValueSafe() const {
    return Clamp(value_, validBorders_, minValue_, maxValue_);
}

int ObParamInt::CheckValueBorders(long value, UtCString& message) const {
    return Check(value, validBorders_, long{minValue_}, long{maxValue_}, kTooSmallInt, kTooLargeInt,
                 message);
}

// ---- ObParamFloat ----

ObParamFloat::ObParamFloat(double value, const UtCString& unit)
    : value_(value), unit_(OwnText(unit)) {
    SetParamType(kTypeFloat);
}

ObParamFloat::ObParamFloat(long id, const UtCString& name, double value, const UtCString& unit)
    : ObParam(id, name), value_(value), unit_(OwnText(unit)) {
    SetParamType(kTypeFloat);
}

ObParamFloat::ObParamFloat(const ObParamFloat& other)
    : ObParam(other),
      value_(other.value_),
      validBorders_(other.validBorders_),
      minValue_(other.minValue_),
      maxValue_(other.maxValue_),
      unit_(OwnText(other.unit_)),
      inputStyle_(other.inputStyle_),
      floatingLength_(other.floatingLength_),
      fillingZeros_(other.fillingZeros_) {}

ObParamFloat::~ObParamFloat() = default;

ObParamFloat* ObParamFloat::Clone() const {
    return new ObParamFloat(*this);
}

int ObParamFloat::CompareTo(const ObParam& other) const {
    int result = 0;
    const ObParamFloat* o = SameKind<ObParamFloat>(other, &result);
    if (o == nullptr) return result;
    const double d = value_ - o->value_;
    if (std::fabs(d) < kFloatTolerance) return 0;
    return d >= 0 ? 1 : -1;
}

ObParamFloat& ObParamFloat::operator=(const ObParamFloat& other) {
    ObParam::operator=(other);
    if (this == &other) return *this;
    value_ = other.value_;
    validBorders_ = other.validBorders_;
    minValue_ = other.minValue_;
    maxValue_ = other.maxValue_;
    StoreText(unit_, other.unit_);
    inputStyle_ = other.inputStyle_;
    floatingLength_ = other.floatingLength_;
    fillingZeros_ = other.fillingZeros_;
    return *this;
}

void ObParamFloat::SetValue(double value) {
    value_ = value;
    MarkChanged();
}

void ObParamFloat::SetMinValue(double value) {
    minValue_ = value;
    MarkChanged();
}

void ObParamFloat::SetMaxValue(double value) {
    maxValue_ = value;
    MarkChanged();
}

void ObParamFloat::SetUnit(const UtCString& unit) {
    StoreText(unit_, unit);
}

double ObParamFloat::GetValueSafe() const {
    return Clamp(value_, validBorders_, minValue_, maxValue_);
}

int ObParamFloat::CheckValueBorders(double value, UtCString& message) const {
    return Check(value, validBorders_, minValue_, maxValue_, kTooSmallFloat, kTooLargeFloat,
                 message);
}

// ---- ObParamString and ObParamButton ----

ObParamString::ObParamString(const UtCString& value) : value_(OwnText(value)) {
    SetParamType(kTypeString);
}

ObParamString::ObParamString(long id, const UtCString& name, const UtCString& value, long maxLength)
    : ObParam(id, name), value_(OwnText(value)) {
    SetParamType(kTypeString);
    SetMaxLength(maxLength);
}

ObParamString::ObParamString(const ObParamString& other)
    : ObParam(other), value_(OwnText(other.value_)), maxLength_(other.maxLength_) {}

ObParamString::~ObParamString() = default;

ObParamString* ObParamString::Clone() const {
    return new ObParamString(*this);
}

int ObParamString::CompareTo(const ObParam& other) const {
    int result = 0;
    const ObParamString* o = SameKind<ObParamString>(other, &result);
    if (o == nullptr) return result;
    if (NeedsExactMatch() && value_ == o->value_) return 0;
    if (!NeedsExactMatch() && o->value_.Contains(value_)) return 0;
    return value_.CompareTo(o->value_) < 0 ? -1 : 1;
}

ObParamString& ObParamString::operator=(const ObParamString& other) {
    ObParam::operator=(other);
    if (this == &other) return *this;
    StoreText(value_, other.value_);
    maxLength_ = other.maxLength_;
    return *this;
}

void ObParamString::SetValue(const UtCString& value) {
    StoreText(value_, value);
}

ObParamButton::ObParamButton(const UtCString& caption) : ObParamString(caption) {
    SetParamType(kTypeButton);
}

ObParamButton::ObParamButton(long id, const UtCString& name, const UtCString& caption, long length)
    : ObParamString(id, name, caption, length) {
    SetParamType(kTypeButton);
}

ObParamButton::ObParamButton(const ObParamButton& other) = default;
ObParamButton::~ObParamButton() = default;

ObParamButton* ObParamButton::Clone() const {
    return new ObParamButton(*this);
}

int ObParamButton::CompareTo(const ObParam& other) const {
    int result = 0;
    const ObParamButton* o = SameKind<ObParamButton>(other, &result);
    if (o == nullptr) return result;
    if (GetValue() == o->GetValue()) return 0;
    return GetParamID() < o->GetParamID() ? -1 : 1;
}

ObParamButton& ObParamButton::operator=(const ObParamButton& other) {
    ObParamString::operator=(other);
    return *this;
}

// ---- ObParamBool, ObParamPtr, ObParamSection ----

ObParamBool::ObParamBool(int value) : value_(value) {
    SetParamType(kTypeBool);
}

ObParamBool::ObParamBool(long id, const UtCString& name, int value)
    : ObParam(id, name), value_(value) {
    SetParamType(kTypeBool);
}

ObParamBool::ObParamBool(const ObParamBool& other) = default;
ObParamBool::~ObParamBool() = default;

ObParamBool* ObParamBool::Clone() const {
    return new ObParamBool(*this);
}

int ObParamBool::CompareTo(const ObParam& other) const {
    int result = 0;
    const ObParamBool* o = SameKind<ObParamBool>(other, &result);
    if (o == nullptr) return result;
    return Sign(int64_t{value_} - o->value_);
}

ObParamBool& ObParamBool::operator=(const ObParamBool& other) {
    ObParam::operator=(other);
    value_ = other.value_;
    return *this;
}

ObParamPtr::ObParamPtr(void* value) : value_(value) {
    SetParamType(kTypePtr);
}

ObParamPtr::ObParamPtr(long id, const UtCString& name, void* value)
    : ObParam(id, name), value_(value) {
    SetParamType(kTypePtr);
}

ObParamPtr::ObParamPtr(const ObParamPtr& other) = default;
ObParamPtr::~ObParamPtr() = default;

ObParamPtr* ObParamPtr::Clone() const {
    return new ObParamPtr(*this);
}

int ObParamPtr::CompareTo(const ObParam& other) const {
    int result = 0;
    const ObParamPtr* o = SameKind<ObParamPtr>(other, &result);
    if (o == nullptr) return result;
    // Lower gives -1; higher gives 0 like equal (kept: callers' searches depend on it).
    return std::less<const void*>()(value_, o->value_) ? -1 : 0;
}

ObParamPtr& ObParamPtr::operator=(const ObParamPtr& other) {
    ObParam::operator=(other);
    value_ = other.value_;
    return *this;
}

ObParamSection::ObParamSection() {
    SetParamType(kTypeSection);
}

ObParamSection::ObParamSection(long id, const UtCString& name) : ObParam(id, name) {
    SetParamType(kTypeSection);
}

ObParamSection::ObParamSection(const ObParamSection& other) = default;
ObParamSection::~ObParamSection() = default;

ObParamSection* ObParamSection::Clone() const {
    return new ObParamSection(*this);
}

int ObParamSection::CompareTo(const ObParam& other) const {
    int result = 0;
    SameKind<ObParamSection>(other, &result);
    return result;
}

ObParamSection& ObParamSection::operator=(const ObParamSection& other) {
    ObParam::operator=(other);
    return *this;
}

// ---- ObParamPen, ObParamColor, ObParamLt ----

ObParamPen::ObParamPen(long pen) : ObParamInt(pen) {
    SetParamType(kTypePen);
}

ObParamPen::ObParamPen(long id, const UtCString& name, long pen, short colorPaletteType)
    : ObParamInt(id, name, pen), colorPaletteType_(colorPaletteType) {
    SetParamType(kTypePen);
}

ObParamPen::ObParamPen(const ObParamPen& other) = default;
ObParamPen::~ObParamPen() = default;

ObParamPen* ObParamPen::Clone() const {
    return new ObParamPen(*this);
}

int ObParamPen::CompareTo(const ObParam& other) const {
    int result = 0;
    const ObParamPen* o = SameKind<ObParamPen>(other, &result);
    return o != nullptr ? CompareWrapped(*o) : result;
}

ObParamPen& ObParamPen::operator=(const ObParamPen& other) {
    ObParamInt::operator=(other);
    flags_ = other.flags_;
    colorPaletteType_ = other.colorPaletteType_;
    return *this;
}

ObParamColor::ObParamColor(long color) : ObParamInt(color) {
    SetParamType(kTypeColor);
}

ObParamColor::ObParamColor(long id, const UtCString& name, long color)
    : ObParamInt(id, name, color) {
    SetParamType(kTypeColor);
}

ObParamColor::ObParamColor(const ObParamColor& other) = default;
ObParamColor::~ObParamColor() = default;

ObParamColor* ObParamColor::Clone() const {
    return new ObParamColor(*this);
}

int ObParamColor::CompareTo(const ObParam& other) const {
    int result = 0;
    const ObParamColor* o = SameKind<ObParamColor>(other, &result);
    return o != nullptr ? CompareWrapped(*o) : result;
}

ObParamColor& ObParamColor::operator=(const ObParamColor& other) {
    ObParamInt::operator=(other);
    flags_ = other.flags_;
    return *this;
}

ObParamLt::ObParamLt(long lt) : ObParamInt(lt) {
    SetParamType(kTypeLt);
}

ObParamLt::ObParamLt(long id, const UtCString& name, long lt, int freeLinetypes, int linetype0)
    : ObParamInt(id, name, lt), enabledLinetype0_(linetype0) {
    SetParamType(kTypeLt);
    // The flag lives in MaxValue; setting it here is part of construction, not a change.
    const unsigned short state = GetState();
    SetMaxValue(freeLinetypes != 0 ? kLtMaxFree : kLtMaxFixed);
    SetState(state);
}

ObParamLt::ObParamLt(const ObParamLt& other) = default;
ObParamLt::~ObParamLt() = default;

ObParamLt* ObParamLt::Clone() const {
    return new ObParamLt(*this);
}

int ObParamLt::CompareTo(const ObParam& other) const {
    int result = 0;
    const ObParamLt* o = SameKind<ObParamLt>(other, &result);
    return o != nullptr ? CompareWrapped(*o) : result;
}

ObParamLt& ObParamLt::operator=(const ObParamLt& other) {
    ObParamInt::operator=(other);
    enabledLinetype0_ = other.enabledLinetype0_;
    return *this;
}
