// Parameters that hold records of the element layer: a basic parameter record (ObParamBasePar),
// an element parameter record (ObParamElemPar) and a hatch record (ObParamHatchPar).
//
// The records are polymorphic bases that the host derives from; this library only holds them:
//  - ObParamBasePar owns a private copy of the CParam it is given: it asks the given record for an
//    empty instance of its own kind (NewInstance) and assigns the given record to it (Assign). A
//    null record leaves the pointer null. Copies of the parameter copy the record the same way.
//  - ObParamElemPar and ObParamHatchPar only point to their record (not owned; the host keeps it
//    alive as long as the parameter).
// ObParamBasePar sets no type code of its own (0). CompareTo of the three kinds gives 0 once the
// bases are equal (see ObParam.h): the records' order belongs to the element layer.
#pragma once

#include "kbase/params/ObParam.h"

// A basic-parameter record of the element layer.
class KBASE_API CParam {
  public:
    CParam() = default;
    virtual ~CParam();
    // A new, empty record of the same kind as this one, owned by the caller.
    virtual CParam* NewInstance() const;
    // Copies other's contents into this record (both are of the same kind when called by
    // ObParamBasePar). The base has no contents.
    virtual void Assign(const CParam& other);

  protected:
    CParam(const CParam&) = default;
    CParam& operator=(const CParam&) = default;
};

// An element parameter record of the element layer.
class KBASE_API CcElemPar {
  public:
    CcElemPar() = default;
    virtual ~CcElemPar();
    // Whether the element's area is filled (0 in the base).
    virtual int GetFilled() const;

  protected:
    CcElemPar(const CcElemPar&) = default;
    CcElemPar& operator=(const CcElemPar&) = default;
};

// A hatch record of the element layer.
class KBASE_API CcHatchPar {
  public:
    CcHatchPar() = default;
    virtual ~CcHatchPar();

  protected:
    CcHatchPar(const CcHatchPar&) = default;
    CcHatchPar& operator=(const CcHatchPar&) = default;
};

class KBASE_API ObParamBasePar : public ObParam {
  public:
    explicit ObParamBasePar(const CParam* record = nullptr);
    ObParamBasePar(long id, const UtCString& name, const CParam* record);
    ObParamBasePar(const ObParamBasePar& other);
    ~ObParamBasePar() override;  // destroys the private copy
    ObParamBasePar* Clone() const override;
    int CompareTo(const ObParam& other) const override;
    ObParamBasePar& operator=(const ObParamBasePar& other);

    // The private copy (null when none was given).
    CParam* basePar() const { return basePar_; }

  private:
    static CParam* CopyOf(const CParam* record);
    CParam* basePar_ = nullptr;
};

class KBASE_API ObParamElemPar : public ObParam {
  public:
    ObParamElemPar();
    ObParamElemPar(long id, const UtCString& name, CcElemPar* record, int freeLinetypes,
                   int linetype0);
    ObParamElemPar(const ObParamElemPar& other);
    ~ObParamElemPar() override;
    ObParamElemPar* Clone() const override;
    int CompareTo(const ObParam& other) const override;
    ObParamElemPar& operator=(const ObParamElemPar& other);

    CcElemPar* elemPar() const { return elemPar_; }
    int IsEnabledFreeLinetypes() const { return enabledFreeLinetypes_; }
    int IsEnabledLinetype0() const { return enabledLinetype0_; }
    // The record's filled flag; 0 without a record.
    int GetFilled() const { return elemPar_ != nullptr ? elemPar_->GetFilled() : 0; }

  private:
    CcElemPar* elemPar_ = nullptr;
    int enabledFreeLinetypes_ = 0;
    int enabledLinetype0_ = 0;
};

class KBASE_API ObParamHatchPar : public ObParam {
  public:
    ObParamHatchPar();
    ObParamHatchPar(long id, const UtCString& name, CcHatchPar* record);
    ObParamHatchPar(const ObParamHatchPar& other);
    ~ObParamHatchPar() override;
    ObParamHatchPar* Clone() const override;
    int CompareTo(const ObParam& other) const override;
    ObParamHatchPar& operator=(const ObParamHatchPar& other);

    CcHatchPar* hatchPar() const { return hatchPar_; }
    // Whether the dialog offers "no hatch" (false for a new parameter).
    bool IsEnabledNoHatchPar() const { return enabledNoHatchPar_; }
    void SetEnabledNoHatchPar(bool on) { enabledNoHatchPar_ = on; }

  private:
    CcHatchPar* hatchPar_ = nullptr;
    bool enabledNoHatchPar_ = false;
};
