// ObParam: the polymorphic base of the typed parameters of a design element.
//
// A parameter is one typed, named value of an element's attribute set. The kinds (ObParamScalar.h,
// ObParamOption.h, ObParamMaterial.h, ObParamRecords.h) add the value; the base holds what every
// kind shares: id, name, type code, flags, a change state, command bits and an owned condition
// list (ObCondition.h) that enables the parameter only when other parameters have certain values.
//
// Change state (GetState): 0 up to date, 1 changed, 2 created (every new parameter). The setters
// differ on purpose in how they mark a parameter as changed, and hosts rely on the difference:
//  - SetValid, SetLocked, SetRepresentative, SetDetailed, SetMatch, SetOnFilter compare first:
//    only a different value is stored, and then the state becomes 1;
//  - SetLinkable always stores, and sets the state to 1 whenever the new value is true;
//  - SetMatch also switches matching on (IsMatchEnabled) on every call, changed or not;
//  - SetValue/SetMinValue/SetMaxValue of ObParamInt (Pen, Color, Lt) and ObParamFloat always set
//    the state to 1, even for an equal value;
//  - the other setters (SetChangeable, SetParamName, SetSourceAttrName, the plain accessors of id,
//    type and sub type, the display fields, SetValue of Bool, Ptr and String) only store.
//
// Copies. Equality (==) looks at id, name, type, sub type, valid, locked, representative and the
// source attribute name only. Assignment copies the base fields (state included) but destroys the
// target's condition list and leaves it empty, and copies neither the source's list nor its
// command set; self-assignment changes nothing. The copy constructor, and so Clone, builds a
// default parameter and assigns the other to it: a copy has no conditions and no commands.
//
// CompareTo, the order used by lists and searches: 127 or 129 when the bases differ (127 when this
// type code is smaller than the other's, else 129), 0 when the other is not of this kind, else a
// comparison of the values that each kind states in its header.
//
// Texts. A text given to a parameter is stored in the encoding it carries; a text without a code
// page of its own (code page 0, "whatever the system uses") is taken as the user's code page.
//
// Not thread-safe; parameters are owned by their callers and hold no global state apart from the
// shared empty string that GetValueString returns for kinds without a text.
#pragma once

#include <cstdint>

#include "kbase/export.h"
#include "kbase/params/MatDbKey.h"
#include "kbase/text/UtCString.h"

class ObCondList;

// Status codes of the condition operations.
constexpr int kObParamOk = 0;
constexpr int kObParamNotFound = 1005;   // no equal condition, or no condition list at all
constexpr int kObParamDuplicate = 3009;  // an equal condition is present; the offered one is gone
constexpr int kObParamNullArgument = 3011;  // the watched parameter (or the condition) is null

// The element commands a parameter takes part in, as a 32-bit set of bits.
class KBASE_API Commands {
  public:
    static constexpr unsigned long kSave = 0x0001;
    static constexpr unsigned long kLoad = 0x0002;
    static constexpr unsigned long kNoHatch = 0x0004;
    static constexpr unsigned long kNoLine = 0x0008;
    static constexpr unsigned long kExtendedAttrMode = 0x0010;
    static constexpr unsigned long kLink = 0x0020;
    static constexpr unsigned long kArbitrary = 0x0040;
    static constexpr unsigned long kFilter = 0x0080;
    static constexpr unsigned long kDelete = 0x0100;
    static constexpr unsigned long kMeasureLength = 0x0200;
    static constexpr unsigned long kMeasureArea = 0x0400;
    static constexpr unsigned long kMeasureVolume = 0x0800;
    static constexpr unsigned long kCalculate = 0x1000;
    static constexpr unsigned long kAdd = 0x2000;

    unsigned long GetCommands() const { return bits_; }
    void Clear() { bits_ = 0; }

    // true ors the bit in, false clears it.
    void SetSave(bool on) { Set(kSave, on); }
    void SetLoad(bool on) { Set(kLoad, on); }
    void SetNoHatch(bool on) { Set(kNoHatch, on); }
    void SetNoLine(bool on) { Set(kNoLine, on); }
    void SetExtendedAttrMode(bool on) { Set(kExtendedAttrMode, on); }
    void SetLink(bool on) { Set(kLink, on); }
    void SetArbitrary(bool on) { Set(kArbitrary, on); }
    void SetFilter(bool on) { Set(kFilter, on); }
    void SetDelete(bool on) { Set(kDelete, on); }
    void SetMeasureLength(bool on) { Set(kMeasureLength, on); }
    void SetMeasureArea(bool on) { Set(kMeasureArea, on); }
    void SetMeasureVolume(bool on) { Set(kMeasureVolume, on); }
    void SetCalculate(bool on) { Set(kCalculate, on); }
    void SetAdd(bool on) { Set(kAdd, on); }

