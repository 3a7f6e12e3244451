// ObParamOption: a choice among items, each with an id and a text (a drop-down list or a group of
// radio buttons in the dialog).
//
// The value is the selection index: 0..GetItemCount()-1, or -1 for no selection (a new option).
// The index is stored as given, also one outside the items; the selected id and text then read as
// 0 and the empty string. SetValue and SetSelectedId mark the parameter as changed only when the
// selection really changes. The option type says how the dialog shows the items; its meaning
// belongs to the host, and SetOptionType is virtual so that a host's option can react to it.
//
// CompareTo once the bases are equal (see ObParam.h): -1/0/1 by the selection index.
// Copies copy the items.
#pragma once

#include "kbase/params/ObParam.h"
#include "kbase/text/UtCPtrList.h"

class KBASE_API ObParamOption : public ObParam {
  public:
    ObParamOption();
    ObParamOption(long id, const UtCString& name, long selection = -1);
    ObParamOption(const ObParamOption& other);
    ~ObParamOption() override;
    ObParamOption* Clone() const override;
    int CompareTo(const ObParam& other) const override;
    virtual void SetOptionType(long type);
    ObParamOption& operator=(const ObParamOption& other);

    long GetOptionType() const { return optionType_; }

    // Appends an item and returns its index. Ids need not be unique; lookups find the first.
    long AddItem(long itemId, const UtCString& text);
    void ClearItems();  // the selection is kept
    long GetItemCount() const { return items_.count(); }
    // The item's id (0) and text (the empty string) for an index outside the items.
    long GetItemId(long index) const;
    const UtCString& GetItemText(long index) const;
    // Index of the first item with that id, or -1.
    long FindItem(long itemId) const;

    long GetValue() const { return selection_; }
    void SetValue(long selection);
    // Selects the first item with that id; false (selection unchanged) when there is none.
    bool SetSelectedId(long itemId);
    long GetSelectedId() const { return GetItemId(selection_); }
    const UtCString& GetSelectedText() const { return GetItemText(selection_); }

  private:
    struct Item;
    const Item* ItemAt(long index) const;
    void CopyItems(const ObParamOption& other);

    UtCPtrList items_;  // owned Item*
    int32_t selection_ = -1;
    int32_t optionType_ = 0;
};
