// ObParamMaterial: key, colour and transparency of an element's material.
#include "kbase/params/ObParamMaterial.h"

namespace {
template <typename T>
int Order(const T& a, const T& b) {
    return a < b ? -1 : (b < a ? 1 : 0);
}
}  // namespace

ObParamMaterial::ObParamMaterial() {
    SetParamType(kTypeMaterial);
}

ObParamMaterial::ObParamMaterial(long id, const UtCString& name, const MatDbKey& key)
    : ObParam(id, name), key_(key) {
    SetParamType(kTypeMaterial);
}

ObParamMaterial::ObParamMaterial(const ObParamMaterial& other) = default;
ObParamMaterial::~ObParamMaterial() = default;

ObParamMaterial* ObParamMaterial::Clone() const {
    return new ObParamMaterial(*this);
}

int ObParamMaterial::CompareTo(const ObParam& other) const {
    int result = 0;
    const ObParamMaterial* o = SameKind<ObParamMaterial>(other, &result);
    if (o == nullptr) return result;
    if ((result = key_.CompareTo(o->key_)) != 0) return result;
    if ((result = Order(color_, o->color_)) != 0) return result;
    if ((result = Order(transparency_, o->transparency_)) != 0) return result;
    if ((result = Order(transpValid_, o->transpValid_)) != 0) return result;
    return Order(useMaterial_, o->useMaterial_);
}

ObParamMaterial& ObParamMaterial::operator=(const ObParamMaterial& other) {
    ObParam::operator=(other);
    color_ = other.color_;
    transparency_ = other.transparency_;
    transpValid_ = other.transpValid_;
    useMaterial_ = other.useMaterial_;
    key_ = other.key_;
    return *this;
}
