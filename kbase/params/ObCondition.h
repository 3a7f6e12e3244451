// Conditions: they tie the availability of one parameter to the value of another ("enable the
// insulation thickness only when the insulation option has selection 2").
//
// An ObCondition watches a parameter (not owned) and compares its actual value with a desired one
// by an operator: 0 equal, 1 not equal, 2 less (actual < desired), 3 greater. Each kind reads the
// watched parameter only when its type code suits the kind:
//
//   kind      reads type codes                          another type code gives
//   Int       1 Int, 4 Bool, 5 Option (selection),      the desired value stands in for the
//             7 Pen/Color, 8 Lt                         actual one: equal true, the others false
//   Float     2 Float                                   (as for Int)
//   Ptr       6 Ptr                                     (as for Int)
//   String    3 String (text), 5 Option (selected text) true, whatever the operator
//   Material  9 Material                                true, whatever the operator
//
// The type code decides; a parameter whose class does not hold that kind of value (a type code
// changed with SetParamType) counts as another type. A null watched parameter makes every kind
// false. An unknown operator makes a condition false, except in the two "true whatever the
// operator" rows above: where the two rules meet, the evaluation by type wins, so a string or
// material condition on another type is true for an unknown operator too. Reals are compared
// exactly; texts are equal when lengths and contents are, and otherwise ordered by
// UtCString::CompareTo. Material: equal when colour, transparency, key and use-material flag all
// equal the desired ones; not equal is its negation; for less and greater the use-material flags
// must be equal (else false), and then the keys are ordered when the desired flag is set, otherwise
// the colours.
//
// ObCondList owns its conditions in a doubly linked list and joins them with AND (0) or OR (1):
// ConditionsFulfilled walks from the first and stops as soon as the result is settled; an empty AND
// list is true, an empty OR list false, and any other join type false. A list never holds two
// equal conditions. Equality (AddCond, DelCond, FindCond): the same watched parameter (identity)
// and operator, and then, by the probe's kind (GetCondType), an entry of that same kind with an
// equal desired value: Int and Ptr equal, Float exactly equal, String the same encoding and the
// same text, Material equal colour, transparency, key and use-material flag. A probe of kind 0 or
// of an unknown kind matches the first entry with the same parameter and operator.
#pragma once

#include <cstdint>

#include "kbase/export.h"
#include "kbase/params/MatDbKey.h"
#include "kbase/text/UtCString.h"

class ObParam;

class KBASE_API ObCondition {
  public:
    enum : int32_t { kBase = 0, kInt = 1, kFloat = 2, kString = 3, kPtr = 4, kMaterial = 5 };
    enum : int32_t { kEqual = 0, kNotEqual = 1, kLess = 2, kGreater = 3 };

    ObCondition() = default;
    ObCondition(ObParam* param, long op);
    ObCondition(const ObCondition&) = default;
    ObCondition& operator=(const ObCondition&) = default;
    virtual ~ObCondition();
    // 1 when fulfilled, else 0. The base is always fulfilled.
    virtual int ConditionFulfilled() const;

    long GetCondType() const { return condType_; }
    void SetCondType(long type) { condType_ = static_cast<int32_t>(type); }
    ObParam* GetParam() const { return param_; }
    void SetParam(ObParam* param) { param_ = param; }
    long GetCondition() const { return condition_; }
    void SetCondition(long op) { condition_ = static_cast<int32_t>(op); }

  protected:
    int32_t condType_ = kBase;
    ObParam* param_ = nullptr;
    int32_t condition_ = kEqual;
};

class KBASE_API ObConditionInt : public ObCondition {
  public:
    ObConditionInt();
    ObConditionInt(ObParam* param, long op, long value);
    int ConditionFulfilled() const override;
    long GetDesValue() const { return desValue_; }
    void SetDesValue(long value) { desValue_ = static_cast<int32_t>(value); }

  private:
    int32_t desValue_ = 0;
};

class KBASE_API ObConditionFloat : public ObCondition {
  public:
    ObConditionFloat();
    ObConditionFloat(ObParam* param, long op, double value);
    int ConditionFulfilled() const override;
    double GetDesValue() const { return desValue_; }
    void SetDesValue(double value) { desValue_ = value; }

  private:
    double desValue_ = 0.0;
};

