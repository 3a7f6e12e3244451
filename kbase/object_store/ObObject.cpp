#include "kbase/object_store/ObObject.h"

#include <cstring>
#include <new>

#include "basert/diag.h"
#include "basert/memory.h"
#include "kbase/object_store/ObStore.h"
#include "kbase/object_store/internal/ObStoreState.h"

namespace ob = kbase::object_store_internal;
using ob::Access;
using ob::ClassRecordOf;
using ob::g_store;

namespace {

// Reports of this module.
constexpr const char* kModule = "ObObject";
constexpr int kLineUnknownClass = 118;
constexpr int kLineDestroyDataFailed = 262;
constexpr int kLineActiveAssoc = 291;
constexpr int kLinePassiveAssoc = 309;
constexpr int kLevelClass = 7;
constexpr int kLevelObject = 31;
constexpr int32_t kCommandReentrant = 81;  // the one user command let through while busy

void ClearBusy(ObObject* o) { o->obState &= static_cast<uint16_t>(~OB_STATE_BUSY); }
void SetBusy(ObObject* o) { o->obState |= OB_STATE_BUSY; }

size_t CountRecords(const ObAssociation* r) {
    size_t n = 0;
    for (; r != nullptr; r = r->next) ++n;
    return n;
}

// Detaches one list in Destroy through the partners' own operations; stops at the first
// association that cannot be taken out, so that a misbehaving partner cannot make it loop.
template <typename RemoveOne>
void DetachList(ObObject* self, ObAssociation* ObObject::*list, int line, const char* message,
                RemoveOne removeOne) {
    while (ObAssociation* first = self->*list) {
        _ObObject* partner = first->partner;
        const int type = first->type;
        const bool removable =
            Access::IsValid(partner) && Access::IsValid(self) && ob::TypeDefined(type);
        if (!removable || removeOne(ObObject::FromHandle(partner), type) != 0 ||
            self->*list == first) {
            DebugAssert(kModule, line, "ObObject::Destroy", kLevelObject, message, "FALSE");
            return;
        }
    }
}

}  // namespace

// ---- Static data. ----

constinit ObObject ObObject::Exemplar_{ObObject::ExemplarTag{}};
ObObject* ObObject::ExemplarTable_[kObMaxClasses] = {&ObObject::Exemplar_};
ObObjectList ObObject::delayedDeleteList_ = {nullptr, 0, 0};

// ---- Construction, memory. ----

ObObject::ObObject() : _ObObject{0, 0, -1, nullptr, nullptr, nullptr, nullptr} {
    void* block = ob::NewExDataBlock();
    obExData = block != nullptr ? new (block) ObObjectExtendedData() : nullptr;
}

ObObject::~ObObject() {
    if (!retired_) Access::Detach(this);
    if (obExData != nullptr) {
        obExData->~ObObjectExtendedData();
        ob::FreeExDataBlock(obExData);
        obExData = nullptr;
    }
}

void* ObObject::operator new(std::size_t size) {
    void* block = UtCcalloc(1, size);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

void* ObObject::operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return UtCcalloc(1, size);
}

void ObObject::operator delete(void* block) noexcept { UtCfree(block); }

ObObject* ObObject::Make() const { return new (std::nothrow) ObObject(); }

ObObject& ObObject::operator=(const ObObject& other) {
    if (this != &other) {
        obClass = other.obClass;
        obState = static_cast<uint16_t>(other.obState & ~OB_STATE_BUSY);
        obSpare = other.obSpare;
    }
    return *this;
}

// ---- Composite hooks: the base object has no parts. ----

int ObObject::nParts() const { return 0; }
ObObject* ObObject::part(int) const { return nullptr; }
ObObject* ObObject::child() const { return nullptr; }
ObObject* ObObject::next() const { return nullptr; }
ObObject* ObObject::prev() const { return nullptr; }
ObObject* ObObject::GetParent() const { return nullptr; }
ObObject* ObObject::GetNextTo(const ObObject*) const { return nullptr; }
ObObject* ObObject::GetPrevTo(const ObObject*) const { return nullptr; }

// ---- State. ----

