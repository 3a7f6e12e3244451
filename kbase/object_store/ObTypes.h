// Types of the object store: the object handle, status codes, state flags, method numbers and
// masks, association records and the entry points a class is defined with.
//
// The store keeps objects of classes that the host defines at run time (ObDefineClass in
// ObStore.h). Every object is an ObObject (ObObject.h); the plain functions take and return its
// handle, the address of the object's data just behind its polymorphic part.
#pragma once

#include <cstdint>

#include "kbase/export.h"

// Class numbers and association type numbers are below this bound.
constexpr int kObMaxClasses = 2000;
constexpr int kObMaxAssocTypes = 2000;
// As a type argument of the removing functions, matches every association type.
constexpr int kObAnyAssocType = 2000;

// Results of the object operations. Below OB_REFUSED counts as success.
using OB_STATUS = int;
constexpr OB_STATUS OB_OK = 0;
constexpr OB_STATUS OB_ACCEPTED = 1;  // success, for callers that test "below 2"
constexpr OB_STATUS OB_REFUSED = 2;   // busy, not done now, or (destroy) object kept
constexpr OB_STATUS OB_FAILED = 3;    // invalid object or failure

// State flags of an object.
constexpr uint16_t OB_STATE_DESTROYED = 0x0001;  // destruction done; every method returns 3
constexpr uint16_t OB_STATE_INVALID = 0x0002;
constexpr uint16_t OB_STATE_BUSY = 0x0004;  // a method of the object runs; re-entry returns 2
constexpr uint16_t OB_STATE_UPTOD = 0x0008;      // data up to date
constexpr uint16_t OB_STATE_SAVED = 0x0010;
constexpr uint16_t OB_STATE_REALIZED = 0x0020;
constexpr uint16_t OB_STATE_SELECTED = 0x0040;
// The data block is an external-object record (a block of UtAllocMemoryBlock, released by
// destroy) and ObGetData hides it.
constexpr uint16_t OB_STATE_EXTERN = 0x0080;
constexpr uint16_t OB_STATE_RESERVED = 0x0100;
constexpr uint16_t OB_STATE_RULE = 0x0200;
constexpr uint16_t OB_STATE_SPLITTED = 0x0400;  // substitute put in by ObSplitAssoc
constexpr uint16_t OB_STATE_UPDATING = 0x0800;
constexpr uint16_t OB_STATE_CHG_ELEM = 0x1000;
constexpr uint16_t OB_STATE_TRANS = 0x2000;
constexpr uint16_t OB_STATE_MARKED = 0x4000;
constexpr uint16_t OB_STATE_ORIGINAL = 0x8000;

// Method numbers handed to the update-from-association entry point.
enum OB_METHOD_ID : int32_t {
    OB_METHOD_CREATE = 0,
    OB_METHOD_DESTROY = 1,
    OB_METHOD_CHECK = 6,
    OB_METHOD_MARK_UPDATE = 7,
    OB_METHOD_DO_UPDATE = 9,
    OB_METHOD_USER = 10,
};

// Method bits of an association type's propagation mask: the methods that travel along it.
constexpr uint16_t OB_PROPAGATE_CREATE = 0x0001;
constexpr uint16_t OB_PROPAGATE_DESTROY = 0x0002;
constexpr uint16_t OB_PROPAGATE_CHECK = 0x0010;
constexpr uint16_t OB_PROPAGATE_MARK_UPDATE = 0x0020;
constexpr uint16_t OB_PROPAGATE_DO_UPDATE = 0x0080;
constexpr uint16_t OB_PROPAGATE_USER = 0x0100;

// Event mask the store raises on its callback list when an object is destroyed.
constexpr uint32_t OB_EVENT_DESTROYED = 0x800;

// Which of an object's two association lists.
enum OB_ASSOC_LIST_TYPE : int32_t {
    OB_ASSOC_ACTIVE = 0,   // records naming the objects this one depends on
    OB_ASSOC_PASSIVE = 1,  // records naming the objects that depend on this one
};

struct ObAssociation;
class ObObjectExtendedData;

// The object handle: the data of an object, just behind its polymorphic part.
struct _ObObject {
    uint16_t obClass;  // 0 = none (destruction done); valid classes are 1..1999
    uint16_t obState;  // OB_STATE_* flags
    int32_t obSpare;   // -1 from the constructor; not used by the store
    void* obData;      // the class's data block (an external-object record when EXTERN)
    ObAssociation* obActive;   // associations in which this object is the active partner
    ObAssociation* obPassive;  // associations in which this object is the passive partner
    ObObjectExtendedData* obExData;
};

// One association as seen from one partner. Each association exists twice: in the active
// partner's active list naming the passive one, and in the passive partner's passive list
// naming the active one. New records go to the front of a list.
struct ObAssociation {
    uint16_t type;
    _ObObject* partner;
    ObAssociation* next;
};

// What a partner receives along an association: the object whose method travels (origin), the
// direction (1 in every walk of the store: from the passive to the active partner) and the record
// along which the call travels: one of the origin's passive list, or of its class's
// class-association list, naming the receiving partner.
struct AssociationInfo {
    _ObObject* origin;
    int32_t direction;
    ObAssociation* assoc;
};

// Parameter handed on with a method: the creation parameter for create (in param), the command
// number and user parameter for user commands; zero for the others.
struct OB_METHOD_PARAM {
    int32_t command;
    void* param;
};

// What the store's callbacks receive as record (event OB_EVENT_DESTROYED).
struct ObCallbackRecord {
    _ObObject* object;  // still carries its class number and data when the callback runs
    uint32_t event;
};

// Entry points of a class. A null entry point given to ObDefineClass gets the store's default.
using ObCreateFunc = OB_STATUS (*)(_ObObject* self, void* param);
using ObObjectFunc = OB_STATUS (*)(_ObObject* self);
using ObDescribeFunc = const char* (*)(_ObObject* self);
using ObUpdateFromAssocFunc = OB_STATUS (*)(_ObObject* self, const AssociationInfo* info,
                                            _ObObject* origin, OB_METHOD_ID method,
                                            OB_METHOD_PARAM param);
using ObUserFunc = OB_STATUS (*)(_ObObject* self, int32_t command, void* param);
