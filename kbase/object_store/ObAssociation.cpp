// Associations between objects: adding, removing, reading the lists, copying and moving.
#include <initializer_list>

#include "basert/diag.h"
#include "basert/memory.h"
#include "kbase/object_store/ObObject.h"
#include "kbase/object_store/ObStore.h"
#include "kbase/object_store/internal/ObStoreState.h"

namespace ob = kbase::object_store_internal;
using ob::Access;

namespace {

constexpr const char* kModule = "OB_method";
constexpr int kLineCopy = 612;
constexpr int kLevel = 31;

// Results of the association functions.
constexpr int kAssocOk = 0;
constexpr int kBadActive = -1;
constexpr int kBadPassive = -2;
constexpr int kBadTypeNumber = -3;
constexpr int kTypeUndefined = -4;
constexpr int kNoMemory = -5;
constexpr int kNoSuchAssociation = OB_FAILED;

ObObject* Obj(_ObObject* handle) { return ObObject::FromHandle(handle); }

// An object that may take part in a new association: a defined class and not DESTROYED.
bool CanAssociate(const _ObObject* object) {
    return object != nullptr && ob::ClassRecordOf(object->obClass) != nullptr &&
           (object->obState & OB_STATE_DESTROYED) == 0;
}

int CheckType(int type) {
    if (type < 0 || type >= kObMaxAssocTypes) return kBadTypeNumber;
    return ob::TypeDefined(type) ? kAssocOk : kTypeUndefined;
}

ObAssociation* ListOf(_ObObject* object, OB_ASSOC_LIST_TYPE list) {
    if (object == nullptr) return nullptr;
    return list == OB_ASSOC_ACTIVE ? object->obActive : object->obPassive;
}

ObAssociation* FindIn(ObAssociation* r, const _ObObject* partner, int type) {
    for (; r != nullptr; r = r->next) {
        if (r->partner == partner && ob::TypeMatches(r->type, type)) return r;
    }
    return nullptr;
}

bool Contains(const ObAssociation* r, const ObAssociation* wanted) {
    for (; r != nullptr; r = r->next) {
        if (r == wanted) return true;
    }
    return false;
}

void ReportCopyFailure(const char* function) {
    DebugAssert(kModule, kLineCopy, function, kLevel, "association cant be copied", "FALSE");
}

// The association a record of from's list stands for, given to `to` instead.
int AddLike(_ObObject* to, _ObObject* partner, int type, OB_ASSOC_LIST_TYPE list) {
    return list == OB_ASSOC_ACTIVE ? ObAddAssociation(to, partner, type)
                                   : ObAddAssociation(partner, to, type);
}

int RemoveLike(_ObObject* from, _ObObject* partner, int type, OB_ASSOC_LIST_TYPE list) {
    return list == OB_ASSOC_ACTIVE ? ObRemoveAssociation(from, partner, type)
                                   : ObRemoveAssociation(partner, from, type);
}

struct Snapshot {
    _ObObject* partner;
    int type;
};

// The (partner, type) pairs of one list with a matching type, in list order, in a block of
// UtCcalloc (null with *count 0 for none, null with *count > 0 when memory is exhausted).
Snapshot* TakeSnapshot(_ObObject* from, OB_ASSOC_LIST_TYPE list, int type, size_t* count) {
    size_t n = 0;
    for (const ObAssociation* r = ListOf(from, list); r != nullptr; r = r->next) {
        if (ob::TypeMatches(r->type, type)) ++n;
    }
    *count = n;
    if (n == 0) return nullptr;
    auto* items = static_cast<Snapshot*>(UtCcalloc(n, sizeof(Snapshot)));
    if (items == nullptr) return nullptr;
    size_t i = 0;
    for (const ObAssociation* r = ListOf(from, list); r != nullptr; r = r->next) {
        if (ob::TypeMatches(r->type, type)) items[i++] = Snapshot{r->partner, r->type};
    }
    return items;
}

// Copies (and with move, removes) a list; last to first, so that the order is kept at the
// front of to's list.
int TransferList(_ObObject* from, _ObObject* to, OB_ASSOC_LIST_TYPE list, int type, bool move,
                 const char* function) {
    ob::Pin pin;
    size_t count = 0;
    Snapshot* items = TakeSnapshot(from, list, type, &count);
    if (items == nullptr && count > 0) {
        ReportCopyFailure(function);
        return kNoMemory;
    }
    int result = kAssocOk;
    for (size_t i = count; i-- > 0;) {
        result = AddLike(to, items[i].partner, items[i].type, list);
        if (result != kAssocOk) {
            ReportCopyFailure(function);
            break;
        }
        if (move) {
            result = RemoveLike(from, items[i].partner, items[i].type, list);
            if (result != kAssocOk) break;
        }
    }
    UtCfree(items);
    return result;
}

}  // namespace

