// ObParam: base fields, change tracking, copies, the condition operations and the kind-blind
// readers.
#include "kbase/params/ObParam.h"

#include <memory>

#include "kbase/params/ObCondition.h"
#include "kbase/params/ObParamMaterial.h"
#include "kbase/params/ObParamOption.h"
#include "kbase/params/ObParamScalar.h"
#include "kbase/params/internal/text.h"

namespace kbase_params_internal {

UtCString OwnText(const UtCString& src) {
    // Code page 0 is "the code page in use" rather than a code page: the bytes are the user's.
    if (src.encodingType() == 0) {
        const eUtEncodingType user = UtCString::systemEncodingType();
        return UtCString(src.ptr(), src.GetLength(), user, user);
    }
    return UtCString(src);
}

void StoreText(UtCString& dst, const UtCString& src) {
    if (&dst == &src) return;
    if (src.encodingType() != 0 && dst.encodingType() == src.encodingType()) {
        dst = src;  // same encoding: a plain copy of the bytes
        return;
    }
    UtCString own = OwnText(src);
    dst.destructor();
    dst.constructor(own);
}

const UtCString& EmptyText() {
    static const UtCString empty;
    return empty;
}

}  // namespace kbase_params_internal

using kbase_params_internal::OwnText;
using kbase_params_internal::StoreText;

ObParam::ObParam() = default;

ObParam::ObParam(long id, const UtCString& name)
    : paramId_(static_cast<int32_t>(id)), paramName_(OwnText(name)) {}

ObParam::ObParam(const ObParam& other) : ObParam() {
    *this = other;
}

ObParam::~ObParam() {
    delete condList_;
}

ObParam* ObParam::Clone() const {
    return new ObParam(*this);
}

int ObParam::CompareTo(const ObParam& other) const {
    int result = 0;
    SameKind<ObParam>(other, &result);
    return result;
}

ObParam& ObParam::operator=(const ObParam& other) {
    if (this == &other) return *this;
    paramId_ = other.paramId_;
    StoreText(paramName_, other.paramName_);
    paramType_ = other.paramType_;
    attrSubType_ = other.attrSubType_;
    valid_ = other.valid_;
    locked_ = other.locked_;
    representative_ = other.representative_;
    state_ = other.state_;
    detailed_ = other.detailed_;
    StoreText(sourceAttrName_, other.sourceAttrName_);
    linkable_ = other.linkable_;
    changeable_ = other.changeable_;
    matchEnabled_ = other.matchEnabled_;
    match_ = other.match_;
    onFilter_ = other.onFilter_;
    // The conditions watch parameters of the source's dialog: the target keeps none of its own
    // and takes none of the source's.
    SetCondList(nullptr);
    return *this;
}

bool ObParam::operator==(const ObParam& other) const {
    return paramId_ == other.paramId_ && paramType_ == other.paramType_ &&
           attrSubType_ == other.attrSubType_ && valid_ == other.valid_ &&
           locked_ == other.locked_ && representative_ == other.representative_ &&
           paramName_ == other.paramName_ && sourceAttrName_ == other.sourceAttrName_;
}

void ObParam::SetParamName(const UtCString& name) {
    StoreText(paramName_, name);
}
void ObParam::SetSourceAttrName(const UtCString& name) {
    StoreText(sourceAttrName_, name);
}

void ObParam::SetMatch(bool match) {
    matchEnabled_ = true;  // on every call, also when the value stays
    StoreIfDifferent(match_, match);
}

void ObParam::SetLinkable(bool linkable) {
    linkable_ = linkable;
    if (linkable) state_ = kStateChanged;  // also when it was linkable already
}

// ---- condition list ----

void ObParam::SetCondList(ObCondList* list) {
    if (list == condList_) return;
    if (condList_ != nullptr) {
        condList_->ResetCondList();
        delete condList_;
    }
    condList_ = list;
}

long ObParam::GetCondListType() const {
    return condList_ != nullptr ? condList_->GetJoinType() : -1;
}

void ObParam::SetCondListType(long joinType) {
    if (condList_ != nullptr) condList_->SetJoinType(joinType);
}

namespace {

// The add operations: a null watched parameter is refused before anything is built; the first
// condition creates an OR list. The condition is built first and a new list is kept only once it
// holds it: when memory runs out (std::bad_alloc) no empty OR list is left behind, which is never
// fulfilled and would disable the parameter.
template <typename Make>
int AddTo(ObCondList*& list, const ObParam* watched, Make make) {
    if (watched == nullptr) return kObParamNullArgument;
    std::unique_ptr<ObCondition> cond(make());
    std::unique_ptr<ObCondList> created;
    if (list == nullptr) created = std::make_unique<ObCondList>(ObCondList::kOr);
    const int rc = (list != nullptr ? list : created.get())->AddCond(cond.release());
    if (created) list = created.release();
    return rc;
}

int DelFrom(ObCondList* list, const ObCondition& probe) {
    if (probe.GetParam() == nullptr) return kObParamNullArgument;
    if (list == nullptr) return kObParamNotFound;
    return list->DelCond(&probe);
}

ObConditionMaterial MaterialProbe(ObParam* watched, long op, long color, long transparency,
                                  int transpValid, const MatDbKey& key, bool useMaterial) {
    ObConditionMaterial c(watched, op);
    c.SetDesColor(color);
    c.SetDesTransparency(transparency);
    c.SetDesTranspValid(transpValid);
    c.SetDesMaterialKey(key);
    c.SetDesUseMaterial(useMaterial);
    return c;
}

}  // namespace

