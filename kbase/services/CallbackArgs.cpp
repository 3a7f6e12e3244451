#include "kbase/services/CallbackArgs.h"

#include <memory>

CallbackArgsParam::~CallbackArgsParam() = default;
ExpandTreeNodeCallbackArgs::~ExpandTreeNodeCallbackArgs() = default;

CallbackArgs::CallbackArgs(unsigned short uniqueType) : uniqueType_(uniqueType) {}
CallbackArgs::~CallbackArgs() {
    Clear();
}

void CallbackArgs::AddParam(CallbackArgsParam* p) {
    std::unique_ptr<CallbackArgsParam> owned(p);  // freed if the list cannot be made or grow
    if (params_ == nullptr) params_ = new UtCPtrList();
    const long before = params_->count();
    params_->Append(p);
    if (params_->count() > before) (void)owned.release();
}

void CallbackArgs::AddBoolParam(const UtCString& name, int value) {
    AddParam(new CallbackArgsParamBool(name, value));
}
void CallbackArgs::AddInt32Param(const UtCString& name, int32_t value) {
    AddParam(new CallbackArgsParamInt32(name, value));
}
void CallbackArgs::AddRealParam(const UtCString& name, double value) {
    AddParam(new CallbackArgsParamReal(name, value));
}
void CallbackArgs::AddStringParam(const UtCString& name, const UtCString& value) {
    AddParam(new CallbackArgsParamString(name, value));
}
void CallbackArgs::AddStringListParam(const UtCString& name, const UtCStringList& value) {
    AddParam(new CallbackArgsParamStringList(name, value));
}
void CallbackArgs::AddStringMapParam(const UtCString& name, const UtCStringMap& value) {
    AddParam(new CallbackArgsParamStringMap(name, value));
}
void CallbackArgs::AddVoidPtrParam(const UtCString& name, void* value) {
    AddParam(new CallbackArgsParamVoidPtr(name, value));
}
void CallbackArgs::AddRPT3Param(const UtCString& name, const RPT3& value) {
    AddParam(new CallbackArgsParamRPT3(name, value));
}
void CallbackArgs::AddErrTypeParam(int value) {
    AddParam(new CallbackArgsParamErrType(UtCString(), value));
}

CallbackArgsParam* CallbackArgs::GetParam(long index) const {
    static const UtCPtrList empty;
    const UtCPtrList& list = params_ != nullptr ? *params_ : empty;
    return static_cast<CallbackArgsParam*>(list.item(index));
}

CallbackArgsParam* CallbackArgs::GetParamByName(const UtCString& name) const {
    if (params_ == nullptr) return nullptr;
    for (long i = 0; i < params_->count(); ++i) {
        auto* p = static_cast<CallbackArgsParam*>(params_->item(i));
        if (p->Name().GetLength() == name.GetLength() && p->Name().CompareTo(name) == 0) return p;
    }
    return nullptr;
}

CallbackArgsParamErrType* CallbackArgs::GetErrTypeParam() const {
    if (params_ == nullptr) return nullptr;
    for (long i = 0; i < params_->count(); ++i) {
        auto* p = static_cast<CallbackArgsParam*>(params_->item(i));
        if (p->GetTypeId() == eCallbackArgsParamErrType)
            return static_cast<CallbackArgsParamErrType*>(p);
    }
    return nullptr;
}

void CallbackArgs::Clear() {
    handled_ = 0;
    if (params_ == nullptr) return;
    for (long i = 0; i < params_->count(); ++i)
        delete static_cast<CallbackArgsParam*>(params_->item(i));
    delete params_;
    params_ = nullptr;
}
