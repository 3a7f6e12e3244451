// ObObject: one object of the store, and its extended data.
//
// The plain functions of ObStore.h work on handles; behind each handle stands an ObObject whose
// virtual operations run the entry points of the object's class. A host may instead derive from
// ObObject, override the *Data operations, and install an exemplar of the derived type for its
// class number (InstallClass); objects of that class are then made by the exemplar's Make.
//
// Memory: objects are allocated through basert (UtCcalloc), extended data and association
// records from chunks that the store allocates the same way, so a test can make any of them fail
// (a pooled one when its pool is empty).
//
// Deletion is deferred while a method of any object runs: an object deleted from inside an entry
// point is detached and marked DESTROYED|INVALID with class 0 at once, and its memory is released
// when the outermost running method returns. A walk over an array of partners therefore meets
// a deleted partner as an invalid object, never as freed memory. The mark lasts only while the
// deletion waits: a destructor sees the state word and class number the object was deleted with
// (after a destroy entry point that returned 3, those the object had before).
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>

#include "kbase/export.h"
#include "kbase/object_store/ObTypes.h"

namespace kbase::object_store_internal {
struct Access;
}

// Extended data of an object: its recent events, each with the update detail in force at the
// time, and its GUID.
class KBASE_API ObObjectExtendedData {
public:
    // Events the store notifies.
    static constexpr int32_t kEventCreate = 1;
    static constexpr int32_t kEventDestroy = 3;
    static constexpr int32_t kEventCheck = 4;
    static constexpr int32_t kEventMarkUpdate = 5;
    static constexpr int32_t kEventDoUpdate = 6;
    static constexpr int32_t kEventUser = 7;

    // The update-detail stack keeps the newest kDetailDepth events; older ones drop out, so an
    // object nobody asks never grows.
    static constexpr int kDetailDepth = 8;
    struct DetailEntry {
        int32_t event;
        int32_t detail;  // the store's update detail when the event came
    };

    // Pushes event together with the store's current update detail.
    void PushUpdateDetail(int32_t event);
    int DetailCount() const { return count_; }
    // The i-th entry from the top (0 = newest); {0, 0} when i is out of range.
    DetailEntry DetailAt(int i) const;
    // Takes the newest entry off into *out (which may be null). False when the stack is empty.
    bool PopUpdateDetail(DetailEntry* out);
    void ClearUpdateDetails() { count_ = 0; }

    // Stores a GUID in its 36-character text form (8-4-4-4-12 hex digits), as given. Null clears
    // it. Returns OB_OK, or OB_FAILED for any other text (the stored GUID is kept).
    OB_STATUS SetGuid(const char* text);
    // The stored GUID text, or null when none is set.
    const char* GetGuid() const { return guid_[0] != '\0' ? guid_ : nullptr; }

private:
    DetailEntry details_[kDetailDepth] = {};
    int top_ = 0;  // index of the next push
    int count_ = 0;
    char guid_[37] = {};
};

// A list of objects (the delayed-destroy list).
struct ObObjectList {
    class ObObject** items;
    uint32_t count;
    uint32_t capacity;
};

class KBASE_API ObObject : public _ObObject {
public:
    // Tag of the constructor for exemplars, which are statics and own no extended data.
    struct ExemplarTag {};

    // A bare object: class 0, state 0, spare -1, no data or associations, new extended data
    // (null when memory is exhausted; Create and Allocate refuse such an object).
    ObObject();
    ObObject(const ObObject&) = delete;

    static void* operator new(std::size_t size);
    static void* operator new(std::size_t size, const std::nothrow_t&) noexcept;
    static void operator delete(void* block) noexcept;

    static ObObject* FromHandle(_ObObject* handle) { return static_cast<ObObject*>(handle); }
    static const ObObject* FromHandle(const _ObObject* handle) {
        return static_cast<const ObObject*>(handle);
    }
    _ObObject* Handle() { return this; }

    // ---- Virtual operations, in slot order. ----