// ---- Adding and removing. ----

int ObAddAssociation(_ObObject* active, _ObObject* passive, int type) {
    if (!CanAssociate(active)) return kBadActive;
    if (!CanAssociate(passive)) return kBadPassive;
    if (const int t = CheckType(type); t != kAssocOk) return t;
    return Obj(passive)->AddDependent(Obj(active), type);
}

int ObAddAssociationUnique(_ObObject* active, _ObObject* passive, int type) {
    if (active != nullptr) {
        for (const ObAssociation* r = active->obActive; r != nullptr; r = r->next) {
            if (r->partner == passive && r->type == type) return kAssocOk;  // no wildcard here
        }
    }
    return ObAddAssociation(active, passive, type);
}

int ObRemoveAssociation(_ObObject* active, _ObObject* passive, int type) {
    if (!Access::HasKnownClass(active)) return kBadActive;
    if (!Access::HasKnownClass(passive)) return kBadPassive;
    if (const int t = CheckType(type); t != kAssocOk) return t;
    return Obj(passive)->RemoveDependent(Obj(active), type);
}

int ObAddClassAssociation(_ObObject* object, int classNo, int type) {
    if (!CanAssociate(object)) return kBadActive;
    ob::ClassRecord* c = ob::ClassRecordOf(classNo);
    if (c == nullptr) return kBadPassive;
    if (const int t = CheckType(type); t != kAssocOk) return t;
    ObAssociation* record = ob::NewRecord(type, object);
    if (record == nullptr) return kNoMemory;
    record->next = c->classAssocs;
    c->classAssocs = record;
    ++ob::g_store.classAssocCount[ob::g_store.classMap[classNo]];
    Access::CountClassAssoc(Obj(object), +1);
    return kAssocOk;
}

int ObRemoveClassAssociation(_ObObject* object, int classNo, int type) {
    if (!Access::HasKnownClass(object)) return kBadActive;
    ob::ClassRecord* c = ob::ClassRecordOf(classNo);
    if (c == nullptr) return kBadPassive;
    if (type != kObAnyAssocType) {
        if (const int t = CheckType(type); t != kAssocOk) return t;
    }
    ObAssociation* record = ob::Unlink(&c->classAssocs, object, type);
    if (record == nullptr) return kNoSuchAssociation;
    --ob::g_store.classAssocCount[ob::g_store.classMap[classNo]];
    Access::CountClassAssoc(Obj(object), -1);
    Access::ReleaseRecord(record);
    return kAssocOk;
}

ObAssociation* ObAllocAssociation() { return ob::NewRecord(0, nullptr); }

void ObFreeAssociation(ObAssociation* assoc) { Access::ReleaseRecord(assoc); }

// ---- Reading the lists. ----

ObAssociation* ObGetFirstAssociation(_ObObject* object, OB_ASSOC_LIST_TYPE list) {
    return ListOf(object, list);
}

ObAssociation* ObGetNextAssociation(_ObObject* object, OB_ASSOC_LIST_TYPE list,
                                    const ObAssociation* current) {
    if (current == nullptr) return nullptr;
    for (ObAssociation* r = ListOf(object, list); r != nullptr; r = r->next) {
        if (r == current) return r->next;
    }
    return nullptr;
}

