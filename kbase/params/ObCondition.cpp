// Conditions and the condition list.
#include "kbase/params/ObCondition.h"

#include <functional>
#include <memory>

#include "kbase/params/ObParam.h"
#include "kbase/params/ObParamMaterial.h"
#include "kbase/params/ObParamOption.h"
#include "kbase/params/ObParamScalar.h"
#include "kbase/params/internal/text.h"

namespace {

// Actual against desired by operator; an unknown operator is false.
template <typename T, typename Less = std::less<T>>
bool Holds(long op, const T& actual, const T& desired, Less less = Less()) {
    switch (op) {
        case ObCondition::kEqual:
            return actual == desired;
        case ObCondition::kNotEqual:
            return !(actual == desired);
        case ObCondition::kLess:
            return less(actual, desired);
        case ObCondition::kGreater:
            return less(desired, actual);
        default:
            return false;
    }
}

// The integer value a condition reads from the watched parameter; false when its type (or its
// class) holds none.
bool IntValueOf(const ObParam& p, long* value) {
    switch (p.GetParamType()) {
        case ObParam::kTypeInt:
        case ObParam::kTypePen:  // and Color
        case ObParam::kTypeLt:
            if (const auto* i = dynamic_cast<const ObParamInt*>(&p)) {
                *value = i->GetValue();
                return true;
            }
            return false;
        case ObParam::kTypeBool:
            if (const auto* b = dynamic_cast<const ObParamBool*>(&p)) {
                *value = b->GetValue();
                return true;
            }
            return false;
        case ObParam::kTypeOption:
            if (const auto* o = dynamic_cast<const ObParamOption*>(&p)) {
                *value = o->GetValue();
                return true;
            }
            return false;
        default:
            return false;
    }
}

// The text a string condition reads, or null when the watched parameter has none.
const UtCString* TextOf(const ObParam& p) {
    if (p.GetParamType() == ObParam::kTypeString) {
        const auto* s = dynamic_cast<const ObParamString*>(&p);
        return s != nullptr ? &s->GetValue() : nullptr;
    }
    if (p.GetParamType() == ObParam::kTypeOption) {
        const auto* o = dynamic_cast<const ObParamOption*>(&p);
        return o != nullptr ? &o->GetSelectedText() : nullptr;
    }
    return nullptr;
}

bool SameText(const UtCString& a, const UtCString& b) {
    return a.GetLength() == b.GetLength() && a.CompareTo(b) == 0;
}

struct TextLess {
    bool operator()(const UtCString& a, const UtCString& b) const { return a.CompareTo(b) < 0; }
};

bool MaterialHolds(long op, const ObParamMaterial& m, const ObConditionMaterial& c) {
    const bool equal =
        m.GetColor() == c.GetDesColor() && m.GetTransparency() == c.GetDesTransparency() &&
        m.GetValue() == c.GetDesMaterialKey() && m.GetUseMaterial() == c.GetDesUseMaterial();
    switch (op) {
        case ObCondition::kEqual:
            return equal;
        case ObCondition::kNotEqual:
            return !equal;
        case ObCondition::kLess:
        case ObCondition::kGreater:
            if (m.GetUseMaterial() != c.GetDesUseMaterial()) return false;
            if (c.GetDesUseMaterial()) return Holds(op, m.GetValue(), c.GetDesMaterialKey());
            return Holds(op, m.GetColor(), c.GetDesColor());
        default:
            return false;
    }
}

// Equality of the desired values of two conditions of kind T.
template <typename T>
bool SameDesired(const ObCondition& a, const ObCondition& b) {
    const auto* x = dynamic_cast<const T*>(&a);
    const auto* y = dynamic_cast<const T*>(&b);
    return x != nullptr && y != nullptr && x->GetDesValue() == y->GetDesValue();
}

template <>
bool SameDesired<ObConditionString>(const ObCondition& a, const ObCondition& b) {
    const auto* x = dynamic_cast<const ObConditionString*>(&a);
    const auto* y = dynamic_cast<const ObConditionString*>(&b);
    return x != nullptr && y != nullptr &&
           x->GetDesValue().encodingType() == y->GetDesValue().encodingType() &&
           SameText(x->GetDesValue(), y->GetDesValue());
}

template <>
bool SameDesired<ObConditionMaterial>(const ObCondition& a, const ObCondition& b) {
    const auto* x = dynamic_cast<const ObConditionMaterial*>(&a);
    const auto* y = dynamic_cast<const ObConditionMaterial*>(&b);
    return x != nullptr && y != nullptr && x->GetDesColor() == y->GetDesColor() &&
           x->GetDesTransparency() == y->GetDesTransparency() &&
           x->GetDesMaterialKey() == y->GetDesMaterialKey() &&
           x->GetDesUseMaterial() == y->GetDesUseMaterial();
}

// Whether entry equals probe: same watched parameter and operator, then by the probe's kind.
bool Equal(const ObCondition& entry, const ObCondition& probe) {
    if (entry.GetParam() != probe.GetParam() || entry.GetCondition() != probe.GetCondition()) {
        return false;
    }
    switch (probe.GetCondType()) {
        case ObCondition::kInt:
            return SameDesired<ObConditionInt>(entry, probe);
        case ObCondition::kFloat:
            return SameDesired<ObConditionFloat>(entry, probe);
        case ObCondition::kString:
            return SameDesired<ObConditionString>(entry, probe);
        case ObCondition::kPtr:
            return SameDesired<ObConditionPtr>(entry, probe);
        case ObCondition::kMaterial:
            return SameDesired<ObConditionMaterial>(entry, probe);
        default:
            return true;  // kind 0 or unknown: parameter and operator decide
    }
}

}  // namespace

