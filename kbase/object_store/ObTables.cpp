// Set-up of the store: the class and association-type tables, the switches, the update detail
// and the callback list.
#include <cstring>

#include "basert/memory.h"
#include "kbase/object_store/ObObject.h"
#include "kbase/object_store/ObStore.h"
#include "kbase/object_store/internal/ObStoreState.h"

namespace kbase::object_store_internal {
StoreState g_store;
}  // namespace kbase::object_store_internal

namespace ob = kbase::object_store_internal;
using ob::g_store;

namespace {

// Definition results.
constexpr int kDefOk = 0;
constexpr int kDefBadNumber = -1;
constexpr int kDefAlreadyDefined = -2;
constexpr int kDefBadName = -3;

constexpr uint32_t kAllEvents = 0xFFFF;
constexpr uint32_t kNoCallbackFlags = 0;

// Default entry points.
OB_STATUS DefaultCreate(_ObObject*, void*) { return OB_OK; }
OB_STATUS DefaultNothing(_ObObject*) { return OB_OK; }
OB_STATUS DefaultUser(_ObObject*, int32_t, void*) { return OB_OK; }

const char* DefaultDescribe(_ObObject* self) {
    const ob::ClassRecord* c = ob::ClassRecordOf(self->obClass);
    return c != nullptr ? c->name : nullptr;
}

OB_STATUS DefaultMarkUpdate(_ObObject* self) {
    self->obState &= static_cast<uint16_t>(~OB_STATE_UPTOD);
    return OB_OK;
}

OB_STATUS DefaultUpdateFromAssoc(_ObObject* self, const AssociationInfo*, _ObObject*,
                                 OB_METHOD_ID, OB_METHOD_PARAM) {
    return DefaultMarkUpdate(self);
}

OB_STATUS DefaultDoUpdate(_ObObject* self) {
    ObObject::FromHandle(self)->SetState(OB_STATE_UPTOD);
    return OB_OK;
}

bool NameFits(const char* name) {
    return name != nullptr && strnlen(name, ob::kNameSize) < static_cast<size_t>(ob::kNameSize);
}

// Grows a record array when its count is a multiple of the step (0 included), so that record
// count + 1 exists. Record 0 is cleared when the array is new.
template <typename Record>
int GrowRecords(Record** records, uint16_t count) {
    if (count % ob::kRecordGrowthStep != 0) return kUtMemOk;
    void* block = *records;
    const int rc = UtAllocMemoryBlock(&block, uint64_t{count} + ob::kRecordGrowthStep + 1,
                                      sizeof(Record));
    if (rc != kUtMemOk) return rc;
    *records = static_cast<Record*>(block);
    if (count == 0) std::memset(&(*records)[0], 0, sizeof(Record));
    return kUtMemOk;
}

// Grows the records when due, takes the next record number for key, enters it in the map and
// returns the cleared record with its name; null (and *status) when the growth was refused.
template <typename Record, typename Map>
Record* ClaimRecord(Record** records, uint16_t& count, Map& map, int key, const char* name, int* status) {
    *status = GrowRecords(records, count);
    if (*status != kUtMemOk) return nullptr;
    const uint16_t number = static_cast<uint16_t>(count + 1);
    count = number;
    map[key] = number;
    Record& r = (*records)[number];
    std::memset(&r, 0, sizeof r);
    std::strcpy(r.name, name);
    return &r;
}

template <typename T>
T OrDefault(T given, T fallback) {
    return given != nullptr ? given : fallback;
}

}  // namespace

int ObInit() {
    if (g_store.initialised) return 0;
    g_store.initialised = true;
    g_store.updateDetail = 1;
    g_store.propagateUpdate = 1;
    g_store.propagateDestroy = 1;
    g_store.propagateUser = 1;
    // Whatever was defined or registered before the first ObInit is dropped, not leaked.
    CbCallbacksFree(&g_store.callbacks);
    CbCallbacksInit(&g_store.callbacks);
    std::memset(g_store.classMap, 0, sizeof g_store.classMap);
    std::memset(g_store.classAssocCount, 0, sizeof g_store.classAssocCount);
    std::memset(g_store.typeMap, 0, sizeof g_store.typeMap);
    g_store.classCount = 0;
    UtFreeMemory(g_store.classes);
    g_store.classes = nullptr;
    g_store.typeCount = 0;
    UtFreeMemory(g_store.types);
    g_store.types = nullptr;
    return 0;
}

