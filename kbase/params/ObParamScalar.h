// The scalar parameter kinds: numbers with limits, texts, booleans, pointers, pens, colours, line
// types, section headings and buttons.
//
// Limits (ObParamInt, ObParamFloat). ValidBorders is a bit set: 1 makes MinValue active, 2
// MaxValue. The limits are never enforced by SetValue; they act in two places only:
//  - GetValueSafe clamps: a value at or below an active minimum gives the minimum, a value at or
//    above an active maximum gives the maximum;
//  - CheckValueBorders judges a candidate with both ends exclusive (a value equal to a limit is
//    refused, on purpose): 1 below, 2 above, 0 inside. On 1 and 2 the message string is replaced
//    by a German text in code page 1252 that names the limit, for example
//    "Der Wert ist zu klein. Minimal möglicher Wert: 0" or, for reals, printf's "%lf" of the limit
//    ("... Maximal möglicher Wert: 2.500000"). On 0 the message is left untouched.
//
// CompareTo once the bases are equal (see ObParam.h), by kind:
//  - Int: -1/0/1 by the values. Pen, Color and Lt accept only their own class (a pen against a
//    colour gives 0) and order by the 32-bit difference this minus other, which wraps: a value
//    of INT32_MIN orders after 1 (kept as the element layer expects it);
//  - Float: 0 when the values are less than 1e-5 apart, else the sign of the difference;
//  - Bool: the sign of this value minus the other (computed without overflow);
//  - String: with an exact match needed (NeedsExactMatch), equal texts give 0; with matching
//    enabled and Match false, 0 when the other's text contains this one's; otherwise -1 when this
//    text orders before the other's, else 1 (also for equal texts that were not taken as a match);
//  - Button: 0 for equal captions, else -1 when this id is smaller, else 1. Ids are equal
//    whenever the bases are, so different captions give 1 both ways;
//  - Ptr: 0 for equal pointers, -1 when this one is lower, and 0 when it is higher: an
//    asymmetry that callers rely on and that must be kept;
//  - Section: 0.
//
// The typed relational operators (==, <, ... between two parameters of the same kind) compare the
// values only, exactly (no tolerance for reals), ignoring every base field.
//
// Line types: a line type parameter allows free (user-defined) line types exactly when its
// MaxValue is above 9. The constructor's flag is kept that way: MaxValue 9 without free line
// types, kLtMaxFree with them (the borders are not made active).
#pragma once

#include "kbase/params/ObParam.h"

class KBASE_API ObParamInt : public ObParam {
  public:
    enum : int32_t { kBorderMin = 1, kBorderMax = 2 };
    // CheckValueBorders' results.
    enum : int { kInside = 0, kTooSmall = 1, kTooLarge = 2 };

    explicit ObParamInt(long value = 0);
    ObParamInt(long id, const UtCString& name, long value);
    ObParamInt(const ObParamInt& other);
    ~ObParamInt() override;
    ObParamInt* Clone() const override;
    int CompareTo(const ObParam& other) const override;
    ObParamInt& operator=(const ObParamInt& other);

    long GetValue() const { return value_; }
    void SetValue(long value);  // always marks the parameter as changed
    long GetValidBorders() const { return validBorders_; }
    void SetValidBorders(long borders) { validBorders_ = static_cast<int32_t>(borders); }
    long GetMinValue() const { return minValue_; }
    void SetMinValue(long value);  // always marks the parameter as changed
    long GetMaxValue() const { return maxValue_; }
    void SetMaxValue(long value);  // always marks the parameter as changed
    unsigned short GetInputStyle() const { return inputStyle_; }
    void SetInputStyle(unsigned short style) { inputStyle_ = style; }
    const UtCString& GetUnit() const { return unit_; }
    void SetUnit(const UtCString& unit);

    long GetValueSafe() const;
    int CheckValueBorders(long value, UtCString& message) const;

    bool operator==(const ObParamInt& o) const { return value_ == o.value_; }
    bool operator!=(const ObParamInt& o) const { return value_ != o.value_; }
    bool operator<(const ObParamInt& o) const { return value_ < o.value_; }
    bool operator>(const ObParamInt& o) const { return value_ > o.value_; }
    bool operator<=(const ObParamInt& o) const { return value_ <= o.value_; }
    bool operator>=(const ObParamInt& o) const { return value_ >= o.value_; }

  protected:
    // For Pen, Color and Lt: 0 for equal values, else the sign of the wrapping 32-bit difference.
    int CompareWrapped(const ObParamInt& other) const;

  private:
    int32_t value_ = 0;
    int32_t validBorders_ = 0;
    int32_t minValue_ = 0;
    int32_t maxValue_ = 0;
    UtCString unit_;
    uint16_t inputStyle_ = 0;
};