// ---- conditions ----

ObCondition::ObCondition(ObParam* param, long op)
    : param_(param), condition_(static_cast<int32_t>(op)) {}

ObCondition::~ObCondition() = default;

int ObCondition::ConditionFulfilled() const {
    return 1;
}

ObConditionInt::ObConditionInt() {
    condType_ = kInt;
}

ObConditionInt::ObConditionInt(ObParam* param, long op, long value)
    : ObCondition(param, op), desValue_(static_cast<int32_t>(value)) {
    condType_ = kInt;
}

int ObConditionInt::ConditionFulfilled() const {
    if (param_ == nullptr) return 0;
    long actual = desValue_;  // stands in when the parameter holds no integer
    IntValueOf(*param_, &actual);
    return Holds(condition_, actual, long{desValue_}) ? 1 : 0;
}

ObConditionFloat::ObConditionFloat() {
    condType_ = kFloat;
}

ObConditionFloat::ObConditionFloat(ObParam* param, long op, double value)
    : ObCondition(param, op), desValue_(value) {
    condType_ = kFloat;
}

int ObConditionFloat::ConditionFulfilled() const {
    if (param_ == nullptr) return 0;
    double actual = desValue_;
    if (param_->GetParamType() == ObParam::kTypeFloat) {
        if (const auto* f = dynamic_cast<const ObParamFloat*>(param_)) actual = f->GetValue();
    }
    return Holds(condition_, actual, desValue_) ? 1 : 0;
}

ObConditionString::ObConditionString() {
    condType_ = kString;
}

ObConditionString::ObConditionString(ObParam* param, long op, const UtCString& value)
    : ObCondition(param, op), desValue_(kbase_params_internal::OwnText(value)) {
    condType_ = kString;
}

void ObConditionString::SetDesValue(const UtCString& value) {
    kbase_params_internal::StoreText(desValue_, value);
}

int ObConditionString::ConditionFulfilled() const {
    if (param_ == nullptr) return 0;
    const UtCString* actual = TextOf(*param_);
    if (actual == nullptr) return 1;  // other types: true whatever the operator
    if (condition_ == kEqual) return SameText(*actual, desValue_) ? 1 : 0;
    if (condition_ == kNotEqual) return SameText(*actual, desValue_) ? 0 : 1;
    return Holds(condition_, *actual, desValue_, TextLess()) ? 1 : 0;
}

ObConditionPtr::ObConditionPtr() {
    condType_ = kPtr;
}

ObConditionPtr::ObConditionPtr(ObParam* param, long op, void* value)
    : ObCondition(param, op), desValue_(value) {
    condType_ = kPtr;
}

int ObConditionPtr::ConditionFulfilled() const {
    if (param_ == nullptr) return 0;
    void* actual = desValue_;
    if (param_->GetParamType() == ObParam::kTypePtr) {
        if (const auto* p = dynamic_cast<const ObParamPtr*>(param_)) actual = p->GetValue();
    }
    return Holds(condition_, actual, desValue_) ? 1 : 0;
}

