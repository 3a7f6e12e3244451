// Parameters that hold records of the element layer.
#include "kbase/params/ObParamRecords.h"

CParam::~CParam() = default;
CParam* CParam::NewInstance() const {
    return new CParam;
}
void CParam::Assign(const CParam&) {}

CcElemPar::~CcElemPar() = default;
int CcElemPar::GetFilled() const {
    return 0;
}

CcHatchPar::~CcHatchPar() = default;

// ---- ObParamBasePar ----

CParam* ObParamBasePar::CopyOf(const CParam* record) {
    if (record == nullptr) return nullptr;
    CParam* copy = record->NewInstance();
    if (copy != nullptr) copy->Assign(*record);
    return copy;
}

ObParamBasePar::ObParamBasePar(const CParam* record) : basePar_(CopyOf(record)) {}

ObParamBasePar::ObParamBasePar(long id, const UtCString& name, const CParam* record)
    : ObParam(id, name), basePar_(CopyOf(record)) {}

ObParamBasePar::ObParamBasePar(const ObParamBasePar& other)
    : ObParam(other), basePar_(CopyOf(other.basePar_)) {}

ObParamBasePar::~ObParamBasePar() {
    delete basePar_;
}

ObParamBasePar* ObParamBasePar::Clone() const {
    return new ObParamBasePar(*this);
}

int ObParamBasePar::CompareTo(const ObParam& other) const {
    int result = 0;
    SameKind<ObParamBasePar>(other, &result);
    return result;
}

ObParamBasePar& ObParamBasePar::operator=(const ObParamBasePar& other) {
    ObParam::operator=(other);
    if (this == &other) return *this;
    CParam* copy = CopyOf(other.basePar_);
    delete basePar_;
    basePar_ = copy;
    return *this;
}

// ---- ObParamElemPar ----

ObParamElemPar::ObParamElemPar() {
    SetParamType(kTypeElemPar);
}

ObParamElemPar::ObParamElemPar(long id, const UtCString& name, CcElemPar* record, int freeLinetypes,
                               int linetype0)
    : ObParam(id, name),
      elemPar_(record),
      enabledFreeLinetypes_(freeLinetypes),
      enabledLinetype0_(linetype0) {
    SetParamType(kTypeElemPar);
}

ObParamElemPar::ObParamElemPar(const ObParamElemPar& other) = default;
ObParamElemPar::~ObParamElemPar() = default;

ObParamElemPar* ObParamElemPar::Clone() const {
    return new ObParamElemPar(*this);
}

int ObParamElemPar::CompareTo(const ObParam& other) const {
    int result = 0;
    SameKind<ObParamElemPar>(other, &result);
    return result;
}

ObParamElemPar& ObParamElemPar::operator=(const ObParamElemPar& other) {
    ObParam::operator=(other);
    elemPar_ = other.elemPar_;
    enabledFreeLinetypes_ = other.enabledFreeLinetypes_;
    enabledLinetype0_ = other.enabledLinetype0_;
    return *this;
}

// ---- ObParamHatchPar ----

ObParamHatchPar::ObParamHatchPar() {
    SetParamType(kTypeHatchPar);
}

ObParamHatchPar::ObParamHatchPar(long id, const UtCString& name, CcHatchPar* record)
    : ObParam(id, name), hatchPar_(record) {
    SetParamType(kTypeHatchPar);
}

ObParamHatchPar::ObParamHatchPar(const ObParamHatchPar& other) = default;
ObParamHatchPar::~ObParamHatchPar() = default;

ObParamHatchPar* ObParamHatchPar::Clone() const {
    return new ObParamHatchPar(*this);
}

int ObParamHatchPar::CompareTo(const ObParam& other) const {
    int result = 0;
    SameKind<ObParamHatchPar>(other, &result);
    return result;
}

ObParamHatchPar& ObParamHatchPar::operator=(const ObParamHatchPar& other) {
    ObParam::operator=(other);
    hatchPar_ = other.hatchPar_;
    enabledNoHatchPar_ = other.enabledNoHatchPar_;
    return *this;
}
