// Process-wide state of the object store, shared by its source files. Not installed.
#pragma once

#include <cstdint>

#include "basert/callbacks.h"
#include "kbase/object_store/ObObject.h"
#include "kbase/object_store/ObTypes.h"

namespace kbase::object_store_internal {

constexpr int kNameSize = 20;  // 19 characters and the terminator
// Record arrays grow whenever their count is a multiple of this, to count + step + 1 records.
constexpr int kRecordGrowthStep = 20;

// One defined class. Record 0 exists, stays zero and is never handed out.
struct ClassRecord {
    char name[kNameSize];
    ObCreateFunc create;
    ObObjectFunc destroy;
    ObDescribeFunc describe;
    ObObjectFunc save;
    ObObjectFunc read;
    ObObjectFunc relocate;
    ObObjectFunc check;
    ObObjectFunc markUpdate;
    ObUpdateFromAssocFunc updateFromAssoc;
    ObObjectFunc doUpdate;
    ObUserFunc user;
    ObUserFunc straightUser;
    ObAssociation* classAssocs;  // objects depending on every object of the class, newest first
};
static_assert(sizeof(void*) != 8 || sizeof(ClassRecord) == 128, "class records are 128 bytes");

// Association records come from chunks, so that records added one after another lie side by
// side and a walk over a long list reads memory in order rather than wherever the heap put each
// record. Chunks are kept for the life of the process; free records are chained through next.
//
// Each chunk holds twice the records of the one before, up to a bound: a small store takes
// little, and a large one gets blocks that the allocator places apart from the objects, so that
// a walk reads its records and its partners as two separate runs of memory.
constexpr uint32_t kFirstChunkRecords = 1024;  // even, as all sizes: handed out from two halves
constexpr uint32_t kMaxChunkRecords = 32768;
struct RecordChunk {
    RecordChunk* next;
    uint32_t count;  // records following this header
    ObAssociation* Records() { return reinterpret_cast<ObAssociation*>(this + 1); }
};
static_assert(sizeof(RecordChunk) % alignof(ObAssociation) == 0, "records follow the header");

// Extended data comes from chunks of its own, so that objects made one after another lie side
// by side: a walk then reads whole lines of objects, not lines shared with extended data that it
// never looks at. Chunks are kept for the life of the process; free slots are chained.
constexpr int kExDataPerChunk = 256;
union ExDataSlot {
    ExDataSlot* next;  // while free
    alignas(ObObjectExtendedData) unsigned char bytes[sizeof(ObObjectExtendedData)];
};
struct ExDataChunk {
    ExDataChunk* next;
    ExDataSlot slots[kExDataPerChunk];
};

struct AssocTypeRecord {
    char name[kNameSize];
    uint16_t propagations;
};

struct StoreState {
    bool initialised;
    int32_t updateDetail;
    int32_t propagateUpdate;
    int32_t propagateDestroy;
    int32_t propagateUser;
    CbCallbackList callbacks;

    uint16_t classMap[kObMaxClasses];  // class number -> record number, 0 = undefined
    uint16_t classCount;
    ClassRecord* classes;
    uint32_t classAssocCount[kObMaxClasses];  // by record number: length of classAssocs
    uint16_t typeMap[kObMaxAssocTypes];  // type number -> record number, 0 = undefined
    uint16_t typeCount;
    AssocTypeRecord* types;

    RecordChunk* recordChunks;
    uint32_t nextChunkRecords;  // records of the next chunk; 0 before the first
    ObAssociation* freeRecords;
    uint32_t freeRecordCount;

    ExDataChunk* exDataChunks;
    ExDataSlot* freeExData;