    bool GetSave() const { return Get(kSave); }
    bool GetLoad() const { return Get(kLoad); }
    bool GetNoHatch() const { return Get(kNoHatch); }
    bool GetNoLine() const { return Get(kNoLine); }
    bool GetExtendedAttrMode() const { return Get(kExtendedAttrMode); }
    bool GetLink() const { return Get(kLink); }
    bool GetArbitrary() const { return Get(kArbitrary); }
    bool GetFilter() const { return Get(kFilter); }
    bool GetDelete() const { return Get(kDelete); }
    bool GetMeasureLength() const { return Get(kMeasureLength); }
    bool GetMeasureArea() const { return Get(kMeasureArea); }
    bool GetMeasureVolume() const { return Get(kMeasureVolume); }
    bool GetCalculate() const { return Get(kCalculate); }
    bool GetAdd() const { return Get(kAdd); }

  private:
    // Sets or clears every bit of the mask (only its low 32 bits count).
    void Set(unsigned long bits, int on) {
        const uint32_t mask = static_cast<uint32_t>(bits);
        bits_ = on != 0 ? (bits_ | mask) : (bits_ & ~mask);
    }
    // Whether any bit of the mask is set.
    bool Get(unsigned long bits) const { return (bits_ & static_cast<uint32_t>(bits)) != 0; }

    uint32_t bits_ = 0;
};

class KBASE_API ObParam {
  public:
    // Type codes (GetParamType). Pen and Color share 7; their classes tell them apart.
    enum : int32_t {
        kTypeBase = 0,  // ObParam itself and ObParamBasePar
        kTypeInt = 1,
        kTypeFloat = 2,
        kTypeString = 3,
        kTypeBool = 4,
        kTypeOption = 5,
        kTypePtr = 6,
        kTypePen = 7,
        kTypeColor = 7,
        kTypeLt = 8,
        kTypeMaterial = 9,
        kTypeSection = 10,
        kTypeElemPar = 11,
        kTypeHatchPar = 12,
        kTypeButton = 17,
    };
    // Change states (GetState).
    enum : unsigned short { kStateUpToDate = 0, kStateChanged = 1, kStateCreated = 2 };

    ObParam();
    ObParam(long id, const UtCString& name);
    ObParam(const ObParam& other);  // see Copies above: no conditions, no commands
    virtual ~ObParam();             // destroys the condition list
    virtual ObParam* Clone() const;
    virtual int CompareTo(const ObParam& other) const;  // 0 when the bases are equal

    ObParam& operator=(const ObParam& other);
    bool operator==(const ObParam& other) const;
    bool operator!=(const ObParam& other) const { return !(*this == other); }

    // ---- plain accessors (no effect on the state) ----
    long GetParamID() const { return paramId_; }
    void SetParamID(long id) { paramId_ = static_cast<int32_t>(id); }
    const UtCString& GetParamName() const { return paramName_; }
    void SetParamName(const UtCString& name);
    long GetParamType() const { return paramType_; }
    void SetParamType(long type) { paramType_ = static_cast<int32_t>(type); }
    unsigned short GetAttrSubType() const { return attrSubType_; }
    void SetAttrSubType(unsigned short subType) { attrSubType_ = subType; }
    long GetValid() const { return valid_; }
    long IsValid() const { return valid_; }
    unsigned short GetState() const { return state_; }
    void SetState(unsigned short state) { state_ = state; }
    bool GetChangeable() const { return changeable_; }
    void SetChangeable(bool changeable) { changeable_ = changeable; }
    const UtCString& GetSourceAttrName() const { return sourceAttrName_; }
    void SetSourceAttrName(const UtCString& name);
    bool HasSourceAttrName() const { return !sourceAttrName_.IsEmpty(); }
    // The command set, for reading and changing.
    Commands& CommandFlags() { return commands_; }
    const Commands& CommandFlags() const { return commands_; }

    // ---- flags that mark the parameter as changed (see the header's opening) ----
    void SetValid(long valid) { StoreIfDifferent(valid_, valid); }
    bool IsLocked() const { return locked_; }
    void SetLocked(bool locked) { StoreIfDifferent(locked_, locked); }
    bool IsRepresentative() const { return representative_; }
    void SetRepresentative(bool r) { StoreIfDifferent(representative_, r); }
    bool IsDetailed() const { return detailed_; }
    void SetDetailed(bool detailed) { StoreIfDifferent(detailed_, detailed); }
    bool IsLinkable() const { return linkable_; }
    void SetLinkable(bool linkable);
    bool GetMatch() const { return match_; }
    void SetMatch(bool match);
    bool IsMatchEnabled() const { return matchEnabled_; }
    bool IsOnFilter() const { return onFilter_; }
    void SetOnFilter(bool onFilter) { StoreIfDifferent(onFilter_, onFilter); }