class KBASE_API ObParamFloat : public ObParam {
  public:
    explicit ObParamFloat(double value = 0.0, const UtCString& unit = UtCString());
    ObParamFloat(long id, const UtCString& name, double value, const UtCString& unit);
    ObParamFloat(const ObParamFloat& other);
    ~ObParamFloat() override;
    ObParamFloat* Clone() const override;
    int CompareTo(const ObParam& other) const override;
    ObParamFloat& operator=(const ObParamFloat& other);

    double GetValue() const { return value_; }
    void SetValue(double value);  // always marks the parameter as changed
    long GetValidBorders() const { return validBorders_; }
    void SetValidBorders(long borders) { validBorders_ = static_cast<int32_t>(borders); }
    double GetMinValue() const { return minValue_; }
    void SetMinValue(double value);  // always marks the parameter as changed
    double GetMaxValue() const { return maxValue_; }
    void SetMaxValue(double value);  // always marks the parameter as changed
    unsigned short GetInputStyle() const { return inputStyle_; }
    void SetInputStyle(unsigned short style) { inputStyle_ = style; }
    const UtCString& GetUnit() const { return unit_; }
    void SetUnit(const UtCString& unit);
    // Digits after the decimal point, and whether to pad with trailing zeros, when shown.
    long GetFloatingLength() const { return floatingLength_; }
    void SetFloatingLength(long digits) { floatingLength_ = static_cast<int32_t>(digits); }
    long GetFillingZeros() const { return fillingZeros_; }
    void SetFillingZeros(long on) { fillingZeros_ = static_cast<int32_t>(on); }

    double GetValueSafe() const;
    int CheckValueBorders(double value, UtCString& message) const;

    bool operator==(const ObParamFloat& o) const { return value_ == o.value_; }
    bool operator!=(const ObParamFloat& o) const { return value_ != o.value_; }
    bool operator<(const ObParamFloat& o) const { return value_ < o.value_; }
    bool operator>(const ObParamFloat& o) const { return value_ > o.value_; }
    bool operator<=(const ObParamFloat& o) const { return value_ <= o.value_; }
    bool operator>=(const ObParamFloat& o) const { return value_ >= o.value_; }

  private:
    double value_ = 0.0;
    int32_t validBorders_ = 0;
    double minValue_ = 0.0;
    double maxValue_ = 0.0;
    UtCString unit_;
    uint16_t inputStyle_ = 0;
    int32_t floatingLength_ = 3;
    int32_t fillingZeros_ = 1;
};

// A text. MaxLength is the longest text the dialog lets the user type (0: no limit); SetValue
// does not enforce it.
class KBASE_API ObParamString : public ObParam {
  public:
    explicit ObParamString(const UtCString& value = UtCString());
    ObParamString(long id, const UtCString& name, const UtCString& value, long maxLength);
    ObParamString(const ObParamString& other);
    ~ObParamString() override;
    ObParamString* Clone() const override;
    int CompareTo(const ObParam& other) const override;
    ObParamString& operator=(const ObParamString& other);

    const UtCString& GetValue() const { return value_; }
    void SetValue(const UtCString& value);  // stores only
    long GetMaxLength() const { return maxLength_; }
    void SetMaxLength(long length) { maxLength_ = length < 0 ? 0 : static_cast<int32_t>(length); }

    bool operator==(const ObParamString& o) const { return value_ == o.value_; }
    bool operator!=(const ObParamString& o) const { return value_ != o.value_; }
    bool operator<(const ObParamString& o) const { return value_ < o.value_; }
    bool operator>(const ObParamString& o) const { return value_ > o.value_; }
    bool operator<=(const ObParamString& o) const { return value_ <= o.value_; }
    bool operator>=(const ObParamString& o) const { return value_ >= o.value_; }

  private:
    UtCString value_;
    int32_t maxLength_ = 0;
};

// A push button in the dialog: the text is its caption, MaxLength its length.
class KBASE_API ObParamButton : public ObParamString {
  public:
    explicit ObParamButton(const UtCString& caption = UtCString());
    ObParamButton(long id, const UtCString& name, const UtCString& caption, long length);
    ObParamButton(const ObParamButton& other);
    ~ObParamButton() override;
    ObParamButton* Clone() const override;
    int CompareTo(const ObParam& other) const override;
    ObParamButton& operator=(const ObParamButton& other);
};

class KBASE_API ObParamBool : public ObParam {
  public:
    explicit ObParamBool(int value = 0);
    ObParamBool(long id, const UtCString& name, int value);
    ObParamBool(const ObParamBool& other);
    ~ObParamBool() override;
    ObParamBool* Clone() const override;
    int CompareTo(const ObParam& other) const override;
    ObParamBool& operator=(const ObParamBool& other);

