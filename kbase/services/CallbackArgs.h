// CallbackArgs: the named, typed parameters of an event and its handled flag.
//
// Parameters keep the order in which they were added and are owned by the arguments until Clear or
// destruction. GetParamByName returns the first parameter whose name equals the given one exactly
// (case-sensitive); the typed finders (GetInt32ParamByName, ...) check the kind of that first
// parameter and return null when it is of another kind, even if a later parameter of the same name
// has the kind asked for. GetErrTypeParam returns the first error-type parameter.
//
// Run-time types: every parameter answers its kind (GetTypeId, one of eCallbackArgsParamType);
// arguments and callbacks answer a class number (GetTypeId, the static TypeId) and tell through
// the static IsTypeOf whether an object is of that class or derived from it. The library's
// classes use numbers below kCallbackUserTypeId; classes of an application take numbers from it on.
#pragma once

#include <cstdint>
#include <map>
#include <new>

#include "basert/xdr.h"
#include "kbase/export.h"
#include "kbase/text/UtCPtrList.h"
#include "kbase/text/UtCString.h"
#include "kbase/text/UtCStringList.h"

using CallbackTypeId = int;
constexpr CallbackTypeId kCallbackUserTypeId = 1000;

using UtCStringMap = std::map<UtCString, UtCString>;

enum eCallbackArgsParamType {
    eCallbackArgsParamBool = 1,
    eCallbackArgsParamInt32 = 2,
    eCallbackArgsParamReal = 3,
    eCallbackArgsParamString = 4,
    eCallbackArgsParamStringList = 5,
    eCallbackArgsParamStringMap = 6,
    eCallbackArgsParamVoidPtr = 7,
    eCallbackArgsParamRPT3 = 8,
    eCallbackArgsParamErrType = 9,
};

namespace kbase_services_internal {
// Whether a copy holds all of its original: a UtCString that could not get its memory is left
// empty rather than throwing, so a parameter checks its copies and is not made (std::bad_alloc)
// instead of holding an empty name or value.
inline bool Whole(const UtCString& copy, const UtCString& original) {
    return copy.GetLength() == original.GetLength();
}
inline bool Whole(const UtCStringList& copy, const UtCStringList& original) {
    if (copy.count() != original.count()) return false;
    for (long i = 0; i < copy.count(); ++i) {
        if (!Whole(copy[i], original[i])) return false;
    }
    return true;
}
inline bool Whole(const std::map<UtCString, UtCString>& copy,
                  const std::map<UtCString, UtCString>& original) {
    if (copy.size() != original.size()) return false;
    for (auto a = copy.begin(), b = original.begin(); a != copy.end(); ++a, ++b) {
        if (!Whole(a->first, b->first) || !Whole(a->second, b->second)) return false;
    }
    return true;
}
template <typename T>
bool Whole(const T&, const T&) {
    return true;
}
template <typename T>
void ExpectWhole(const T& copy, const T& original) {
    if (!Whole(copy, original)) throw std::bad_alloc();
}
}  // namespace kbase_services_internal

class KBASE_API CallbackArgsParam {
  public:
    // std::bad_alloc when memory is short (also for the value of each kind).
    explicit CallbackArgsParam(const UtCString& name) : name_(name) {
        kbase_services_internal::ExpectWhole(name_, name);
    }
    CallbackArgsParam(const CallbackArgsParam&) = delete;
    CallbackArgsParam& operator=(const CallbackArgsParam&) = delete;
    virtual ~CallbackArgsParam();

    const UtCString& Name() const { return name_; }
    virtual eCallbackArgsParamType GetTypeId() const = 0;

  private:
    UtCString name_;
};

// One parameter kind: its value, given at construction.
template <typename T, eCallbackArgsParamType Kind>
class CallbackArgsParamOf : public CallbackArgsParam {
  public:
    CallbackArgsParamOf(const UtCString& name, const T& value)
        : CallbackArgsParam(name), value_(value) {
        kbase_services_internal::ExpectWhole(value_, value);
    }
    const T& Value() const { return value_; }
    eCallbackArgsParamType GetTypeId() const override { return Kind; }
    static constexpr eCallbackArgsParamType TypeId() { return Kind; }

  private:
    T value_;
};

using CallbackArgsParamBool = CallbackArgsParamOf<int, eCallbackArgsParamBool>;
using CallbackArgsParamInt32 = CallbackArgsParamOf<int32_t, eCallbackArgsParamInt32>;
using CallbackArgsParamReal = CallbackArgsParamOf<double, eCallbackArgsParamReal>;
using CallbackArgsParamString = CallbackArgsParamOf<UtCString, eCallbackArgsParamString>;
using CallbackArgsParamStringList =
    CallbackArgsParamOf<UtCStringList, eCallbackArgsParamStringList>;
