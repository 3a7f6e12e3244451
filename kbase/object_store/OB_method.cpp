// The store's plain functions over handles: objects, accessors, method dispatch, the
// propagation walk and delayed destruction.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <typeinfo>

#include "basert/diag.h"
#include "basert/memory.h"
#include "kbase/object_store/ObObject.h"
#include "kbase/object_store/ObStore.h"
#include "kbase/object_store/internal/ObStoreState.h"

namespace ob = kbase::object_store_internal;
using ob::Access;
using ob::g_store;

namespace {

// Reports of this module: the lines are part of each report's identity.
constexpr const char* kModule = "OB_method";
constexpr int kLevel = 31;
constexpr int kLineDescribe = 100;
constexpr int kLineCheck = 136;
constexpr int kLineUpdate = 173;
constexpr int kLineUpdateFromAssociation = 241;
constexpr int kLineDoUpdate = 278;
constexpr int kLineUser = 319;
constexpr int kLineUserStraight = 357;
constexpr int kLineDestroy = 394;
constexpr int kLineCreate = 439;
constexpr int kLineCreateCopy = 470;

// An invalid handle met by a dispatching function; value: whether the handle is not null.
void ReportIllegal(int line, const char* function, const _ObObject* handle) {
    DebugAssertInv(kModule, line, function, kLevel, "illegal objekt", "(Self != NULL)",
                   handle != nullptr ? 1 : 0);
}

ObObject* Obj(_ObObject* handle) { return ObObject::FromHandle(handle); }

#if defined(__GNUC__) || defined(__clang__)
#define KBASE_PREFETCH(address) __builtin_prefetch(address)
#define KBASE_PREFETCH_WRITE(address) __builtin_prefetch(address, 1)
#define KBASE_NOINLINE [[gnu::noinline]]
#else
#define KBASE_PREFETCH(address) ((void)(address))
#define KBASE_PREFETCH_WRITE(address) ((void)(address))
#define KBASE_NOINLINE
#endif

// A walk's calls are cheap and its partners lie wherever the heap put them, so the walk asks
// for what a call reads some steps before it gets there: the partner kAheadObject steps on (for
// writing: the call sets and clears busy), and its data block kAheadData steps on, when the
// partner has arrived.
constexpr size_t kAheadObject = 32;
constexpr size_t kAheadData = 12;
// Collecting chases a list; records added one after another lie at a fixed distance from each
// other in their chunk, so the chase asks for the record this many steps on at that distance.
constexpr uintptr_t kAheadRecords = 64;

// One partner of a walk and the record it is reached by. The AssociationInfo handed to the
// partner is kept on the stack by the walk, which keeps the array (zeroed per walk) small.
struct WalkEntry {
    _ObObject* partner;
    ObAssociation* record;
};

// Asks for the record kAheadRecords steps along the list from r, guessed from the distance to
// r's successor. A wrong guess costs one useless prefetch, which never faults; at the end of the
// list there is nothing to guess from (an address made from null would make the processor walk
// page tables for nothing).
inline void PrefetchAlong(const ObAssociation* r) {
    const auto here = reinterpret_cast<uintptr_t>(r);
    const auto next = reinterpret_cast<uintptr_t>(r->next);
    if (next != 0) {
        KBASE_PREFETCH(reinterpret_cast<const void*>(here + (next - here) * kAheadRecords));
    }
}

const ob::ClassRecord* ClassOf(const _ObObject* object) {
    return ob::ClassRecordOf(object != nullptr ? object->obClass : 0);
}

size_t CountMatching(const ObAssociation* r, uint32_t methodMask) {
    size_t n = 0;
    for (; r != nullptr; r = r->next) {
        if ((ob::PropagationsOf(r->type) & methodMask) != 0) ++n;
    }
    return n;
}

// Appends the matching records of a list to out[*n ...], at most capacity in all. False when
// there were more.
bool FillMatching(WalkEntry* out, size_t capacity, size_t* n, ObAssociation* r,
                  uint32_t methodMask) {
    int lastType = -1;  // neighbours mostly share their type: look its mask up once
    uint32_t lastMask = 0;
    for (; r != nullptr; r = r->next) {
        PrefetchAlong(r);
        if (r->type != lastType) {
            lastType = r->type;
            lastMask = ob::PropagationsOf(lastType);
        }
        if ((lastMask & methodMask) == 0) continue;
        if (*n == capacity) return false;
        out[(*n)++] = WalkEntry{r->partner, r};
    }
    return true;
}

// Collects the partners of a walk into a block of UtCcalloc: first the matching records of the
// passive list, then those of the class-association list, in list order.
//
// The result is that of counting the matching records, allocating exactly that many entries and
// filling them: null with *count 0 when nothing matches, null with *count > 0 when memory is
// exhausted. The store knows the lengths of both lists, so it allocates that bound and fills in
// one pass over the records instead of two; where the bound is stale (a host edited a list
// itself) it counts after all.
KBASE_NOINLINE WalkEntry* CollectPartners(_ObObject* object, uint32_t methodMask, size_t* count) {
    ObAssociation* passive = object != nullptr ? object->obPassive : nullptr;
    const ob::ClassRecord* c = ClassOf(object);
    ObAssociation* byClass = c != nullptr ? c->classAssocs : nullptr;
    *count = 0;
    if (passive == nullptr && byClass == nullptr) return nullptr;

    const size_t bound = Access::PassiveCount(object) +
                         (c != nullptr ? ob::g_store.classAssocCount[c - ob::g_store.classes] : 0);
    if (bound > 0) {
        auto* entries = static_cast<WalkEntry*>(UtCcalloc(bound, sizeof(WalkEntry)));
        if (entries == nullptr) {  // as if the exact request had failed
            *count = CountMatching(passive, methodMask) + CountMatching(byClass, methodMask);
            return nullptr;
        }
        size_t n = 0;
        if (FillMatching(entries, bound, &n, passive, methodMask) &&
            FillMatching(entries, bound, &n, byClass, methodMask)) {
            *count = n;
            if (n > 0) return entries;
            UtCfree(entries);
            return nullptr;
        }
        UtCfree(entries);
    }
    const size_t exact = CountMatching(passive, methodMask) + CountMatching(byClass, methodMask);
    *count = exact;
    if (exact == 0) return nullptr;
    auto* entries = static_cast<WalkEntry*>(UtCcalloc(exact, sizeof(WalkEntry)));
    if (entries == nullptr) return nullptr;
    size_t n = 0;
    FillMatching(entries, exact, &n, passive, methodMask);
    FillMatching(entries, exact, &n, byClass, methodMask);
    return entries;
}

// The first word of an ObObject: its vtable pointer on the ABIs we build for (a polymorphic
// class without virtual bases puts it first). Only compared for equality with the word of an
// object already known to be exactly an ObObject, so equal words mean the same dynamic type.
const void* TypeWordOf(const _ObObject* partner) {
    const void* word;
    std::memcpy(&word, static_cast<const void*>(ObObject::FromHandle(partner)), sizeof word);
    return word;
}

// The type word of exactly an ObObject, once a walk has met one (the typeid test is the
// authority; this only spares it).
const void* g_plainTypeWord = nullptr;

// Calls the partners of one walk. A partner that is exactly an ObObject (every object of a class
// defined by entry points) is served here: what its UpdateFromAssoc and DataUpdateFromAssoc would
// do, without their two virtual calls and without the nested pin, which the walk's own pin makes
// a no-op. Any other partner goes through its virtual UpdateFromAssoc, so overrides are honoured.
class PartnerCaller {
public:
    PartnerCaller(_ObObject* self, _ObObject* origin, OB_METHOD_ID method, OB_METHOD_PARAM param)
        : info_{self, 1, nullptr}, origin_(origin), method_(method), param_(param) {}

