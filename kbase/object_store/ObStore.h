// The object store's plain functions.
//
// A host calls ObInit once, defines its classes (numbers 1..1999, each a name and a table of
// entry points) and its association types (numbers 0..1999, each a name and a mask of the
// methods that travel along it), and then works on objects through handles.
//
// Methods and propagation. When an object runs create, destroy, check, mark update, do update or
// a user command, the store tells every object that depends on it (its passive list, newest
// first) and then every object registered as dependent on its whole class, through their
// update-from-association entry point, along association types whose mask holds the method's
// bit. The partners are collected into an array before the first call, so the calls may add,
// remove and destroy freely; a partner destroyed by an earlier call of the same walk is met as an
// invalid object (reported, result 3).
//
// Receiving never propagates by itself. A receiver is busy while its update-from-association
// entry point runs, so ObUpdate on itself returns 2 there; to pass the change on, the entry point
// runs the walk for itself (ObDoAssociations) or calls methods of other objects. The busy bit of
// every object on the way stops cycles: a second arrival at a busy object returns 2, which the
// walk does not count as a failure.
//
// Reports. Misuse is reported through basert's diagnostics (DebugAssert, DebugAssertInv) with
// the module "OB_method" or "ObObject", and never ends the process. An invalid handle given to a
// dispatching function is reported as "illegal objekt", "(Self != NULL)" and gives 3 (null for
// ObDescribe). A handle is valid when it is not null, its class is 1..1999 and has an exemplar
// or a class record, and DESTROYED is clear.
//
// Texts handed out (class, association and description names) point into the store's tables
// and stay valid until the next class or association-type definition, which may move them.
//
// Not thread-safe: the tables, switches and lists are process-wide and unlocked.
#pragma once

#include <cstddef>
#include <cstdint>

#include "basert/callbacks.h"
#include "kbase/export.h"
#include "kbase/object_store/ObTypes.h"

// ---- Set-up. ----

// Sets the update detail and the three propagation switches to 1, initialises the store's
// callback list and empties the class and association-type tables. Call it before anything else:
// classes, types and callbacks registered before the first call are dropped. Only the first call
// acts. Returns 0.
KBASE_API int ObInit();

// Defines class classNo (1..1999) with a name of at most 19 characters and its entry points;
// each null entry point gets the default (returns 0; describe returns the class name; mark
// update and update from association clear UPTOD; do update sets UPTOD).
// Returns 0; -1 for a class number outside 1..1999; -2 if the class is defined (the first
// definition stays); -3 for a null name or one of 20 or more characters; or the non-zero code of
// the memory-block service when growing the record array fails (nothing defined).
[[nodiscard]] KBASE_API int ObDefineClass(int classNo, const char* name, ObCreateFunc create,
                                          ObObjectFunc destroy, ObDescribeFunc describe,
                                          ObObjectFunc save, ObObjectFunc read,
                                          ObObjectFunc relocate, ObObjectFunc check,
                                          ObObjectFunc markUpdate,
                                          ObUpdateFromAssocFunc updateFromAssoc,
                                          ObObjectFunc doUpdate, ObUserFunc user);
// Installs the straight-user entry point of a defined class (null: the default, returns 0).
// 0, or -1 when the class number is outside 1..1999 or the class is not defined.
KBASE_API int ObDefineStraightUserMethod(int classNo, ObUserFunc straightUser);
// The name of a class. Seven numbers have fixed names that win over any definition: 266
// "DsMaterial", 269 "DsMatAssign", 270 "DsCoordSys", 272 "DsMapping", 273 "DsHatch3d", 274
// "DsLinetype", 275 "DsAssembly". Otherwise the defined name, or null.
KBASE_API const char* ObGetClassName(int classNo);

// ---- Objects. ----

// A new bare object (class 0, state 0, no data, no associations), no entry point run; null when
// memory is exhausted.
KBASE_API _ObObject* ObAllocObject();
// Deletes an object without running any entry point (associations are detached). Null is
// ignored. Returns 0.
KBASE_API int ObFreeObject(_ObObject* object);
// ObCreateParam with a null parameter.
KBASE_API _ObObject* ObCreate(int classNo);
// Creates an object of classNo (see ObObject::Create); on failure reports "error by create" and
// returns null.
KBASE_API _ObObject* ObCreateParam(int classNo, void* param);
// A copy of object (see ObObject::CreateCopy); on failure reports "error by create copy" and
// returns null.
KBASE_API _ObObject* ObCreateCopy(_ObObject* object);
// Destroys an object (ObObject::Destroy) and deletes it unless that returned 2, which keeps the
// object fully usable. After 3 (the destroy entry point failed) the object is deleted unmarked:
// its destructor sees its own state and class. Returns the result of Destroy; 3 for an invalid
// handle (reported).
KBASE_API OB_STATUS ObDestroy(_ObObject* object);