void ObObject::SetData(void* data) { obData = data; }
void ObObject::SetToState(uint16_t state) { obState = state; }
void ObObject::SetState(uint16_t mask) { obState |= mask; }
void ObObject::ResetState(uint16_t mask) { obState &= static_cast<uint16_t>(~mask); }

void ObObject::Select(bool on) {
    if (on) {
        SetState(OB_STATE_SELECTED);
    } else {
        ResetState(OB_STATE_SELECTED);
    }
}

OB_STATUS ObObject::Execute() { return upToDate() ? OB_OK : DoUpdate(); }

// ---- Methods. ----

void ObObject::TellStore(uint32_t event) {
    if (!CbCallbackAny(&g_store.callbacks, event)) return;
    ObCallbackRecord record{this, event};
    CbCallbackPerformByMask(&g_store.callbacks, event, &record);
}

OB_STATUS ObObject::Destroy() {
    if (destroyed()) return OB_FAILED;
    if (busy()) return OB_REFUSED;
    ob::Pin pin;
    SetBusy(this);
    if (g_store.propagateDestroy != 0) {
        ob::Notify(this, ObObjectExtendedData::kEventDestroy);
        ObDoAssociations(this, OB_PROPAGATE_DESTROY, this, OB_METHOD_DESTROY, OB_METHOD_PARAM{});
        TellStore(OB_EVENT_DESTROYED);
    }
    const OB_STATUS result = CallDestroyData();
    if (result == OB_FAILED) {
        DebugAssert(kModule, kLineDestroyDataFailed, "ObObject::Destroy", kLevelClass,
                    "DestroyData returns OB_FAILED!", "(Result != OB_FAILED)");
    }
    if (result == OB_FAILED || result == OB_REFUSED) {
        // The data block is still there, so the object stays whole: associations and state.
        ClearBusy(this);
        return result;
    }
    DetachList(
        this, &ObObject::obActive, kLineActiveAssoc, "active association cant be destroyed",
        [this](ObObject* partner, int type) { return partner->RemoveDependent(this, type); });
    DetachList(this, &ObObject::obPassive, kLinePassiveAssoc,
               "passive association cant be destroyed",
               [this](ObObject* partner, int type) { return RemoveDependent(partner, type); });
    obState = OB_STATE_DESTROYED | OB_STATE_INVALID;
    obClass = 0;
    return result;
}

OB_STATUS ObObject::Check() {
    if (destroyed()) return OB_FAILED;
    if (busy()) return OB_REFUSED;
    if (state(OB_STATE_EXTERN)) return invalid() ? OB_FAILED : OB_OK;
    ob::Pin pin;
    ob::Notify(this, ObObjectExtendedData::kEventCheck);
    SetBusy(this);
    const OB_STATUS result = CheckData();
    if (result == OB_OK) {
        ObDoAssociations(this, OB_PROPAGATE_CHECK, this, OB_METHOD_CHECK, OB_METHOD_PARAM{});
    }
    ClearBusy(this);
    return result;
}

OB_STATUS ObObject::MarkUpdate() {
    if (destroyed()) return OB_FAILED;
    if (busy()) return OB_REFUSED;
    ob::Pin pin;
    ob::Notify(this, ObObjectExtendedData::kEventMarkUpdate);
    SetBusy(this);
    OB_STATUS result = DataMarkUpdate();
    if (result == OB_OK && g_store.propagateUpdate != 0) {
        result = ObDoAssociations(this, OB_PROPAGATE_MARK_UPDATE, this, OB_METHOD_MARK_UPDATE,
                                  OB_METHOD_PARAM{});
    }
    ClearBusy(this);
    return result;
}

OB_STATUS ObObject::UpdateFromAssoc(const AssociationInfo* info, _ObObject* origin,
                                    OB_METHOD_ID method, OB_METHOD_PARAM param) {
    if (destroyed()) return OB_FAILED;
    if (busy()) return OB_REFUSED;
    ob::Pin pin;
    SetBusy(this);
    const OB_STATUS result = DataUpdateFromAssoc(info, origin, method, param);
    ClearBusy(this);
    return result;
}