    OB_STATUS Call(const WalkEntry& entry) {
        _ObObject* partner = entry.partner;
        // Neighbours mostly share their class: a class seen before needs no look-up and is
        // valid, so a plain partner of it that is neither destroyed nor busy is called at once.
        if (partner != nullptr && partner->obClass == lastClass_ &&
            (partner->obState & (OB_STATE_DESTROYED | OB_STATE_BUSY)) == 0 &&
            TypeWordOf(partner) == g_plainTypeWord) {
            partner->obState |= OB_STATE_BUSY;
            info_.assoc = entry.record;
            const OB_STATUS result = lastEntry_(partner, &info_, origin_, method_, param_);
            partner->obState &= static_cast<uint16_t>(~OB_STATE_BUSY);
            return result;
        }
        return CallChecked(entry);
    }

private:
    // No class number is this: obClass has 16 bits.
    static constexpr uint32_t kNoClass = UINT32_MAX;

    static bool IsPlain(const _ObObject* partner) {
        const ObObject& object = *ObObject::FromHandle(partner);
        if (TypeWordOf(partner) == g_plainTypeWord) return true;
        if (typeid(object) != typeid(ObObject)) return false;
        g_plainTypeWord = TypeWordOf(partner);
        return true;
    }

    // ObObject::UpdateFromAssoc of a valid object whose class has a record: DESTROYED is clear.
    OB_STATUS CallPlain(_ObObject* partner, ObAssociation* record, ObUpdateFromAssocFunc entry) {
        const uint16_t state = partner->obState;
        if ((state & OB_STATE_BUSY) != 0) return OB_REFUSED;
        partner->obState = static_cast<uint16_t>(state | OB_STATE_BUSY);
        info_.assoc = record;
        const OB_STATUS result = entry(partner, &info_, origin_, method_, param_);
        partner->obState &= static_cast<uint16_t>(~OB_STATE_BUSY);
        return result;
    }