// ---- Accessors: no test beyond null; null gives 0 or null, a setter does nothing. ----

KBASE_API int ObGetClass(const _ObObject* object);
KBASE_API int ObGetState(const _ObObject* object);
// 1 when any bit of mask is set, else 0.
KBASE_API int ObGetStateFlag(const _ObObject* object, int mask);
// Replaces the whole state word (through the object's SetToState).
KBASE_API void ObSetState(_ObObject* object, int state);
// Sets the bits of mask (through the object's SetState).
KBASE_API void ObSetStateFlag(_ObObject* object, int mask);
// Clears the bits of mask, directly in the state word (no virtual call).
KBASE_API void ObResetStateFlag(_ObObject* object, int mask);
// The data block; null for an EXTERN object.
KBASE_API void* ObGetData(const _ObObject* object);
KBASE_API void ObSetData(_ObObject* object, void* data);
// The data block after bringing the object up to date: when UPTOD is clear, DoUpdate runs first
// and a result of 2 or more gives null. Null for an EXTERN object (DoUpdate does not run).
KBASE_API void* ObGetUpdtData(_ObObject* object);
// Stores the GUID text (see ObObjectExtendedData::SetGuid): 0, or 3 for a bad text or null
// object.
KBASE_API OB_STATUS ObSetGuid(_ObObject* object, const char* guid);
// The GUID text, or null when none is set.
KBASE_API const char* ObGetGuid(const _ObObject* object);
// Appends to the NUL-terminated text in buffer (capacity bytes) the words of the set state
// flags in this order, each with a leading blank: EXTERN ORIGINAL MARKED TRANS CHG_ELEM UPDATING
// SPLITTED RULE DESTROYED INVALID UPTOD SAVED REALIZED SELECTED. Returns the length of the whole
// text; when that does not fit, nothing is appended. A null object appends nothing.
KBASE_API std::size_t ObPrintFlags(const _ObObject* object, char* buffer, std::size_t capacity);

// ---- Method dispatch: validity test, then one operation of the object. ----

// The object's description (by default its class name); null for an invalid handle.
KBASE_API const char* ObDescribe(_ObObject* object);
KBASE_API OB_STATUS ObCheck(_ObObject* object);
// Marks the object for update and propagates mark update (while the switch is on).
KBASE_API OB_STATUS ObUpdate(_ObObject* object);
// ObUpdate under an update detail: bit 0 of detail sets the detail to 0 for the call, else its
// bits are added. Afterwards the detail is restored (to 0 when the saved value had bit 0 set),
// on the invalid-handle path too.
KBASE_API OB_STATUS ObUpdateWithDetail(_ObObject* object, int32_t detail);
KBASE_API OB_STATUS ObUpdateFromAssociation(const AssociationInfo* info, _ObObject* object,
                                            OB_METHOD_ID method, OB_METHOD_PARAM param);
KBASE_API OB_STATUS ObDoUpdate(_ObObject* object);
KBASE_API OB_STATUS ObUser(_ObObject* object, int32_t command, void* param);
KBASE_API OB_STATUS ObUserStraight(_ObObject* object, int32_t command, void* param);

// ---- Association types. ----

// Defines type (0..1999) with a name of at most 19 characters and a mask of OB_PROPAGATE_* bits.
// 0; -1 type outside 0..1999; -2 already defined; -3 null name or 20 or more characters; or the
// non-zero code of the memory-block service.
[[nodiscard]] KBASE_API int ObDefineAssociationType(int type, const char* name,
                                                    uint16_t propagations);
// The propagation mask of type; 0 when it is undefined or outside 0..1999.
KBASE_API int ObGetPropagations(int type);
// The name of type; "" when undefined, null when outside 0..1999.
KBASE_API const char* ObGetAssociationName(int type);

// ---- Associations: active depends on passive. ----