int ObParam::AddConditionInt(ObParam* watched, long op, long value) {
    return AddTo(condList_, watched, [&] { return new ObConditionInt(watched, op, value); });
}

int ObParam::AddConditionFloat(ObParam* watched, long op, double value) {
    return AddTo(condList_, watched, [&] { return new ObConditionFloat(watched, op, value); });
}

int ObParam::AddConditionString(ObParam* watched, long op, const UtCString& value, long) {
    return AddTo(condList_, watched, [&] { return new ObConditionString(watched, op, value); });
}

int ObParam::AddConditionPtr(ObParam* watched, long op, void* value) {
    return AddTo(condList_, watched, [&] { return new ObConditionPtr(watched, op, value); });
}

int ObParam::AddConditionMaterial(ObParam* watched, long op, long color, long transparency,
                                  int transpValid, const MatDbKey& key, bool useMaterial) {
    return AddTo(condList_, watched, [&] {
        return new ObConditionMaterial(
            MaterialProbe(watched, op, color, transparency, transpValid, key, useMaterial));
    });
}

int ObParam::DelConditionInt(ObParam* watched, long op, long value) {
    return DelFrom(condList_, ObConditionInt(watched, op, value));
}

int ObParam::DelConditionFloat(ObParam* watched, long op, double value) {
    return DelFrom(condList_, ObConditionFloat(watched, op, value));
}

int ObParam::DelConditionString(ObParam* watched, long op, const UtCString& value) {
    return DelFrom(condList_, ObConditionString(watched, op, value));
}

int ObParam::DelConditionPtr(ObParam* watched, long op, void* value) {
    return DelFrom(condList_, ObConditionPtr(watched, op, value));
}

int ObParam::DelConditionMaterial(ObParam* watched, long op, long color, long transparency,
                                  int transpValid, const MatDbKey& key, bool useMaterial) {
    return DelFrom(condList_,
                   MaterialProbe(watched, op, color, transparency, transpValid, key, useMaterial));
}

// ---- kind-blind readers ----

namespace {
// read(*kind) when self is of kind K, else the neutral value.
template <typename K, typename R, typename F>
R ReadAs(const ObParam* self, R neutral, F read) {
    const K* p = dynamic_cast<const K*>(self);
    return p != nullptr ? static_cast<R>(read(*p)) : neutral;
}
}  // namespace

long ObParam::GetValueInt() const {
    return ReadAs<ObParamInt>(this, 0L, [](const ObParamInt& p) { return p.GetValue(); });
}
long ObParam::GetValueSafeInt() const {
    return ReadAs<ObParamInt>(this, 0L, [](const ObParamInt& p) { return p.GetValueSafe(); });
}
double ObParam::GetValueFloat() const {
    return ReadAs<ObParamFloat>(this, 0.0, [](const ObParamFloat& p) { return p.GetValue(); });
}
double ObParam::GetValueSafeFloat() const {
    return ReadAs<ObParamFloat>(this, 0.0, [](const ObParamFloat& p) { return p.GetValueSafe(); });
}

const UtCString& ObParam::GetValueString() const {
    if (const auto* s = dynamic_cast<const ObParamString*>(this)) return s->GetValue();
    if (const auto* o = dynamic_cast<const ObParamOption*>(this)) return o->GetSelectedText();
    return kbase_params_internal::EmptyText();
}

bool ObParam::GetValueBool() const {
    return ReadAs<ObParamBool>(this, false, [](const ObParamBool& p) { return p.GetValue() != 0; });
}
long ObParam::GetValueSelection() const {
    return ReadAs<ObParamOption>(this, 0L, [](const ObParamOption& p) { return p.GetValue(); });
}
long ObParam::GetValueSelectionId() const {
    return ReadAs<ObParamOption>(this, 0L,
                                 [](const ObParamOption& p) { return p.GetSelectedId(); });
}
long ObParam::GetValuePen() const {
    return ReadAs<ObParamPen>(this, 0L, [](const ObParamPen& p) { return p.GetValue(); });
}

long ObParam::GetValueColor() const {
    if (const auto* c = dynamic_cast<const ObParamColor*>(this)) return c->GetValueSafe();
    if (const auto* m = dynamic_cast<const ObParamMaterial*>(this)) return m->GetColor();
    return 0;
}

long ObParam::GetValueLt() const {
    return ReadAs<ObParamLt>(this, 0L, [](const ObParamLt& p) { return p.GetValue(); });
}
long ObParam::GetValueTransparency() const {
    return ReadAs<ObParamMaterial>(this, 0L,
                                   [](const ObParamMaterial& p) { return p.GetTransparency(); });
}
int ObParam::GetValueTranspValid() const {
    return ReadAs<ObParamMaterial>(this, 0,
                                   [](const ObParamMaterial& p) { return p.GetTranspValid(); });
}
bool ObParam::GetValueUseMaterial() const {
    return ReadAs<ObParamMaterial>(this, false,
                                   [](const ObParamMaterial& p) { return p.GetUseMaterial(); });
}
MatDbKey ObParam::GetValueMaterialKey() const {
    return ReadAs<ObParamMaterial>(this, MatDbKey(),
                                   [](const ObParamMaterial& p) { return p.GetValue(); });
}