OB_STATUS ObObject::DoUpdate() {
    if (destroyed()) return OB_FAILED;
    if (busy()) return OB_REFUSED;
    ob::Pin pin;
    ob::Notify(this, ObObjectExtendedData::kEventDoUpdate);
    SetBusy(this);
    OB_STATUS result = DoUpdateData();
    if (result == OB_OK) {
        result = ObDoAssociations(this, OB_PROPAGATE_DO_UPDATE, this, OB_METHOD_DO_UPDATE,
                                  OB_METHOD_PARAM{});
    }
    ClearBusy(this);
    return result;
}

OB_STATUS ObObject::User(int32_t command, void* param) {
    if (destroyed()) return OB_FAILED;
    // Command 81 re-enters a busy object on purpose; the outer call owns the busy bit.
    const bool reentered = busy();
    if (reentered && command != kCommandReentrant) return OB_REFUSED;
    ob::Pin pin;
    SetBusy(this);
    const OB_STATUS result = DataUser(command, param);
    if (result == OB_OK && g_store.propagateUser != 0) {
        ob::Notify(this, ObObjectExtendedData::kEventUser);
        ObDoAssociations(this, OB_PROPAGATE_USER, this, OB_METHOD_USER,
                         OB_METHOD_PARAM{command, param});
    }
    if (!reentered) ClearBusy(this);
    return result;
}

OB_STATUS ObObject::Load() {
    if (destroyed()) return OB_FAILED;
    if (busy()) return OB_REFUSED;
    ob::Pin pin;
    SetBusy(this);
    const OB_STATUS result = ReadData();
    ClearBusy(this);
    return result;
}

OB_STATUS ObObject::CallDestroyData() {
    if (!state(OB_STATE_EXTERN)) return DestroyData();
    UtFreeMemory(obData);
    obData = nullptr;
    return OB_OK;
}

// ---- Class dispatch. ----

const char* ObObject::Describe() {
    const ob::ClassRecord* c = ClassRecordOf(obClass);
    return c != nullptr ? c->describe(this) : nullptr;
}

OB_STATUS ObObject::StraightUser(int32_t command, void* param) {
    const ob::ClassRecord* c = ClassRecordOf(obClass);
    return c != nullptr ? c->straightUser(this, command, param) : OB_FAILED;
}

OB_STATUS ObObject::SaveData() {
    const ob::ClassRecord* c = ClassRecordOf(obClass);
    return c != nullptr ? c->save(this) : OB_FAILED;
}

OB_STATUS ObObject::ReadData() {
    const ob::ClassRecord* c = ClassRecordOf(obClass);
    return c != nullptr ? c->read(this) : OB_FAILED;
}

OB_STATUS ObObject::RelocateData() {
    const ob::ClassRecord* c = ClassRecordOf(obClass);
    return c != nullptr ? c->relocate(this) : OB_FAILED;
}

OB_STATUS ObObject::AddRelocateInfo(void*) { return OB_OK; }

OB_STATUS ObObject::CreateData(void* param) {
    const ob::ClassRecord* c = ClassRecordOf(obClass);
    return c != nullptr ? c->create(this, param) : OB_FAILED;
}

OB_STATUS ObObject::DestroyData() {
    const ob::ClassRecord* c = ClassRecordOf(obClass);
    return c != nullptr ? c->destroy(this) : OB_OK;
}

OB_STATUS ObObject::CheckData() {
    const ob::ClassRecord* c = ClassRecordOf(obClass);
    return c != nullptr ? c->check(this) : OB_OK;
}

OB_STATUS ObObject::DataMarkUpdate() {
    const ob::ClassRecord* c = ClassRecordOf(obClass);
    return c != nullptr ? c->markUpdate(this) : OB_FAILED;
}

OB_STATUS ObObject::DataUpdateFromAssoc(const AssociationInfo* info, _ObObject* origin,
                                        OB_METHOD_ID method, OB_METHOD_PARAM param) {
    const ob::ClassRecord* c = ClassRecordOf(obClass);
    return c != nullptr ? c->updateFromAssoc(this, info, origin, method, param) : OB_FAILED;
}

OB_STATUS ObObject::DoUpdateData() {
    const ob::ClassRecord* c = ClassRecordOf(obClass);
    return c != nullptr ? c->doUpdate(this) : OB_FAILED;
}

OB_STATUS ObObject::DataUser(int32_t command, void* param) {
    const ob::ClassRecord* c = ClassRecordOf(obClass);
    return c != nullptr ? c->user(this, command, param) : OB_FAILED;
}