    KBASE_NOINLINE OB_STATUS CallChecked(const WalkEntry& entry) {
        _ObObject* partner = entry.partner;
        if (!Access::IsValid(partner)) {
            ReportIllegal(kLineUpdateFromAssociation, "ObUpdateFromAssociation", partner);
            return OB_FAILED;
        }
        // Records are never taken back, so a class with one stays valid and keeps its entry.
        const ob::ClassRecord* c = ob::ClassRecordOf(partner->obClass);
        if (c != nullptr && IsPlain(partner)) {
            lastClass_ = partner->obClass;
            lastEntry_ = c->updateFromAssoc;
            return CallPlain(partner, entry.record, lastEntry_);
        }
        info_.assoc = entry.record;
        return Obj(partner)->UpdateFromAssoc(&info_, origin_, method_, param_);
    }

    // Handed to each partner with the record of its entry; partners see it as const.
    AssociationInfo info_;
    _ObObject* origin_;
    OB_METHOD_ID method_;
    OB_METHOD_PARAM param_;
    uint32_t lastClass_ = kNoClass;
    ObUpdateFromAssocFunc lastEntry_ = nullptr;
};

// The calls of a walk long enough to run ahead of (see kAheadObject); whether one failed.
KBASE_NOINLINE bool CallAhead(PartnerCaller& caller, const WalkEntry* e, const WalkEntry* end) {
    bool failed = false;
    for (; end - e > static_cast<ptrdiff_t>(kAheadObject); ++e) {
        KBASE_PREFETCH_WRITE(e[kAheadObject].partner);
        if (const _ObObject* ahead = e[kAheadData].partner) KBASE_PREFETCH(ahead->obData);
        failed |= caller.Call(*e) == OB_FAILED;
    }
    for (; e != end; ++e) failed |= caller.Call(*e) == OB_FAILED;
    return failed;
}

}  // namespace

// ---- Objects. ----

_ObObject* ObAllocObject() { return ObObject::Allocate(0); }

int ObFreeObject(_ObObject* object) {
    // An object retired meanwhile is already on its way out.
    if (object != nullptr && !Access::Retired(Obj(object))) Access::DeleteObject(Obj(object));
    return 0;
}

_ObObject* ObCreate(int classNo) { return ObCreateParam(classNo, nullptr); }

_ObObject* ObCreateParam(int classNo, void* param) {
    ObObject* object = ObObject::Create(classNo, param);
    if (object == nullptr) {
        DebugAssertInv(kModule, kLineCreate, "ObCreateParam", kLevel, "error by create",
                       "(Self == NULL)", 1);
        return nullptr;
    }
    return object;
}

_ObObject* ObCreateCopy(_ObObject* object) {
    ObObject* copy = ObObject::CreateCopy(Obj(object));
    if (copy == nullptr) {
        DebugAssertInv(kModule, kLineCreateCopy, "ObCreateCopy", kLevel, "error by create copy",
                       "(Self == NULL)", 1);
        return nullptr;
    }
    return copy;
}

OB_STATUS ObDestroy(_ObObject* object) {
    if (!Access::IsValid(object)) {
        ReportIllegal(kLineDestroy, "ObDestroy", object);
        return OB_FAILED;
    }
    const OB_STATUS result = Obj(object)->Destroy();
    if (result != OB_REFUSED) Access::DeleteObject(Obj(object));
    return result;
}

// ---- Accessors. ----

int ObGetClass(const _ObObject* object) { return object != nullptr ? object->obClass : 0; }

int ObGetState(const _ObObject* object) { return object != nullptr ? object->obState : 0; }