ObAssociation* ObGetNextAssociationFast(const ObAssociation* current) {
    return current != nullptr ? current->next : nullptr;
}

ObAssociation* ObGetFirstAssociationType(_ObObject* object, OB_ASSOC_LIST_TYPE list, int type) {
    for (ObAssociation* r = ListOf(object, list); r != nullptr; r = r->next) {
        if (ob::TypeMatches(r->type, type)) return r;
    }
    return nullptr;
}

ObAssociation* ObFindAssociation(_ObObject* active, _ObObject* passive, int type) {
    if (!Access::IsValid(active) || !Access::IsValid(passive)) return nullptr;
    return FindIn(active->obActive, passive, type);
}

ObAssociation* ObFindActiveAssociationFast(_ObObject* object, const _ObObject* partner, int type) {
    return object != nullptr ? FindIn(object->obActive, partner, type) : nullptr;
}

ObAssociation* ObFindPassiveAssociationFast(_ObObject* object, const _ObObject* partner,
                                            int type) {
    return object != nullptr ? FindIn(object->obPassive, partner, type) : nullptr;
}

// A walk travels from the passive partner (origin) to the active one (named by the record);
// direction 0 stands for the other way round.
_ObObject* ObGetActiveObject(const AssociationInfo* info) {
    if (info == nullptr) return nullptr;
    if (info->direction != 1) return info->origin;
    return info->assoc != nullptr ? info->assoc->partner : nullptr;
}

_ObObject* ObGetPassiveObject(const AssociationInfo* info) {
    if (info == nullptr) return nullptr;
    if (info->direction == 1) return info->origin;
    return info->assoc != nullptr ? info->assoc->partner : nullptr;
}

_ObObject* ObGetAssocPartner(const ObAssociation* assoc) {
    return assoc != nullptr ? assoc->partner : nullptr;
}

_ObObject* ObGetAssocPartner2(const AssociationInfo* info, const _ObObject* self) {
    _ObObject* active = ObGetActiveObject(info);
    return self == active ? ObGetPassiveObject(info) : active;
}

_ObObject* ObGetActivePartner(_ObObject* object, int type) {
    return ObGetAssocPartner(ObGetFirstAssociationType(object, OB_ASSOC_PASSIVE, type));
}

_ObObject* ObGetPassivePartner(_ObObject* object, int type) {
    return ObGetAssocPartner(ObGetFirstAssociationType(object, OB_ASSOC_ACTIVE, type));
}

int ObGetAssociationType(const ObAssociation* assoc) { return assoc != nullptr ? assoc->type : -1; }

// ---- Copying and moving. ----

int ObCopyAssociation(_ObObject* from, _ObObject* to, const ObAssociation* assoc,
                      OB_ASSOC_LIST_TYPE list) {
    if (assoc == nullptr || !Contains(ListOf(from, list), assoc)) {
        ReportCopyFailure("ObCopyAssociation");
        return kNoSuchAssociation;
    }
    const int result = AddLike(to, assoc->partner, assoc->type, list);
    if (result != kAssocOk) ReportCopyFailure("ObCopyAssociation");
    return result;
}

int ObCopyAssociationList(_ObObject* from, _ObObject* to, OB_ASSOC_LIST_TYPE list, int type) {
    return TransferList(from, to, list, type, false, "ObCopyAssociationList");
}

int ObCopyAssociations(_ObObject* from, _ObObject* to) {
    const int result = ObCopyAssociationList(from, to, OB_ASSOC_ACTIVE, kObAnyAssocType);
    if (result != kAssocOk) return result;
    return ObCopyAssociationList(from, to, OB_ASSOC_PASSIVE, kObAnyAssocType);
}