using CallbackArgsParamStringMap = CallbackArgsParamOf<UtCStringMap, eCallbackArgsParamStringMap>;
using CallbackArgsParamVoidPtr = CallbackArgsParamOf<void*, eCallbackArgsParamVoidPtr>;
using CallbackArgsParamRPT3 = CallbackArgsParamOf<RPT3, eCallbackArgsParamRPT3>;
// An error-type parameter has no name (its name is the empty string).
using CallbackArgsParamErrType = CallbackArgsParamOf<int, eCallbackArgsParamErrType>;

class KBASE_API CallbackArgs {
  public:
    explicit CallbackArgs(unsigned short uniqueType);
    CallbackArgs(const CallbackArgs&) = delete;
    CallbackArgs& operator=(const CallbackArgs&) = delete;
    virtual ~CallbackArgs();

    static constexpr CallbackTypeId TypeId() { return 1; }
    static bool IsTypeOf(const CallbackArgs* args) {
        return args != nullptr && args->IsKindOf(TypeId());
    }
    virtual CallbackTypeId GetTypeId() const { return TypeId(); }
    // Whether this object is of class id or derived from it; a derived class adds its own id.
    virtual bool IsKindOf(CallbackTypeId id) const { return id == TypeId(); }

    unsigned short UniqueType() const { return uniqueType_; }

    void AddBoolParam(const UtCString& name, int value);
    void AddInt32Param(const UtCString& name, int32_t value);
    void AddRealParam(const UtCString& name, double value);
    void AddStringParam(const UtCString& name, const UtCString& value);
    void AddStringListParam(const UtCString& name, const UtCStringList& value);
    void AddStringMapParam(const UtCString& name, const UtCStringMap& value);
    void AddVoidPtrParam(const UtCString& name, void* value);
    void AddRPT3Param(const UtCString& name, const RPT3& value);
    void AddErrTypeParam(int value);

    // Parameter index (0 = the first added). An index outside 0..ParamCount()-1 takes the pointer
    // list's invalid-index path: reported, and null.
    CallbackArgsParam* GetParam(long index) const;
    long ParamCount() const { return params_ != nullptr ? params_->count() : 0; }
    CallbackArgsParam* GetParamByName(const UtCString& name) const;

    CallbackArgsParamBool* GetBoolParamByName(const UtCString& name) const {
        return Find<CallbackArgsParamBool>(name);
    }
    CallbackArgsParamInt32* GetInt32ParamByName(const UtCString& name) const {
        return Find<CallbackArgsParamInt32>(name);
    }
    CallbackArgsParamReal* GetRealParamByName(const UtCString& name) const {
        return Find<CallbackArgsParamReal>(name);
    }
    CallbackArgsParamString* GetStringParamByName(const UtCString& name) const {
        return Find<CallbackArgsParamString>(name);
    }
    CallbackArgsParamStringList* GetStringListParamByName(const UtCString& name) const {
        return Find<CallbackArgsParamStringList>(name);
    }
    CallbackArgsParamStringMap* GetStringMapParamByName(const UtCString& name) const {
        return Find<CallbackArgsParamStringMap>(name);
    }
    CallbackArgsParamVoidPtr* GetVoidPtrParamByName(const UtCString& name) const {
        return Find<CallbackArgsParamVoidPtr>(name);
    }
    CallbackArgsParamRPT3* GetRPT3ParamByName(const UtCString& name) const {
        return Find<CallbackArgsParamRPT3>(name);
    }
    CallbackArgsParamErrType* GetErrTypeParam() const;

    void Handled(int handled) { handled_ = handled; }
    int Handled() const { return handled_; }
    // Sets the handled flag to 0 and frees every parameter and the list.
    void Clear();

  private:
    void AddParam(CallbackArgsParam* p);
    template <typename P>
    P* Find(const UtCString& name) const {
        CallbackArgsParam* p = GetParamByName(name);
        return p != nullptr && p->GetTypeId() == P::TypeId() ? static_cast<P*>(p) : nullptr;
    }

    unsigned short uniqueType_;
    int32_t handled_ = 0;
    UtCPtrList* params_ = nullptr;  // of CallbackArgsParam*, owned; made by the first AddParam
};

// The arguments of a parameter tree's expand-node event: the node (opaque here) and whether it is
// a detailed parent.
class KBASE_API ExpandTreeNodeCallbackArgs : public CallbackArgs {
  public:
    static constexpr unsigned short kUniqueType = 1;
    ExpandTreeNodeCallbackArgs(void* node, bool isDetailedParent,
                               unsigned short uniqueType = kUniqueType)
        : CallbackArgs(uniqueType), node_(node), detailedParent_(isDetailedParent) {}
    ~ExpandTreeNodeCallbackArgs() override;

    static constexpr CallbackTypeId TypeId() { return 2; }
    static bool IsTypeOf(const CallbackArgs* args) {
        return args != nullptr && args->IsKindOf(TypeId());
    }
    CallbackTypeId GetTypeId() const override { return TypeId(); }
    bool IsKindOf(CallbackTypeId id) const override {
        return id == TypeId() || CallbackArgs::IsKindOf(id);
    }

    void* Node() const { return node_; }
    bool IsDetailedParent() const { return detailedParent_; }

  private:
    void* node_;
    bool detailedParent_;
};