// ---- Associations. ----

int ObObject::AddSingleAssoc(ObObject* partner, int type, OB_ASSOC_LIST_TYPE list) {
    if (partner == nullptr) return -2;
    ObAssociation* record = ob::NewRecord(type, partner);
    if (record == nullptr) return -5;
    if (list == OB_ASSOC_ACTIVE) {
        record->next = obActive;
        obActive = record;
    } else {
        Access::PushPassive(this, record);
    }
    return 0;
}

int ObObject::AddDependent(ObObject* dependent, int type) {
    const int added = AddSingleAssoc(dependent, type, OB_ASSOC_PASSIVE);
    if (added != 0) return added;
    const int result = dependent->AddConstraint(this, type);
    if (result != 0) Access::ReleaseRecord(Access::UnlinkPassive(this, dependent, type));
    return result;
}

int ObObject::RemoveDependent(ObObject* dependent, int type) {
    if (dependent == nullptr) return -2;
    ObAssociation* record = Access::UnlinkPassive(this, dependent, type);
    if (record == nullptr) return OB_FAILED;
    // With the wildcard type, the mirror record is the one of the type actually found.
    const int result = dependent->RemoveConstraint(this, record->type);
    Access::ReleaseRecord(record);
    return result;
}

int ObObject::AddConstraint(ObObject* passive, int type) {
    return AddSingleAssoc(passive, type, OB_ASSOC_ACTIVE);
}

int ObObject::RemoveConstraint(ObObject* passive, int type) {
    if (passive == nullptr) return -2;
    ObAssociation* record = ob::Unlink(&obActive, passive, type);
    if (record == nullptr) return OB_FAILED;
    Access::ReleaseRecord(record);
    return 0;
}

std::size_t ObObject::GetMemSize() const {
    std::size_t size = sizeof(ObObject);
    if (obExData != nullptr) size += sizeof(ObObjectExtendedData);
    return size + (CountRecords(obActive) + CountRecords(obPassive)) * sizeof(ObAssociation);
}

OB_STATUS ObObject::SetGuid(const char* text) {
    return obExData != nullptr ? obExData->SetGuid(text) : OB_FAILED;
}

const char* ObObject::GetGuid() const {
    return obExData != nullptr ? obExData->GetGuid() : nullptr;
}

// ---- Creation and classes. ----

ObObject* ObObject::Allocate(int classNo) {
    if (classNo < 0 || classNo >= kObMaxClasses) return nullptr;
    const ObObject* exemplar =
        ExemplarTable_[classNo] != nullptr ? ExemplarTable_[classNo] : ExemplarTable_[0];
    ObObject* object = exemplar->Make();
    if (object == nullptr) return nullptr;
    if (object->obExData == nullptr) {  // the extended data could not be had
        delete object;
        return nullptr;
    }
    object->SetClass(classNo);
    return object;
}

ObObject* ObObject::Create(int classNo, void* param) {
    if (ClassRecordOf(classNo) == nullptr) {  // an exemplar alone is not enough to create
        DebugAssertInv(kModule, kLineUnknownClass, "ObObject::Create", kLevelClass,
                       "unknown objectclass", "Class", classNo);
        return nullptr;
    }
    ObObject* object = Allocate(classNo);
    if (object == nullptr) return nullptr;
    ob::Pin pin;
    object->obState = OB_STATE_BUSY;
    if (object->CreateData(param) == OB_OK) {
        ob::Notify(object, ObObjectExtendedData::kEventCreate);
        ObDoAssociations(object, OB_PROPAGATE_CREATE, object, OB_METHOD_CREATE,
                         OB_METHOD_PARAM{0, param});
        ClearBusy(object);
        return object;
    }
    object->obState = OB_STATE_DESTROYED | OB_STATE_INVALID;
    Access::DeleteObject(object);
    return nullptr;
}

