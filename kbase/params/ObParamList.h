// ObParamList: an owning, ordered list of parameters, such as the parameters of one dialog.
//
// The list owns what is added to it and destroys it with itself. Conditions of one parameter may
// watch other parameters of the same list; the list never moves its parameters, so those pointers
// stay valid for the list's lifetime. A parameter is enabled when it has no condition list or its
// list's conditions are fulfilled (ObCondList::ConditionsFulfilled). Not copyable: a copy of a
// parameter carries no conditions (see ObParam.h), so a copied dialog would silently lose them.
#pragma once

#include "kbase/params/ObParam.h"
#include "kbase/text/UtCPtrList.h"

class KBASE_API ObParamList {
  public:
    ObParamList() = default;
    ObParamList(const ObParamList&) = delete;
    ObParamList& operator=(const ObParamList&) = delete;
    ~ObParamList();

    // Takes ownership of param and returns its index; a null param is refused with -1, and so is
    // one for which the list has no memory (it is destroyed then, as the list took it).
    long Add(ObParam* param);
    long GetCount() const { return params_.count(); }
    // The parameter at index, or null outside the list.
    ObParam* Get(long index) const;
    // The first parameter with that id, or null.
    ObParam* Find(long paramId) const;

    // Whether the parameter's conditions enable it (true without a condition list).
    static bool IsEnabled(const ObParam& param);
    bool IsEnabled(long index) const;
    // Sets the change state of every parameter (0 after an update pass has taken the changes).
    void SetAllStates(unsigned short state);
    // Destroys every parameter.
    void Clear();

  private:
    UtCPtrList params_;  // owned ObParam*
};