// Adds an association (through the passive object's AddDependent). 0; -1 active object null,
// class out of range, DESTROYED or without class record; -2 likewise for passive; -3 type
// outside 0..1999; -4 type undefined; -5 memory exhausted; or the partners' non-zero result.
KBASE_API int ObAddAssociation(_ObObject* active, _ObObject* passive, int type);
// As ObAddAssociation, but returns 0 without adding when active's active list already names
// passive with this type (that search comes before the argument tests).
KBASE_API int ObAddAssociationUnique(_ObObject* active, _ObObject* passive, int type);
// Removes one association (through the passive object's RemoveDependent). 0, or the partners'
// result (3 when there is no such association); -1/-2 when an object is null, its class is out
// of range or has neither exemplar nor class record (DESTROYED is not tested); -3/-4 for type.
KBASE_API int ObRemoveAssociation(_ObObject* active, _ObObject* passive, int type);
// Makes object depend on every object of classNo: a record naming it goes to the front of the
// class's class-association list. 0; -1 object not valid (class record required); -2 classNo
// out of range or undefined; -3/-4 for type; -5 memory exhausted.
KBASE_API int ObAddClassAssociation(_ObObject* object, int classNo, int type);
// Takes out the first record of classNo's class-association list naming object with type
// (kObAnyAssocType: any). 0, 3 when there is none; -1 when object is null or its class is out
// of range or has neither exemplar nor record; -2..-4 as ObAddClassAssociation.
KBASE_API int ObRemoveClassAssociation(_ObObject* object, int classNo, int type);
// A new record with type 0, no partner and no next (null when memory is exhausted), and its
// release. Only records in no list may be freed.
KBASE_API ObAssociation* ObAllocAssociation();
KBASE_API void ObFreeAssociation(ObAssociation* assoc);

// ---- Reading the lists, in list order (newest first). ----

// The first record of object's active or passive list; null when empty or object is null.
KBASE_API ObAssociation* ObGetFirstAssociation(_ObObject* object, OB_ASSOC_LIST_TYPE list);
// The record after current in object's list; null at the end or when current is not in that
// list. Cost: O(position of current), because it checks.
KBASE_API ObAssociation* ObGetNextAssociation(_ObObject* object, OB_ASSOC_LIST_TYPE list,
                                              const ObAssociation* current);
// The record after current, unchecked; null for null.
KBASE_API ObAssociation* ObGetNextAssociationFast(const ObAssociation* current);
// The first record of the list with type (kObAnyAssocType: any).
KBASE_API ObAssociation* ObGetFirstAssociationType(_ObObject* object, OB_ASSOC_LIST_TYPE list,
                                                   int type);
// The record of active's active list naming passive with type (kObAnyAssocType: any); null
// when there is none or either object fails the validity test.
KBASE_API ObAssociation* ObFindAssociation(_ObObject* active, _ObObject* passive, int type);
// The record of object's active (passive) list naming partner with type, unchecked objects.
KBASE_API ObAssociation* ObFindActiveAssociationFast(_ObObject* object, const _ObObject* partner,
                                                     int type);
KBASE_API ObAssociation* ObFindPassiveAssociationFast(_ObObject* object, const _ObObject* partner,
                                                      int type);
// The active (dependent) and passive partners of the association an AssociationInfo travels
// along; null for null.
KBASE_API _ObObject* ObGetActiveObject(const AssociationInfo* info);
KBASE_API _ObObject* ObGetPassiveObject(const AssociationInfo* info);
// The partner a record names; null for null.
KBASE_API _ObObject* ObGetAssocPartner(const ObAssociation* assoc);
// The partner of self in the association info travels along: the passive one when self is the
// active one, else the active one.
KBASE_API _ObObject* ObGetAssocPartner2(const AssociationInfo* info, const _ObObject* self);
// The first object that depends on object through type (kObAnyAssocType: any), from its
// passive list; null when none.
KBASE_API _ObObject* ObGetActivePartner(_ObObject* object, int type);
// The first object that object depends on through type, from its active list; null when none.
KBASE_API _ObObject* ObGetPassivePartner(_ObObject* object, int type);
// The type of a record; -1 for null.
KBASE_API int ObGetAssociationType(const ObAssociation* assoc);

// ---- Copying and moving associations. ----
// On failure these report "association cant be copied" (module OB_method) and return the code
// of ObAddAssociation (or 3 when assoc is not in from's list).

// Gives to the association that assoc (a record of from's list) stands for: from's passive
// partner becomes to's (active list), or from's dependent depends on to as well (passive list).
KBASE_API int ObCopyAssociation(_ObObject* from, _ObObject* to, const ObAssociation* assoc,
                                OB_ASSOC_LIST_TYPE list);