    // Releases wait while pinDepth > 0, that is while a method of some object runs: objects and
    // records that a running walk or method may still read are chained here instead of freed.
    uint32_t pinDepth;
    ObObject* retiredObjects;
    ObAssociation* retiredRecords;
};
extern StoreState g_store;

inline ClassRecord* ClassRecordOf(int classNo) {
    if (classNo <= 0 || classNo >= kObMaxClasses) return nullptr;
    const uint16_t record = g_store.classMap[classNo];
    return record != 0 ? &g_store.classes[record] : nullptr;
}

inline bool TypeDefined(int type) {
    return type >= 0 && type < kObMaxAssocTypes && g_store.typeMap[type] != 0;
}

// The propagation mask of type; 0 when undefined.
inline uint16_t PropagationsOf(int type) {
    if (type < 0 || type >= kObMaxAssocTypes) return 0;
    const uint16_t record = g_store.typeMap[type];
    return record != 0 ? g_store.types[record].propagations : 0;
}

// Whether a partner's record matches a wanted type (kObAnyAssocType matches every type).
inline bool TypeMatches(int recordType, int wanted) {
    return wanted == kObAnyAssocType || recordType == wanted;
}

// A new record (null when memory is exhausted: a new chunk of records could not be had).
ObAssociation* NewRecord(int type, _ObObject* partner);
// Room for one ObObjectExtendedData (null when memory is exhausted: a new chunk could not be
// had), and its return.
void* NewExDataBlock();
void FreeExDataBlock(void* block);
// Takes the first record naming partner with a matching type out of a list and returns it.
ObAssociation* Unlink(ObAssociation** head, const _ObObject* partner, int type);

// Reaches into ObObject for the store's own bookkeeping.
struct Access {
    // The validity test every dispatching function applies.
    static bool IsValid(const _ObObject* handle) {
        if (handle == nullptr) return false;
        const unsigned classNo = handle->obClass;
        if (classNo == 0 || classNo >= static_cast<unsigned>(kObMaxClasses)) return false;
        if (g_store.classMap[classNo] == 0 && ObObject::ExemplarTable_[classNo] == nullptr) {
            return false;
        }
        return (handle->obState & OB_STATE_DESTROYED) == 0;
    }
    // Null handle, class out of range, or class with neither exemplar nor record.
    static bool HasKnownClass(const _ObObject* handle) {
        if (handle == nullptr || handle->obClass >= kObMaxClasses) return false;
        return ObObject::ExemplarTable_[handle->obClass] != nullptr ||
               g_store.classMap[handle->obClass] != 0;
    }
    static bool Retired(const ObObject* object) { return object->retired_; }

    // Detaches object from everything that names it and marks it DESTROYED|INVALID, class 0.
    static void Retire(ObObject* object);
    // Retires object, then deletes it now or, while pinned, when the last pin goes.
    static void DeleteObject(ObObject* object);
    static void ReleaseRecord(ObAssociation* record);
    static void FlushRetired();
    static void CountClassAssoc(ObObject* object, int delta) {
        object->classAssocRefs_ =
            static_cast<uint32_t>(static_cast<int>(object->classAssocRefs_) + delta);
    }

    // The passive list is changed only through these two, which keep its length. The length is
    // a bound for the walk's array; a host that edits obPassive itself makes it stale, which
    // costs the walk a second pass but never correctness.
    static void PushPassive(ObObject* object, ObAssociation* record) {
        record->next = object->obPassive;
        object->obPassive = record;
        ++object->passiveCount_;
    }
    static ObAssociation* UnlinkPassive(_ObObject* object, const _ObObject* partner, int type) {
        ObObject* o = ObObject::FromHandle(object);
        ObAssociation* record = Unlink(&o->obPassive, partner, type);
        if (record != nullptr && o->passiveCount_ > 0) --o->passiveCount_;
        return record;
    }
    static uint32_t PassiveCount(const _ObObject* object) {
        return object != nullptr ? ObObject::FromHandle(object)->passiveCount_ : 0;
    }
    static void ForgetPassiveCount(ObObject* object) { object->passiveCount_ = 0; }

    static ObObjectList& DelayedList() { return ObObject::delayedDeleteList_; }
    static bool& InDelayedList(ObObject* object) { return object->inDelayedList_; }

private:
    static void Detach(ObObject* object);
    // Deletes a retired object now.
    static void Release(ObObject* object);
    friend class ::ObObject;
};

// Holds back releases while it lives (see StoreState::pinDepth).
class Pin {
public:
    Pin() { ++g_store.pinDepth; }
    ~Pin() {
        if (--g_store.pinDepth == 0 &&
            (g_store.retiredObjects != nullptr || g_store.retiredRecords != nullptr)) {
            Access::FlushRetired();
        }
    }
    Pin(const Pin&) = delete;
    Pin& operator=(const Pin&) = delete;
};

// Tells the object's extended data of an event.
inline void Notify(ObObject* object, int32_t event) {
    if (ObObjectExtendedData* ex = object->GetExData()) ex->PushUpdateDetail(event);
}

}  // namespace kbase::object_store_internal