    // A new object of this object's own type (null when memory is exhausted).
    virtual ObObject* Make() const;
    // Detaches what is still attached (associations, class associations, delayed-destroy entry)
    // and releases the extended data. The data block belongs to the class and is left alone.
    virtual ~ObObject();
    // Copies the class number, the state word (without busy) and the spare number. Data block,
    // associations and extended data (GUID) stay those of this object.
    virtual ObObject& operator=(const ObObject& other);
    virtual int classNo() const { return obClass; }
    // Composite objects: the base has no parts, children, siblings or parent (0 and null).
    virtual int nParts() const;
    virtual ObObject* part(int index) const;
    virtual ObObject* child() const;
    virtual ObObject* next() const;
    virtual ObObject* prev() const;
    virtual ObObject* GetParent() const;
    virtual ObObject* GetNextTo(const ObObject* part) const;
    virtual ObObject* GetPrevTo(const ObObject* part) const;
    virtual void SetData(void* data);
    // Replaces the whole state word.
    virtual void SetToState(uint16_t state);
    // Sets the bits of mask.
    virtual void SetState(uint16_t mask);
    // Clears the bits of mask.
    virtual void ResetState(uint16_t mask);
    // Sets (on) or clears SELECTED.
    virtual void Select(bool on);
    // Brings the object up to date: DoUpdate when UPTOD is clear, else OB_OK.
    virtual OB_STATUS Execute();
    // Destroys: propagates destroy, tells the store's callbacks, destroys the data block,
    // detaches every association and marks the object DESTROYED|INVALID with class 0. Returns
    // 3 when already destroyed, 2 when busy, else the result of destroying the data block (2 and
    // 3 keep the object undetached; the caller decides whether to delete it).
    virtual OB_STATUS Destroy();
    // Tells the store's callback list of event, with a record carrying this object's handle,
    // when some switched-on entry listens to it.
    virtual void TellStore(uint32_t event);
    // Checks the data; propagates check when the class's check returns 0.
    // Returns the class's result (never the partners'): 3 destroyed, 2 busy, 0 for EXTERN.
    virtual OB_STATUS Check();
    // The class's description, or null when the class has no record.
    virtual const char* Describe();
    // Marks for update and, while the propagate-update switch is on, propagates mark update.
    // Returns 3 destroyed, 2 busy, the class's result when not 0, else the walk's (0, or 3 when
    // a partner failed).
    virtual OB_STATUS MarkUpdate();
    // Receives a partner's method: 3 destroyed, 2 busy, else the class's result. Never
    // propagates by itself.
    virtual OB_STATUS UpdateFromAssoc(const AssociationInfo* info, _ObObject* origin,
                                      OB_METHOD_ID method, OB_METHOD_PARAM param);
    // Brings the data up to date and propagates do update. Results as MarkUpdate.
    virtual OB_STATUS DoUpdate();
    // Runs a user command and, while the propagate-user switch is on, propagates it. While busy,
    // command 81 is let through (and leaves busy to the outer call); others return 2. Returns
    // the class's result.
    virtual OB_STATUS User(int32_t command, void* param);
    // Runs a user command without busy guard and without propagation.
    virtual OB_STATUS StraightUser(int32_t command, void* param);
    virtual OB_STATUS SaveData();
    virtual OB_STATUS ReadData();
    virtual OB_STATUS RelocateData();
    // Hook for writers of object sets, which keep relocation tables; this store writes no sets,
    // so the base records nothing and returns OB_OK.
    virtual OB_STATUS AddRelocateInfo(void* table);
    // On the passive object: records dependent (the active partner) at the front of the passive
    // list, then lets dependent add the matching active record (AddConstraint); when that fails,
    // takes the passive record out again. 0; -2 null dependent; -5 memory exhausted; or the
    // dependent's non-zero result.
    virtual int AddDependent(ObObject* dependent, int type);
    // Inverse of AddDependent: takes out the first passive record naming dependent with type
    // (kObAnyAssocType: any type) and the dependent's matching active record. 0, or OB_FAILED
    // when no such record exists.
    virtual int RemoveDependent(ObObject* dependent, int type);
    // Bytes held by the object, its extended data and its association records (not the data
    // block, which belongs to the class).
    virtual std::size_t GetMemSize() const;
    virtual OB_STATUS SetGuid(const char* text);
    virtual const char* GetGuid() const;
    virtual ObObjectExtendedData* GetExData() const { return obExData; }
    // The *Data operations call the entry point of the object's class. Without a class record:
    // CheckData 0, DestroyData does nothing (0), the others 3.
    virtual OB_STATUS CreateData(void* param);
    virtual OB_STATUS DestroyData();
    virtual OB_STATUS CheckData();
    virtual OB_STATUS DataMarkUpdate();
    virtual OB_STATUS DataUpdateFromAssoc(const AssociationInfo* info, _ObObject* origin,
                                          OB_METHOD_ID method, OB_METHOD_PARAM param);
    virtual OB_STATUS DoUpdateData();
    virtual OB_STATUS DataUser(int32_t command, void* param);
    // On the active object: records passive at the front of the active list. 0, -2 null
    // passive, -5 memory exhausted.
    virtual int AddConstraint(ObObject* passive, int type);
    // Takes out the first active record naming passive with type (kObAnyAssocType: any).
    // 0, or OB_FAILED when there is none.
    virtual int RemoveConstraint(ObObject* passive, int type);

