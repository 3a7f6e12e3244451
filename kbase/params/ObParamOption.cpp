// ObParamOption: items, selection and option type.
#include "kbase/params/ObParamOption.h"

#include "kbase/params/internal/text.h"

using kbase_params_internal::OwnText;

struct ObParamOption::Item {
    int32_t id;
    UtCString text;
};

ObParamOption::ObParamOption() {
    SetParamType(kTypeOption);
}

ObParamOption::ObParamOption(long id, const UtCString& name, long selection)
    : ObParam(id, name), selection_(static_cast<int32_t>(selection)) {
    SetParamType(kTypeOption);
}

ObParamOption::ObParamOption(const ObParamOption& other)
    : ObParam(other), selection_(other.selection_), optionType_(other.optionType_) {
    CopyItems(other);
}

ObParamOption::~ObParamOption() {
    ClearItems();
}

ObParamOption* ObParamOption::Clone() const {
    return new ObParamOption(*this);
}

int ObParamOption::CompareTo(const ObParam& other) const {
    int result = 0;
    const ObParamOption* o = SameKind<ObParamOption>(other, &result);
    if (o == nullptr) return result;
    return selection_ < o->selection_ ? -1 : (selection_ > o->selection_ ? 1 : 0);
}

void ObParamOption::SetOptionType(long type) {
    optionType_ = static_cast<int32_t>(type);
}

ObParamOption& ObParamOption::operator=(const ObParamOption& other) {
    ObParam::operator=(other);
    if (this == &other) return *this;
    ClearItems();
    CopyItems(other);
    selection_ = other.selection_;
    optionType_ = other.optionType_;
    return *this;
}

void ObParamOption::CopyItems(const ObParamOption& other) {
    for (long i = 0; i < other.items_.count(); ++i) {
        const Item* item = other.ItemAt(i);
        AddItem(item->id, item->text);
    }
}

long ObParamOption::AddItem(long itemId, const UtCString& text) {
    items_.Append(new Item{static_cast<int32_t>(itemId), OwnText(text)});
    return items_.count() - 1;
}

void ObParamOption::ClearItems() {
    for (long i = 0; i < items_.count(); ++i) delete static_cast<Item*>(items_.item(i));
    items_.RemoveAll();
}

const ObParamOption::Item* ObParamOption::ItemAt(long index) const {
    if (index < 0 || index >= items_.count()) return nullptr;  // never a reported bad index
    return static_cast<const Item*>(items_.item(index));
}

long ObParamOption::GetItemId(long index) const {
    const Item* item = ItemAt(index);
    return item != nullptr ? item->id : 0;
}

const UtCString& ObParamOption::GetItemText(long index) const {
    const Item* item = ItemAt(index);
    return item != nullptr ? item->text : kbase_params_internal::EmptyText();
}

long ObParamOption::FindItem(long itemId) const {
    for (long i = 0; i < items_.count(); ++i) {
        if (ItemAt(i)->id == itemId) return i;
    }
    return -1;
}

void ObParamOption::SetValue(long selection) {
    StoreIfDifferent(selection_, selection);
}

bool ObParamOption::SetSelectedId(long itemId) {
    const long index = FindItem(itemId);
    if (index < 0) return false;
    SetValue(index);
    return true;
}
