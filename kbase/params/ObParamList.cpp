// ObParamList: an owning list of parameters.
#include "kbase/params/ObParamList.h"

#include "kbase/params/ObCondition.h"

ObParamList::~ObParamList() {
    Clear();
}

long ObParamList::Add(ObParam* param) {
    if (param == nullptr) return -1;
    const long index = params_.count();
    params_.Append(param);
    if (params_.count() == index) {  // no memory for its slot: the list owns it all the same
        delete param;
        return -1;
    }
    return index;
}

ObParam* ObParamList::Get(long index) const {
    if (index < 0 || index >= params_.count()) return nullptr;  // no report for a bad index
    return static_cast<ObParam*>(params_.item(index));
}

ObParam* ObParamList::Find(long paramId) const {
    for (long i = 0; i < params_.count(); ++i) {
        ObParam* p = Get(i);
        if (p->GetParamID() == paramId) return p;
    }
    return nullptr;
}

bool ObParamList::IsEnabled(const ObParam& param) {
    const ObCondList* list = param.GetCondList();
    return list == nullptr || list->ConditionsFulfilled() != 0;
}

bool ObParamList::IsEnabled(long index) const {
    const ObParam* p = Get(index);
    return p != nullptr && IsEnabled(*p);
}

void ObParamList::SetAllStates(unsigned short state) {
    for (long i = 0; i < params_.count(); ++i) Get(i)->SetState(state);
}

void ObParamList::Clear() {
    // Conditions may watch parameters of this list; none are evaluated while it is destroyed.
    for (long i = 0; i < params_.count(); ++i) delete Get(i);
    params_.RemoveAll();
}