int ObGetStateFlag(const _ObObject* object, int mask) {
    return object != nullptr && (object->obState & mask) != 0 ? 1 : 0;
}

void ObSetState(_ObObject* object, int state) {
    if (object != nullptr) Obj(object)->SetToState(static_cast<uint16_t>(state));
}

void ObSetStateFlag(_ObObject* object, int mask) {
    if (object != nullptr) Obj(object)->SetState(static_cast<uint16_t>(mask));
}

void ObResetStateFlag(_ObObject* object, int mask) {
    if (object != nullptr) object->obState &= static_cast<uint16_t>(~mask);
}

void* ObGetData(const _ObObject* object) {
    if (object == nullptr || (object->obState & OB_STATE_EXTERN) != 0) return nullptr;
    return object->obData;
}

void ObSetData(_ObObject* object, void* data) {
    if (object != nullptr) Obj(object)->SetData(data);
}

void* ObGetUpdtData(_ObObject* object) {
    if (object == nullptr || (object->obState & OB_STATE_EXTERN) != 0) return nullptr;
    if ((object->obState & OB_STATE_UPTOD) == 0 && Obj(object)->DoUpdate() >= OB_REFUSED) {
        return nullptr;
    }
    return object->obData;
}

OB_STATUS ObSetGuid(_ObObject* object, const char* guid) {
    return object != nullptr ? Obj(object)->SetGuid(guid) : OB_FAILED;
}

const char* ObGetGuid(const _ObObject* object) {
    return object != nullptr ? ObObject::FromHandle(object)->GetGuid() : nullptr;
}

std::size_t ObPrintFlags(const _ObObject* object, char* buffer, std::size_t capacity) {
    static constexpr struct {
        uint16_t flag;
        const char* word;
    } kWords[] = {
        {OB_STATE_EXTERN, " EXTERN"},       {OB_STATE_ORIGINAL, " ORIGINAL"},
        {OB_STATE_MARKED, " MARKED"},       {OB_STATE_TRANS, " TRANS"},
        {OB_STATE_CHG_ELEM, " CHG_ELEM"},   {OB_STATE_UPDATING, " UPDATING"},
        {OB_STATE_SPLITTED, " SPLITTED"},   {OB_STATE_RULE, " RULE"},
        {OB_STATE_DESTROYED, " DESTROYED"}, {OB_STATE_INVALID, " INVALID"},
        {OB_STATE_UPTOD, " UPTOD"},         {OB_STATE_SAVED, " SAVED"},
        {OB_STATE_REALIZED, " REALIZED"},   {OB_STATE_SELECTED, " SELECTED"},
    };
    const std::size_t start = buffer != nullptr ? strnlen(buffer, capacity) : 0;
    std::size_t added = 0;
    if (object != nullptr) {
        for (const auto& w : kWords) {
            if ((object->obState & w.flag) != 0) added += std::strlen(w.word);
        }
    }
    const std::size_t total = start + added;
    if (buffer == nullptr || total >= capacity) return total;  // no room: nothing appended
    char* out = buffer + start;
    for (const auto& w : kWords) {
        if (added == 0 || (object->obState & w.flag) == 0) continue;
        const std::size_t n = std::strlen(w.word);
        std::memcpy(out, w.word, n);
        out += n;
    }
    *out = '\0';
    return total;
}

// ---- Method dispatch. ----

const char* ObDescribe(_ObObject* object) {
    if (!Access::IsValid(object)) {
        ReportIllegal(kLineDescribe, "ObDescribe", object);
        return nullptr;
    }
    return Obj(object)->Describe();
}

OB_STATUS ObCheck(_ObObject* object) {
    if (!Access::IsValid(object)) {
        ReportIllegal(kLineCheck, "ObCheck", object);
        return OB_FAILED;
    }
    return Obj(object)->Check();
}

OB_STATUS ObUpdate(_ObObject* object) {
    if (!Access::IsValid(object)) {
        ReportIllegal(kLineUpdate, "ObUpdate", object);
        return OB_FAILED;
    }
    return Obj(object)->MarkUpdate();
}

OB_STATUS ObUpdateWithDetail(_ObObject* object, int32_t detail) {
    const int32_t saved = g_store.updateDetail;
    g_store.updateDetail = (detail & 1) != 0 ? 0 : (saved | detail);
    OB_STATUS result = OB_FAILED;
    if (Access::IsValid(object)) {
        result = Obj(object)->MarkUpdate();
    } else {
        ReportIllegal(kLineUpdate, "ObUpdate", object);
    }
    g_store.updateDetail = (saved & 1) != 0 ? 0 : saved;
    return result;
}