ObConditionMaterial::ObConditionMaterial() {
    condType_ = kMaterial;
}

ObConditionMaterial::ObConditionMaterial(ObParam* param, long op) : ObCondition(param, op) {
    condType_ = kMaterial;
}

int ObConditionMaterial::ConditionFulfilled() const {
    if (param_ == nullptr) return 0;
    const auto* m = param_->GetParamType() == ObParam::kTypeMaterial
                        ? dynamic_cast<const ObParamMaterial*>(param_)
                        : nullptr;
    if (m == nullptr) return 1;  // other types: true whatever the operator
    return MaterialHolds(condition_, *m, *this) ? 1 : 0;
}

// ---- ObCondList ----

ObCondList::ObCondList(long joinType) : joinType_(static_cast<int32_t>(joinType)) {}

ObCondList::~ObCondList() {
    ResetCondList();
}

_ObCondListElem* ObCondList::Find(const ObCondition* probe) const {
    if (probe == nullptr) return nullptr;
    for (_ObCondListElem* e = first_; e != nullptr; e = e->next) {
        if (Equal(*e->cond, *probe)) return e;
    }
    return nullptr;
}

int ObCondList::AddCond(ObCondition* cond) {
    if (cond == nullptr) return kObParamNullArgument;
    std::unique_ptr<ObCondition> owned(
        cond);  // ours from here on, also when the entry cannot be had
    if (Find(cond) != nullptr) return kObParamDuplicate;
    auto* e = new _ObCondListElem{cond, nullptr, last_};
    owned.release();
    if (last_ != nullptr) {
        last_->next = e;
    } else {
        first_ = e;
    }
    last_ = e;
    ++count_;
    return kObParamOk;
}

int ObCondList::DelCond(const ObCondition* cond) {
    if (cond == nullptr) return kObParamNullArgument;
    _ObCondListElem* e = Find(cond);
    if (e == nullptr) return kObParamNotFound;
    (e->prev != nullptr ? e->prev->next : first_) = e->next;
    (e->next != nullptr ? e->next->prev : last_) = e->prev;
    if (cur_ == e) cur_ = nullptr;
    delete e->cond;
    delete e;
    --count_;
    return kObParamOk;
}

void ObCondList::ResetCondList() {
    for (_ObCondListElem* e = first_; e != nullptr;) {
        _ObCondListElem* next = e->next;
        delete e->cond;
        delete e;
        e = next;
    }
    first_ = last_ = cur_ = nullptr;
    count_ = 0;
}

ObCondition* ObCondList::FindCond(const ObCondition* cond, int setCurrent) {
    _ObCondListElem* e = Find(cond);
    if (e == nullptr) return nullptr;
    if (setCurrent != 0) cur_ = e;
    return e->cond;
}

namespace {
// The condition at e (null for none); the cursor moves there when asked to.
ObCondition* StepTo(_ObCondListElem* e, int move, _ObCondListElem*& cur) {
    if (move != 0) cur = e;
    return e != nullptr ? e->cond : nullptr;
}
}  // namespace

ObCondition* ObCondList::GetFirstCond(int setCurrent) {
    return first_ != nullptr ? StepTo(first_, setCurrent, cur_) : nullptr;
}

ObCondition* ObCondList::GetLastCond(int setCurrent) {
    return last_ != nullptr ? StepTo(last_, setCurrent, cur_) : nullptr;
}

ObCondition* ObCondList::GetNextCond(int move) {
    return cur_ != nullptr ? StepTo(cur_->next, move, cur_) : nullptr;
}

ObCondition* ObCondList::GetPrevCond(int move) {
    return cur_ != nullptr ? StepTo(cur_->prev, move, cur_) : nullptr;
}

int ObCondList::ConditionsFulfilled() const {
    bool result = joinType_ == kAnd;
    for (const _ObCondListElem* e = first_; e != nullptr; e = e->next) {
        if (joinType_ == kAnd) {
            if (!result) break;
            if (e->cond->ConditionFulfilled() == 0) result = false;
        } else if (joinType_ == kOr) {
            if (result) break;
            if (e->cond->ConditionFulfilled() != 0) result = true;
        } else {
            break;  // unknown join type: false, nothing evaluated
        }
    }
    return result ? 1 : 0;
}