int ObCopyAssociationInternal(_ObObject* from, _ObObject* to, const ObAssociation* assoc,
                              OB_ASSOC_LIST_TYPE list) {
    if (from == nullptr || to == nullptr || assoc == nullptr || assoc->partner == nullptr) {
        return kBadPassive;
    }
    ObObject* partner = Obj(assoc->partner);
    const OB_ASSOC_LIST_TYPE mirror = list == OB_ASSOC_ACTIVE ? OB_ASSOC_PASSIVE : OB_ASSOC_ACTIVE;
    const int result = Obj(to)->AddSingleAssoc(partner, assoc->type, list);
    if (result != kAssocOk) return result;
    const int mirrored = partner->AddSingleAssoc(Obj(to), assoc->type, mirror);
    if (mirrored != kAssocOk) {
        Access::ReleaseRecord(list == OB_ASSOC_ACTIVE
                                  ? ob::Unlink(&to->obActive, partner, assoc->type)
                                  : Access::UnlinkPassive(to, partner, assoc->type));
    }
    return mirrored;
}

int ObMoveAssociation(_ObObject* from, _ObObject* to, const ObAssociation* assoc,
                      OB_ASSOC_LIST_TYPE list) {
    ob::Pin pin;
    // Copying may add in front of from's lists; the record's content is what counts.
    if (assoc == nullptr || !Contains(ListOf(from, list), assoc)) {
        ReportCopyFailure("ObMoveAssociation");
        return kNoSuchAssociation;
    }
    _ObObject* partner = assoc->partner;
    const int type = assoc->type;
    const int copied = ObCopyAssociation(from, to, assoc, list);
    if (copied != kAssocOk) return copied;
    return RemoveLike(from, partner, type, list);
}

int ObMoveAssociations(_ObObject* from, _ObObject* to, OB_ASSOC_LIST_TYPE list) {
    return TransferList(from, to, list, kObAnyAssocType, true, "ObMoveAssociations");
}

int ObRemoveAssociations(_ObObject* object, OB_ASSOC_LIST_TYPE list) {
    ob::Pin pin;
    while (ObAssociation* first = ListOf(object, list)) {
        const int result = RemoveLike(object, first->partner, first->type, list);
        if (result != kAssocOk) return result;
        if (ListOf(object, list) == first) return kNoSuchAssociation;  // nothing was taken out
    }
    return kAssocOk;
}

int ObCleanupAssocList(_ObObject* object) {
    if (object == nullptr) return 0;
    int removed = 0;
    for (const OB_ASSOC_LIST_TYPE list : {OB_ASSOC_ACTIVE, OB_ASSOC_PASSIVE}) {
        // Collect the partners first: taking a record out goes through the list's own helpers.
        for (ObAssociation* r = ListOf(object, list); r != nullptr;) {
            _ObObject* partner = r->partner;
            const int type = r->type;
            r = r->next;
            if (Access::IsValid(partner)) continue;
            // Records only ever name allocated objects, so the partner may be read.
            if (list == OB_ASSOC_ACTIVE) {
                Access::ReleaseRecord(ob::Unlink(&object->obActive, partner, type));
                Access::ReleaseRecord(Access::UnlinkPassive(partner, object, type));
            } else {
                Access::ReleaseRecord(Access::UnlinkPassive(object, partner, type));
                Access::ReleaseRecord(ob::Unlink(&partner->obActive, object, type));
            }
            ++removed;
        }
    }
    return removed;
}

int ObSplitAssoc(_ObObject* active, _ObObject* passive, int type, _ObObject* substitute) {
    if (!CanAssociate(active) || !CanAssociate(substitute)) return kBadActive;
    if (!CanAssociate(passive)) return kBadPassive;
    if (const int t = CheckType(type); t != kAssocOk) return t;
    if (FindIn(active->obActive, passive, type) == nullptr) return kNoSuchAssociation;
    ob::Pin pin;
    int result = ObAddAssociation(active, substitute, type);
    if (result != kAssocOk) return result;
    result = ObAddAssociation(substitute, passive, type);
    if (result != kAssocOk) {
        ObRemoveAssociation(active, substitute, type);
        return result;
    }
    result = ObRemoveAssociation(active, passive, type);
    if (result != kAssocOk) {
        ObRemoveAssociation(substitute, passive, type);
        ObRemoveAssociation(active, substitute, type);
        return result;
    }
    Obj(substitute)->SetState(OB_STATE_SPLITTED);
    return kAssocOk;
}