ObObject* ObObject::CreateCopy(ObObject* source) {
    if (!Access::IsValid(source)) return nullptr;
    ObObject* copy = source->Make();
    if (copy == nullptr) return nullptr;
    if (copy->obExData == nullptr) {
        delete copy;
        return nullptr;
    }
    ob::Pin pin;
    *copy = *source;
    const uint16_t copiedState = copy->obState;
    copy->obState = OB_STATE_BUSY;
    if (copy->CreateData(source->Handle()) == OB_OK) {
        ob::Notify(copy, ObObjectExtendedData::kEventCreate);
        ObDoAssociations(copy, OB_PROPAGATE_CREATE, copy, OB_METHOD_CREATE,
                         OB_METHOD_PARAM{0, source->Handle()});
        copy->obState = static_cast<uint16_t>(copiedState | (copy->obState & ~OB_STATE_BUSY));
        return copy;
    }
    copy->obState = OB_STATE_DESTROYED | OB_STATE_INVALID;
    Access::DeleteObject(copy);
    return nullptr;
}

bool ObObject::ClassValid(int classNo) {
    if (classNo <= 0 || classNo >= kObMaxClasses) return false;
    return ExemplarTable_[classNo] != nullptr || g_store.classMap[classNo] != 0;
}

int ObObject::InstallClass(int classNo, ObObject* exemplar) {
    if (classNo <= 0 || classNo >= kObMaxClasses) return -1;
    ExemplarTable_[classNo] = exemplar;
    return 0;
}

// ---- Deferred release. ----