OB_STATUS ObUpdateFromAssociation(const AssociationInfo* info, _ObObject* object,
                                  OB_METHOD_ID method, OB_METHOD_PARAM param) {
    if (!Access::IsValid(object)) {
        ReportIllegal(kLineUpdateFromAssociation, "ObUpdateFromAssociation", object);
        return OB_FAILED;
    }
    return Obj(object)->UpdateFromAssoc(info, info != nullptr ? info->origin : nullptr, method,
                                        param);
}

OB_STATUS ObDoUpdate(_ObObject* object) {
    if (!Access::IsValid(object)) {
        ReportIllegal(kLineDoUpdate, "ObDoUpdate", object);
        return OB_FAILED;
    }
    return Obj(object)->DoUpdate();
}

OB_STATUS ObUser(_ObObject* object, int32_t command, void* param) {
    if (!Access::IsValid(object)) {
        ReportIllegal(kLineUser, "ObUser", object);
        return OB_FAILED;
    }
    return Obj(object)->User(command, param);
}

OB_STATUS ObUserStraight(_ObObject* object, int32_t command, void* param) {
    if (!Access::IsValid(object)) {
        ReportIllegal(kLineUserStraight, "ObUserStraight", object);
        return OB_FAILED;
    }
    return Obj(object)->StraightUser(command, param);
}

// ---- Propagation. ----

OB_STATUS ObDoAssociations(_ObObject* object, uint32_t methodMask, _ObObject* origin,
                           OB_METHOD_ID method, OB_METHOD_PARAM param) {
    // Everything is collected before the first call: the calls may change both lists.
    size_t count = 0;
    WalkEntry* entries = CollectPartners(object, methodMask, &count);
    if (count == 0) return OB_OK;
    if (entries == nullptr) return OB_FAILED;

    // A receiver that passes the change on runs a walk of its own from inside a call, so a chain
    // of N objects stacks N frames of this function: it keeps to the calls of short walks and
    // leaves collecting and long walks to helpers with frames of their own.
    bool failed = false;
    {
        ob::Pin pin;  // partners and records the array names stay readable until the walk ends
        PartnerCaller caller(object, origin, method, param);
        if (count > kAheadObject) {
            failed = CallAhead(caller, entries, entries + count);
        } else {
            for (size_t i = 0; i < count; ++i) failed |= caller.Call(entries[i]) == OB_FAILED;
        }
    }
    UtCfree(entries);
    return failed ? OB_FAILED : OB_OK;
}

// ---- Delayed destruction. ----

OB_STATUS ObDestroyDelayed(_ObObject* object) {
    ObObjectList& list = Access::DelayedList();
    if (object != nullptr) {
        if (Access::Retired(Obj(object))) {  // already destroyed; its memory is about to go
            ReportIllegal(kLineDestroy, "ObDestroy", object);
            return OB_FAILED;
        }
        if (Access::InDelayedList(Obj(object))) return OB_OK;
    } else {
        for (uint32_t i = 0; i < list.count; ++i) {
            if (list.items[i] == nullptr) return OB_OK;
        }
    }
    if (list.count == list.capacity) {
        const uint64_t capacity = list.capacity == 0 ? 16 : uint64_t{list.capacity} * 2;
        if (capacity > UINT32_MAX || UtAllocMemoryBlockT(&list.items, capacity) != kUtMemOk) {
            return OB_FAILED;
        }
        list.capacity = static_cast<uint32_t>(capacity);
    }
    list.items[list.count++] = Obj(object);
    if (object != nullptr) Access::InDelayedList(Obj(object)) = true;
    return OB_OK;
}

void ObDestroyDelayedList() {
    // Take the list: what the destroys put on it waits for the next run.
    ObObjectList& live = Access::DelayedList();
    const ObObjectList taken = live;
    live = ObObjectList{nullptr, 0, 0};
    for (uint32_t i = 0; i < taken.count; ++i) {
        if (taken.items[i] != nullptr) Access::InDelayedList(taken.items[i]) = false;
    }
    {
        ob::Pin pin;  // an entry destroyed by an earlier one's propagation stays readable
        for (uint32_t i = 0; i < taken.count; ++i) {
            ObObject* object = taken.items[i];
            if (object != nullptr && Access::Retired(object)) continue;  // destroyed meanwhile
            ObDestroy(object);
        }
    }
    UtFreeMemory(taken.items);
}