int ObDefineClass(int classNo, const char* name, ObCreateFunc create, ObObjectFunc destroy,
                  ObDescribeFunc describe, ObObjectFunc save, ObObjectFunc read,
                  ObObjectFunc relocate, ObObjectFunc check, ObObjectFunc markUpdate,
                  ObUpdateFromAssocFunc updateFromAssoc, ObObjectFunc doUpdate,
                  ObUserFunc user) {
    if (classNo <= 0 || classNo >= kObMaxClasses) return kDefBadNumber;
    if (g_store.classMap[classNo] != 0) return kDefAlreadyDefined;
    if (!NameFits(name)) return kDefBadName;
    int status = kUtMemOk;
    ob::ClassRecord* record =
        ClaimRecord(&g_store.classes, g_store.classCount, g_store.classMap, classNo, name, &status);
    if (record == nullptr) return status;
    ob::ClassRecord& c = *record;
    c.create = OrDefault(create, &DefaultCreate);
    c.destroy = OrDefault(destroy, &DefaultNothing);
    c.describe = OrDefault(describe, &DefaultDescribe);
    c.save = OrDefault(save, &DefaultNothing);
    c.read = OrDefault(read, &DefaultNothing);
    c.relocate = OrDefault(relocate, &DefaultNothing);
    c.check = OrDefault(check, &DefaultNothing);
    c.markUpdate = OrDefault(markUpdate, &DefaultMarkUpdate);
    c.updateFromAssoc = OrDefault(updateFromAssoc, &DefaultUpdateFromAssoc);
    c.doUpdate = OrDefault(doUpdate, &DefaultDoUpdate);
    c.user = OrDefault(user, &DefaultUser);
    c.straightUser = &DefaultUser;
    c.classAssocs = nullptr;
    return kDefOk;
}

int ObDefineStraightUserMethod(int classNo, ObUserFunc straightUser) {
    ob::ClassRecord* c = ob::ClassRecordOf(classNo);
    if (c == nullptr) return kDefBadNumber;
    c->straightUser = OrDefault(straightUser, &DefaultUser);
    return kDefOk;
}

const char* ObGetClassName(int classNo) {
    // Names that belong to classes of the product's own modules; they win over definitions.
    static constexpr struct {
        int classNo;
        const char* name;
    } kFixed[] = {
        {266, "DsMaterial"}, {269, "DsMatAssign"}, {270, "DsCoordSys"}, {272, "DsMapping"},
        {273, "DsHatch3d"},  {274, "DsLinetype"},  {275, "DsAssembly"},
    };
    for (const auto& f : kFixed) {
        if (f.classNo == classNo) return f.name;
    }
    const ob::ClassRecord* c = ob::ClassRecordOf(classNo);
    return c != nullptr ? c->name : nullptr;
}

int ObDefineAssociationType(int type, const char* name, uint16_t propagations) {
    if (type < 0 || type >= kObMaxAssocTypes) return kDefBadNumber;
    if (g_store.typeMap[type] != 0) return kDefAlreadyDefined;
    if (!NameFits(name)) return kDefBadName;
    int status = kUtMemOk;
    ob::AssocTypeRecord* t =
        ClaimRecord(&g_store.types, g_store.typeCount, g_store.typeMap, type, name, &status);
    if (t == nullptr) return status;
    t->propagations = propagations;
    return kDefOk;
}

int ObGetPropagations(int type) { return ob::PropagationsOf(type); }

const char* ObGetAssociationName(int type) {
    if (type < 0 || type >= kObMaxAssocTypes) return nullptr;
    const uint16_t record = g_store.typeMap[type];
    return record != 0 ? g_store.types[record].name : "";
}

void ObSetPropagateDestroy(int32_t on) { g_store.propagateDestroy = on; }
void ObSetPropagateUpdate(int32_t on) { g_store.propagateUpdate = on; }
void ObSetPropagateUser(int32_t on) { g_store.propagateUser = on; }
int32_t ObGetPropagateDestroy() { return g_store.propagateDestroy; }
int32_t ObGetPropagateUpdate() { return g_store.propagateUpdate; }
int32_t ObGetPropagateUser() { return g_store.propagateUser; }

void ObSetUpdateDetail(int32_t value) { g_store.updateDetail = (value & 1) != 0 ? 0 : value; }

void ObAddUpdateDetail(int32_t value) {
    g_store.updateDetail = (value & 1) != 0 ? 0 : (g_store.updateDetail | value);
}

void ObGetUpdateDetail(int32_t* detail) {
    if (detail != nullptr) *detail = g_store.updateDetail;
}

int ObCallbackAdd(CbFunction function, void* user, int32_t id, int on) {
    return CbCallbackAdd(&g_store.callbacks, function, user, id, kNoCallbackFlags, on, kAllEvents);
}

int ObCallbackRemove(CbFunction function, void* user) {
    return CbCallbackRemove(&g_store.callbacks, function, user);
}

int ObCallbackOnOff(CbFunction function, void* user, int on) {
    return CbCallbackOnOff(&g_store.callbacks, function, user, on);
}
