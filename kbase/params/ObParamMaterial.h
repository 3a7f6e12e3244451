// ObParamMaterial: the material of an element: a key into the host's material database, and the
// colour and transparency used when the material is not (UseMaterial false) or cannot be shown.
//
// The value (GetValue/SetValue) is the key. Every setter of this kind compares first and marks the
// parameter as changed only for a different value. CompareTo once the bases are equal (see
// ObParam.h) orders by key, then colour, transparency, transparency-valid flag and use-material
// flag, and gives 0 when all are equal.
#pragma once

#include "kbase/params/MatDbKey.h"
#include "kbase/params/ObParam.h"

class KBASE_API ObParamMaterial : public ObParam {
  public:
    ObParamMaterial();
    ObParamMaterial(long id, const UtCString& name, const MatDbKey& key);
    ObParamMaterial(const ObParamMaterial& other);
    ~ObParamMaterial() override;
    ObParamMaterial* Clone() const override;
    int CompareTo(const ObParam& other) const override;
    ObParamMaterial& operator=(const ObParamMaterial& other);

    const MatDbKey& GetValue() const { return key_; }
    void SetValue(const MatDbKey& key) { StoreIfDifferent(key_, key); }
    long GetColor() const { return color_; }
    void SetColor(long color) { StoreIfDifferent(color_, color); }
    long GetTransparency() const { return transparency_; }
    void SetTransparency(long t) { StoreIfDifferent(transparency_, t); }
    int GetTranspValid() const { return transpValid_; }
    void SetTranspValid(int valid) { StoreIfDifferent(transpValid_, valid); }
    bool GetUseMaterial() const { return useMaterial_; }
    void SetUseMaterial(bool use) { StoreIfDifferent(useMaterial_, use); }

  private:
    int32_t color_ = 0;
    int32_t transparency_ = 0;
    int transpValid_ = 0;
    bool useMaterial_ = false;
    MatDbKey key_;
};