class KBASE_API ObConditionString : public ObCondition {
  public:
    ObConditionString();
    ObConditionString(ObParam* param, long op, const UtCString& value);
    int ConditionFulfilled() const override;
    const UtCString& GetDesValue() const { return desValue_; }
    void SetDesValue(const UtCString& value);

  private:
    UtCString desValue_;
};

class KBASE_API ObConditionPtr : public ObCondition {
  public:
    ObConditionPtr();
    ObConditionPtr(ObParam* param, long op, void* value);
    int ConditionFulfilled() const override;
    void* GetDesValue() const { return desValue_; }
    void SetDesValue(void* value) { desValue_ = value; }

  private:
    void* desValue_ = nullptr;
};

// The desired material values are set after construction (all 0, empty key, false until then).
class KBASE_API ObConditionMaterial : public ObCondition {
  public:
    ObConditionMaterial();
    ObConditionMaterial(ObParam* param, long op);
    int ConditionFulfilled() const override;
    long GetDesColor() const { return desColor_; }
    void SetDesColor(long color) { desColor_ = static_cast<int32_t>(color); }
    long GetDesTransparency() const { return desTransparency_; }
    void SetDesTransparency(long t) { desTransparency_ = static_cast<int32_t>(t); }
    const MatDbKey& GetDesMaterialKey() const { return desMaterialKey_; }
    void SetDesMaterialKey(const MatDbKey& key) { desMaterialKey_ = key; }
    int GetDesTranspValid() const { return desTranspValid_; }
    void SetDesTranspValid(int valid) { desTranspValid_ = valid; }
    bool GetDesUseMaterial() const { return desUseMaterial_; }
    void SetDesUseMaterial(bool use) { desUseMaterial_ = use; }

  private:
    int32_t desColor_ = 0;
    int32_t desTransparency_ = 0;
    MatDbKey desMaterialKey_;
    int desTranspValid_ = 0;
    bool desUseMaterial_ = false;
};

// An element of ObCondList's chain.
struct _ObCondListElem {
    ObCondition* cond;  // owned
    _ObCondListElem* next;
    _ObCondListElem* prev;
};

// An owning list of conditions with a cursor (the current element). Not copyable.
class KBASE_API ObCondList {
  public:
    enum : int32_t { kAnd = 0, kOr = 1 };

    explicit ObCondList(long joinType = kAnd);
    ObCondList(const ObCondList&) = delete;
    ObCondList& operator=(const ObCondList&) = delete;
    virtual ~ObCondList();  // destroys every condition

    long GetJoinType() const { return joinType_; }
    void SetJoinType(long joinType) { joinType_ = static_cast<int32_t>(joinType); }
    long GetCondCount() const { return count_; }

    // Appends cond and takes ownership: 0. When an equal condition is present, cond is destroyed
    // and the result is 3009; a null cond gives 3011. The cursor does not move.
    int AddCond(ObCondition* cond);
    // Destroys the entry equal to the probe (which stays the caller's): 0, or 1005 when there is
    // none (3011 for a null probe). The cursor is cleared when it was on that entry.
    int DelCond(const ObCondition* cond);
    // Destroys every condition; the list is empty and has no cursor afterwards.
    void ResetCondList();
    // The entry equal to the probe, or null; with setCurrent non-zero it becomes current.
    ObCondition* FindCond(const ObCondition* cond, int setCurrent = 0);

    // The first / last condition (null for an empty list); with setCurrent non-zero that element
    // becomes current.
    ObCondition* GetFirstCond(int setCurrent = 1);
    ObCondition* GetLastCond(int setCurrent = 1);
    // The condition after / before the current element, or null at the end and when there is no
    // current element. With move non-zero the cursor steps there (past the end: no current
    // element).
    ObCondition* GetNextCond(int move = 1);
    ObCondition* GetPrevCond(int move = 1);
    ObCondition* GetCurCond() const { return cur_ != nullptr ? cur_->cond : nullptr; }

    // 1 when the conditions joined by the join type hold, else 0.
    int ConditionsFulfilled() const;

  private:
    _ObCondListElem* Find(const ObCondition* probe) const;

    int32_t joinType_;
    int32_t count_ = 0;
    _ObCondListElem* first_ = nullptr;
    _ObCondListElem* last_ = nullptr;
    _ObCondListElem* cur_ = nullptr;
};