    int GetValue() const { return value_; }
    void SetValue(int value) { value_ = value; }  // stores only

    bool operator==(const ObParamBool& o) const { return value_ == o.value_; }
    bool operator!=(const ObParamBool& o) const { return value_ != o.value_; }

  private:
    int value_ = 0;
};

// An untyped pointer, not owned.
class KBASE_API ObParamPtr : public ObParam {
  public:
    explicit ObParamPtr(void* value = nullptr);
    ObParamPtr(long id, const UtCString& name, void* value);
    ObParamPtr(const ObParamPtr& other);
    ~ObParamPtr() override;
    ObParamPtr* Clone() const override;
    int CompareTo(const ObParam& other) const override;
    ObParamPtr& operator=(const ObParamPtr& other);

    void* GetValue() const { return value_; }
    void SetValue(void* value) { value_ = value; }  // stores only

  private:
    void* value_ = nullptr;
};

// A section heading that groups the parameters after it; it has no value.
class KBASE_API ObParamSection : public ObParam {
  public:
    ObParamSection();
    ObParamSection(long id, const UtCString& name);
    ObParamSection(const ObParamSection& other);
    ~ObParamSection() override;
    ObParamSection* Clone() const override;
    int CompareTo(const ObParam& other) const override;
    ObParamSection& operator=(const ObParamSection& other);
};

// How the dialog offers a pen or colour: filled, "no colour" and "background colour" allowed.
struct ObColorDisplayFlags {
    int filled = 0;
    int enabledNoColor = 0;
    int enabledBackColor = 0;
};

// A pen number with its display flags.
class KBASE_API ObParamPen : public ObParamInt {
  public:
    explicit ObParamPen(long pen = 0);
    ObParamPen(long id, const UtCString& name, long pen, short colorPaletteType);
    ObParamPen(const ObParamPen& other);
    ~ObParamPen() override;
    ObParamPen* Clone() const override;
    int CompareTo(const ObParam& other) const override;
    ObParamPen& operator=(const ObParamPen& other);  // the flags are copied even onto itself

    int GetFilled() const { return flags_.filled; }
    void SetFilled(int filled) { flags_.filled = filled; }
    int IsEnabledNoColor() const { return flags_.enabledNoColor; }
    void SetEnabledNoColor(int on) { flags_.enabledNoColor = on; }
    int IsEnabledBackColor() const { return flags_.enabledBackColor; }
    void SetEnabledBackColor(int on) { flags_.enabledBackColor = on; }
    short ColorPaletteType() const { return colorPaletteType_; }
    void SetColorPaletteType(short type) { colorPaletteType_ = type; }

  private:
    ObColorDisplayFlags flags_;
    int16_t colorPaletteType_ = 0;
};

// A colour number with its display flags.
class KBASE_API ObParamColor : public ObParamInt {
  public:
    explicit ObParamColor(long color = 0);
    ObParamColor(long id, const UtCString& name, long color);
    ObParamColor(const ObParamColor& other);
    ~ObParamColor() override;
    ObParamColor* Clone() const override;
    int CompareTo(const ObParam& other) const override;
    ObParamColor& operator=(const ObParamColor& other);  // the flags are copied even onto itself

    int GetFilled() const { return flags_.filled; }
    void SetFilled(int filled) { flags_.filled = filled; }
    int IsEnabledNoColor() const { return flags_.enabledNoColor; }
    void SetEnabledNoColor(int on) { flags_.enabledNoColor = on; }
    int IsEnabledBackColor() const { return flags_.enabledBackColor; }
    void SetEnabledBackColor(int on) { flags_.enabledBackColor = on; }

  private:
    ObColorDisplayFlags flags_;
};

// A line type number.
class KBASE_API ObParamLt : public ObParamInt {
  public:
    static constexpr long kLtMaxFixed = 9;     // line types 0..9 are the fixed ones
    static constexpr long kLtMaxFree = 32767;  // MaxValue when free line types are allowed

    explicit ObParamLt(long lt = 0);
    ObParamLt(long id, const UtCString& name, long lt, int freeLinetypes, int linetype0);
    ObParamLt(const ObParamLt& other);
    ~ObParamLt() override;
    ObParamLt* Clone() const override;
    int CompareTo(const ObParam& other) const override;
    ObParamLt& operator=(const ObParamLt& other);  // the flag is copied even onto itself

    bool IsEnabledFreeLinetypes() const { return GetMaxValue() > kLtMaxFixed; }
    int IsEnabledLinetype0() const { return enabledLinetype0_; }
    void SetEnabledLinetype0(int on) { enabledLinetype0_ = on; }

  private:
    int enabledLinetype0_ = 0;
};