namespace kbase::object_store_internal {

namespace {

// Under AddressSanitizer a free record is poisoned, so that reading one is still caught although
// its memory stays in the pool.
#if defined(__SANITIZE_ADDRESS__)
#define KBASE_HAS_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KBASE_HAS_ASAN 1
#endif
#endif
#if defined(KBASE_HAS_ASAN)
extern "C" void __asan_poison_memory_region(void const volatile* addr, size_t size);
extern "C" void __asan_unpoison_memory_region(void const volatile* addr, size_t size);
template <typename T>
void Poison(T* p) {
    __asan_poison_memory_region(p, sizeof *p);
}
template <typename T>
void Unpoison(T* p) {
    __asan_unpoison_memory_region(p, sizeof *p);
}
#else
template <typename T>
void Poison(T*) {}
template <typename T>
void Unpoison(T*) {}
#endif

void FreeRecord(ObAssociation* record) {
    record->partner = nullptr;
    record->next = g_store.freeRecords;
    g_store.freeRecords = record;
    ++g_store.freeRecordCount;
    Poison(record);
}

bool AddRecordChunk() {
    const uint32_t count =
        g_store.nextChunkRecords != 0 ? g_store.nextChunkRecords : kFirstChunkRecords;
    auto* chunk = static_cast<RecordChunk*>(
        UtCcalloc(1, sizeof(RecordChunk) + size_t{count} * sizeof(ObAssociation)));
    if (chunk == nullptr) return false;
    chunk->next = g_store.recordChunks;
    chunk->count = count;
    g_store.recordChunks = chunk;
    g_store.nextChunkRecords = count < kMaxChunkRecords ? count * 2 : kMaxChunkRecords;
    // Records are mostly asked for in pairs, the passive record of an association and then its
    // active mirror. Hand them out alternately from the two halves of the chunk, each half in
    // address order, so that the records of one passive list lie side by side and a walk reads
    // no active records in between. (Freed last first: the free list is a stack.)
    ObAssociation* records = chunk->Records();
    const uint32_t half = count / 2;
    for (uint32_t i = half; i-- > 0;) {
        FreeRecord(&records[half + i]);
        FreeRecord(&records[i]);
    }
    return true;
}

void FreeExDataSlot(ExDataSlot* slot) {
    slot->next = g_store.freeExData;
    g_store.freeExData = slot;
    Poison(slot);
}

bool AddExDataChunk() {
    auto* chunk = static_cast<ExDataChunk*>(UtCcalloc(1, sizeof(ExDataChunk)));
    if (chunk == nullptr) return false;
    chunk->next = g_store.exDataChunks;
    g_store.exDataChunks = chunk;
    for (int i = kExDataPerChunk - 1; i >= 0; --i) FreeExDataSlot(&chunk->slots[i]);
    return true;
}

}  // namespace

void* NewExDataBlock() {
    if (g_store.freeExData == nullptr && !AddExDataChunk()) return nullptr;
    ExDataSlot* slot = g_store.freeExData;
    Unpoison(slot);
    g_store.freeExData = slot->next;
    return slot->bytes;
}

void FreeExDataBlock(void* block) {
    if (block != nullptr) FreeExDataSlot(static_cast<ExDataSlot*>(block));
}

ObAssociation* NewRecord(int type, _ObObject* partner) {
    if (g_store.freeRecords == nullptr && !AddRecordChunk()) return nullptr;
    ObAssociation* record = g_store.freeRecords;
    Unpoison(record);
    g_store.freeRecords = record->next;
    --g_store.freeRecordCount;
    *record = ObAssociation{static_cast<uint16_t>(type), partner, nullptr};
    return record;
}

ObAssociation* Unlink(ObAssociation** head, const _ObObject* partner, int type) {
    for (ObAssociation** link = head; *link != nullptr; link = &(*link)->next) {
        ObAssociation* r = *link;
        if (r->partner == partner && TypeMatches(r->type, type)) {
            *link = r->next;
            r->next = nullptr;
            return r;
        }
    }
    return nullptr;
}

void Access::ReleaseRecord(ObAssociation* record) {
    if (record == nullptr) return;
    if (g_store.pinDepth > 0) {
        record->next = g_store.retiredRecords;
        g_store.retiredRecords = record;
        return;
    }
    FreeRecord(record);
}

void Access::Detach(ObObject* object) {
    if (object->inDelayedList_) {
        ObObjectList& list = ObObject::delayedDeleteList_;
        for (uint32_t i = 0; i < list.count; ++i) {
            if (list.items[i] != object) continue;
            std::memmove(&list.items[i], &list.items[i + 1],
                         (list.count - i - 1) * sizeof(ObObject*));
            --list.count;
            break;
        }
        object->inDelayedList_ = false;
    }
    // Every record has a mirror in the partner's opposite list; both go.
    while (ObAssociation* r = object->obActive) {
        object->obActive = r->next;
        ReleaseRecord(UnlinkPassive(r->partner, object, r->type));
        ReleaseRecord(r);
    }
    while (ObAssociation* r = object->obPassive) {
        object->obPassive = r->next;
        ReleaseRecord(Unlink(&r->partner->obActive, object, r->type));
        ReleaseRecord(r);
    }
    object->passiveCount_ = 0;
    for (uint16_t c = 1; object->classAssocRefs_ > 0 && c <= g_store.classCount; ++c) {
        ObAssociation** head = &g_store.classes[c].classAssocs;
        while (ObAssociation* r = Unlink(head, object, kObAnyAssocType)) {
            ReleaseRecord(r);
            --object->classAssocRefs_;
            --g_store.classAssocCount[c];
        }
    }
    object->classAssocRefs_ = 0;
}

void Access::Retire(ObObject* object) {
    Detach(object);
    object->obState = OB_STATE_DESTROYED | OB_STATE_INVALID;
    object->obClass = 0;
    object->retired_ = true;
}

void Access::DeleteObject(ObObject* object) {
    if (!object->retired_) {
        object->deletedState_ = object->obState;
        object->deletedClass_ = object->obClass;
        Retire(object);
    }
    if (g_store.pinDepth > 0) {
        object->nextRetired_ = g_store.retiredObjects;
        g_store.retiredObjects = object;
        return;
    }
    Release(object);
}

void Access::Release(ObObject* object) {
    // The DESTROYED mark of Retire guarded the wait; a derived destructor sees the object as the
    // deleting code left it (a destroy entry point that returned 3 left it unmarked).
    object->obState = object->deletedState_;
    object->obClass = object->deletedClass_;
    delete object;
}

void Access::FlushRetired() {
    // Destructors of derived objects may release more; loop until nothing is left.
    while (g_store.retiredObjects != nullptr || g_store.retiredRecords != nullptr) {
        ObAssociation* r = g_store.retiredRecords;
        g_store.retiredRecords = nullptr;
        while (r != nullptr) {
            ObAssociation* next = r->next;
            FreeRecord(r);
            r = next;
        }
        ObObject* o = g_store.retiredObjects;
        g_store.retiredObjects = nullptr;
        while (o != nullptr) {
            ObObject* next = o->nextRetired_;
            Release(o);
            o = next;
        }
    }
}

}  // namespace kbase::object_store_internal