    // ---- derived predicates ----
    bool IsChanged() const { return state_ == kStateChanged; }
    bool Changed() const { return state_ == kStateChanged; }
    bool IsUpToDate() const { return state_ == kStateUpToDate; }
    bool IsCreated() const { return state_ == kStateCreated; }
    bool HasCommands() const { return commands_.GetCommands() != 0; }
    bool IsLinked() const { return linkable_ && commands_.GetLink(); }
    // False only when matching is enabled and Match is false.
    bool NeedsExactMatch() const { return !(matchEnabled_ && !match_); }
    bool IsSection() const { return paramType_ == kTypeSection; }

    // ---- condition list ----
    ObCondList* GetCondList() const { return condList_; }
    // Destroys the list held before (unless it is list itself) and takes ownership of list.
    void SetCondList(ObCondList* list);
    // The list's join type, or -1 without a list.
    long GetCondListType() const;
    // Does nothing without a list.
    void SetCondListType(long joinType);

    // Build a condition on watched from the operator and desired value(s) and add it to this
    // parameter's list (created as an OR list on the first add): 0, 3009 when an equal condition is
    // there (the new one is destroyed), 3011 for a null watched parameter. The last argument of
    // AddConditionString has no meaning in this library; it is accepted and not used.
    int AddConditionInt(ObParam* watched, long op, long value);
    int AddConditionFloat(ObParam* watched, long op, double value);
    int AddConditionString(ObParam* watched, long op, const UtCString& value, long unused);
    int AddConditionPtr(ObParam* watched, long op, void* value);
    int AddConditionMaterial(ObParam* watched, long op, long color, long transparency,
                             int transpValid, const MatDbKey& key, bool useMaterial);
    // Remove the equal condition: 0, 1005 when there is none or no list, 3011 for a null watched
    // parameter (checked first). A list that becomes empty stays attached.
    int DelConditionInt(ObParam* watched, long op, long value);
    int DelConditionFloat(ObParam* watched, long op, double value);
    int DelConditionString(ObParam* watched, long op, const UtCString& value);
    int DelConditionPtr(ObParam* watched, long op, void* value);
    int DelConditionMaterial(ObParam* watched, long op, long color, long transparency,
                             int transpValid, const MatDbKey& key, bool useMaterial);

    // ---- kind-blind readers: the value when this parameter is of the named kind, else a neutral
    // value (0, 0.0, false, the shared empty string, the empty key) ----
    long GetValueInt() const;          // any ObParamInt, Pen, Color and Lt included
    long GetValueSafeInt() const;      // the same, clamped to its active borders
    double GetValueFloat() const;      // ObParamFloat
    double GetValueSafeFloat() const;  // the same, clamped
    const UtCString& GetValueString()
        const;                         // String (Button caption), or an option's selected text
    bool GetValueBool() const;         // ObParamBool: value non-zero
    long GetValueSelection() const;    // ObParamOption: selection index
    long GetValueSelectionId() const;  // ObParamOption: id of the selected item
    long GetValuePen() const;          // ObParamPen
    long GetValueColor() const;  // ObParamColor clamped to its borders, else a material's colour
    long GetValueLt() const;     // ObParamLt
    long GetValueTransparency() const;     // ObParamMaterial
    int GetValueTranspValid() const;       // ObParamMaterial
    bool GetValueUseMaterial() const;      // ObParamMaterial
    MatDbKey GetValueMaterialKey() const;  // ObParamMaterial

  protected:
    // For the kinds' setters that always mark the parameter as changed.
    void MarkChanged() { state_ = kStateChanged; }
    // The compare-first rule: only a different value is stored, and it marks the parameter as
    // changed.
    template <typename T, typename U>
    void StoreIfDifferent(T& field, U value) {
        const T v = static_cast<T>(value);
        if (field == v) return;
        field = v;
        state_ = kStateChanged;
    }
    // Whether the bases are equal and other is of kind T: the first two steps of CompareTo.
    // *result receives 127/129 or 0 when the value comparison is not to be made.
    template <typename T>
    const T* SameKind(const ObParam& other, int* result) const {
        if (!(*this == other)) {
            *result = int64_t{paramType_} - other.paramType_ < 0 ? 127 : 129;
            return nullptr;
        }
        *result = 0;
        return dynamic_cast<const T*>(&other);
    }

  private:
    int32_t paramId_ = 0;
    UtCString paramName_;
    int32_t paramType_ = kTypeBase;
    uint16_t attrSubType_ = 0;
    int32_t valid_ = 1;
    uint16_t state_ = kStateCreated;
    ObCondList* condList_ = nullptr;
    Commands commands_;
    UtCString sourceAttrName_;
    bool detailed_ = false;
    bool locked_ = false;
    bool representative_ = false;
    bool linkable_ = false;
    bool changeable_ = true;
    bool match_ = true;
    bool matchEnabled_ = false;
    bool onFilter_ = true;
};