    // ---- Non-virtual members. ----

    bool busy() const { return (obState & OB_STATE_BUSY) != 0; }
    bool destroyed() const { return (obState & OB_STATE_DESTROYED) != 0; }
    bool invalid() const { return (obState & OB_STATE_INVALID) != 0; }
    bool saved() const { return (obState & OB_STATE_SAVED) != 0; }
    bool upToDate() const { return (obState & OB_STATE_UPTOD) != 0; }
    // Whether any bit of mask is set.
    bool state(uint16_t mask) const { return (obState & mask) != 0; }
    void* data() const { return obData; }
    void SetClass(int classNo) { obClass = static_cast<uint16_t>(classNo); }
    ObObject* parent() const { return GetParent(); }
    // Reads the data block through the class's read entry point, under the busy guard.
    // 3 when destroyed, 2 when busy.
    OB_STATUS Load();
    // Step of Destroy: releases an EXTERN object's external-object record (0), or runs
    // DestroyData.
    OB_STATUS CallDestroyData();
    // Puts one record naming partner at the front of the active (OB_ASSOC_ACTIVE) or passive
    // list, and nothing on the partner's side: the caller adds the matching record there, or the
    // lists no longer mirror each other. 0; -2 null partner; -5 memory exhausted.
    int AddSingleAssoc(ObObject* partner, int type, OB_ASSOC_LIST_TYPE list);

    // Creates an object of classNo: made by the class's exemplar, data block from the class's
    // create entry point, create propagated to the class's class associations. Null for an
    // undefined class (reported), a create entry point that does not return 0, or exhausted
    // memory.
    static ObObject* Create(int classNo, void* param);
    // A copy of a valid source: made by source's Make, assigned from source (operator=), then
    // the class's create entry point runs with source's handle as its parameter and create is
    // propagated as for Create. Null when source is invalid or anything fails.
    static ObObject* CreateCopy(ObObject* source);
    // An object of classNo made by its exemplar (the base exemplar for class 0 or a class
    // without one), with no entry point run. Null when classNo is out of range or memory is
    // exhausted.
    static ObObject* Allocate(int classNo);
    // Whether classNo is 1..1999 and has an installed exemplar or a class record.
    static bool ClassValid(int classNo);
    // Installs exemplar for classNo (null removes it). 0, or -1 when classNo is not 1..1999.
    static int InstallClass(int classNo, ObObject* exemplar);
    static const ObObjectList& GetDelayedDeleteList() { return delayedDeleteList_; }

protected:
    // For exemplars: no extended data, nothing allocated, usable in constant initialisation.
    constexpr explicit ObObject(ExemplarTag)
        : _ObObject{0, 0, -1, nullptr, nullptr, nullptr, nullptr} {}

    // Exemplars by class number; entry 0 is the base exemplar.
    static ObObject* ExemplarTable_[kObMaxClasses];
    static ObObject Exemplar_;
    static ObObjectList delayedDeleteList_;

private:
    friend struct kbase::object_store_internal::Access;

    ObObject* nextRetired_ = nullptr;  // chain of objects whose deletion is deferred
    uint32_t classAssocRefs_ = 0;      // class-association records naming this object
    uint32_t passiveCount_ = 0;        // records in the passive list, as the store changed it
    bool retired_ = false;             // detached and marked; deletion pending or under way
    bool inDelayedList_ = false;
    uint16_t deletedState_ = 0;  // state word and class number it was deleted with, given back
    uint16_t deletedClass_ = 0;  // to the destructor
};