// Copies the records of one list of from with type (kObAnyAssocType: all) so that they stand in
// to's list in the same order, before to's own. Stops at the first failure; -5 when the
// temporary array cannot be had.
KBASE_API int ObCopyAssociationList(_ObObject* from, _ObObject* to, OB_ASSOC_LIST_TYPE list,
                                    int type);
// Copies both lists of from to to (ObCopyAssociationList with every type).
KBASE_API int ObCopyAssociations(_ObObject* from, _ObObject* to);
// As ObCopyAssociation, but puts the two records in directly: no validity test and no call of
// the partners' AddDependent or AddConstraint (for objects being built). 0, -2 null object or
// assoc, -5 memory exhausted.
KBASE_API int ObCopyAssociationInternal(_ObObject* from, _ObObject* to, const ObAssociation* assoc,
                                        OB_ASSOC_LIST_TYPE list);
// Copies the association to to, then removes it from from. Nothing is removed when copying fails.
KBASE_API int ObMoveAssociation(_ObObject* from, _ObObject* to, const ObAssociation* assoc,
                                OB_ASSOC_LIST_TYPE list);
// Moves every association of one list of from to to, keeping their order.
KBASE_API int ObMoveAssociations(_ObObject* from, _ObObject* to, OB_ASSOC_LIST_TYPE list);
// Removes every association of one list of object through the partners' RemoveDependent.
// 0, or the first failure (the rest stays).
KBASE_API int ObRemoveAssociations(_ObObject* object, OB_ASSOC_LIST_TYPE list);
// Takes out of both lists of object the records whose partner fails the validity test, with
// their mirror records. Returns the number of associations taken out.
KBASE_API int ObCleanupAssocList(_ObObject* object);
// Splits active -> passive (type) through substitute: active comes to depend on substitute and
// substitute on passive, both with type, and the direct association goes; substitute gets
// SPLITTED. 0; 3 when there is no such association; -1..-5 as ObAddAssociation (-1 also for an
// invalid substitute), after which nothing is changed.
KBASE_API int ObSplitAssoc(_ObObject* active, _ObObject* passive, int type, _ObObject* substitute);

// ---- Propagation. ----

// The walk: collects the partners of object's passive list and of its class's class-association
// list whose type's mask shares a bit with methodMask (in that order), then calls each valid
// one's UpdateFromAssoc with an AssociationInfo (object, 1, record; valid during that call),
// origin, method and param. An invalid partner is reported. Returns 0, or 3 when a partner
// returned 3, was invalid, or the partner array could not be allocated. Cost: one zeroed
// allocation of 16 bytes per record of the two lists.
KBASE_API OB_STATUS ObDoAssociations(_ObObject* object, uint32_t methodMask, _ObObject* origin,
                                     OB_METHOD_ID method, OB_METHOD_PARAM param);

KBASE_API void ObSetPropagateDestroy(int32_t on);
KBASE_API void ObSetPropagateUpdate(int32_t on);
KBASE_API void ObSetPropagateUser(int32_t on);
KBASE_API int32_t ObGetPropagateDestroy();
KBASE_API int32_t ObGetPropagateUpdate();
KBASE_API int32_t ObGetPropagateUser();

// The update detail: bit 0 of value resets it to 0; otherwise Set stores value, Add adds its
// bits. Get writes it to *detail (null is ignored).
KBASE_API void ObSetUpdateDetail(int32_t value);
KBASE_API void ObAddUpdateDetail(int32_t value);
KBASE_API void ObGetUpdateDetail(int32_t* detail);

// ---- Delayed destruction. ----

// Puts object on the delayed-destroy list unless it is there already. 0, or 3 when memory is
// exhausted (nothing added). A null handle is kept once and reported when the list runs.
KBASE_API OB_STATUS ObDestroyDelayed(_ObObject* object);
// Destroys the listed objects in the order they were added, as ObDestroy does (an invalid one is
// reported; one deleted meanwhile has left the list). Objects put on the list while it runs wait
// for the next call.
KBASE_API void ObDestroyDelayedList();

// ---- The store's callback list (told of every destroyed object, event OB_EVENT_DESTROYED,
// record ObCallbackRecord). ----

// Registers function with user data and id, switched on (on != 0) or off, for every event.
// Returns the code of CbCallbackAdd.
KBASE_API int ObCallbackAdd(CbFunction function, void* user, int32_t id, int on);
KBASE_API int ObCallbackRemove(CbFunction function, void* user);
KBASE_API int ObCallbackOnOff(CbFunction function, void* user, int on);
