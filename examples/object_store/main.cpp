// A small building model on the object store: walls host openings, a schedule lists every
// opening. Changes travel along typed associations; the program prints what each object hears.
//
//   wall ----Hosts----> opening ----Lists----> schedule        (arrow: "is heard by")
//   wall <---Joins----> wall
//
// It exits with 1 when the store does not behave as the comments say, so the test suite runs it
// as a smoke test.
#include <cstdio>
#include <string>

#include "kbase/object_store/ObStore.h"

namespace {

// Class, association-type and command numbers are the host's to choose.
enum Classes { kWall = 1, kOpening = 2, kSchedule = 3 };
enum Types { kHosts = 1, kLists = 2, kJoins = 3 };
constexpr int32_t kCmdRenumber = 10;

// The data block of every object here; the create entry point receives it as its parameter.
struct Item {
    std::string name;
    int heard = 0;
    bool destroyed = false;
};

Item* ItemOf(_ObObject* object) { return static_cast<Item*>(ObGetData(object)); }
std::string Name(_ObObject* object) { return ItemOf(object)->name; }
void Say(_ObObject* self, const std::string& what) {
    std::printf("  %-11s %s\n", Name(self).c_str(), what.c_str());
}

// ---- Entry points. ----

OB_STATUS Create(_ObObject* self, void* item) {
    ObSetData(self, item);
    return item != nullptr ? OB_OK : OB_FAILED;  // no data block, no object
}

OB_STATUS Destroy(_ObObject* self) {
    ItemOf(self)->destroyed = true;
    Say(self, "destroyed");
    return OB_OK;
}

OB_STATUS User(_ObObject* self, int32_t command, void*) {
    Say(self, "runs command " + std::to_string(command));
    return OB_OK;
}

// A receiver is busy while its entry point runs; to pass a change on it runs the walk for itself.
OB_STATUS PassOn(_ObObject* self, OB_METHOD_ID method, OB_METHOD_PARAM param) {
    return ObDoAssociations(self, OB_PROPAGATE_MARK_UPDATE, self, method, param);
}

OB_STATUS WallHears(_ObObject* self, const AssociationInfo*, _ObObject* origin,
                    OB_METHOD_ID method, OB_METHOD_PARAM param) {
    ++ItemOf(self)->heard;
    Say(self, "follows the joined " + Name(origin));
    return PassOn(self, method, param);
}

OB_STATUS OpeningHears(_ObObject* self, const AssociationInfo*, _ObObject* origin,
                       OB_METHOD_ID method, OB_METHOD_PARAM param) {
    ++ItemOf(self)->heard;
    switch (method) {
        case OB_METHOD_MARK_UPDATE:
            Say(self, "moves with the " + Name(origin));
            return PassOn(self, method, param);
        case OB_METHOD_USER:
            Say(self, "runs command " + std::to_string(param.command) + " of the " + Name(origin));
            return OB_OK;
        case OB_METHOD_DESTROY:  // cannot go now (busy): goes once the walk is over
            Say(self, "loses the " + Name(origin) + " and will go too");
            return ObDestroyDelayed(self);
        default:
            return OB_OK;
    }
}

OB_STATUS ScheduleHears(_ObObject* self, const AssociationInfo*, _ObObject* origin,
                        OB_METHOD_ID method, OB_METHOD_PARAM param) {
    ++ItemOf(self)->heard;
    if (method == OB_METHOD_CREATE) {
        Say(self, "adds a line for the new " + static_cast<Item*>(param.param)->name);
    } else if (method == OB_METHOD_DESTROY) {
        Say(self, "drops the line of the " + Name(origin));
    } else if (method == OB_METHOD_MARK_UPDATE) {
        Say(self, "refreshes the line of the " + Name(origin));
    }
    return OB_OK;
}

void TellDestroyed(void*, int32_t, uint32_t, void* record) {
    _ObObject* object = static_cast<ObCallbackRecord*>(record)->object;
    Say(object, std::string("(callback: ") + ObGetClassName(ObGetClass(object)) + " going)");
}

bool Check(bool ok, const char* what) {
    if (!ok) std::fprintf(stderr, "unexpected: %s\n", what);
    return ok;
}

int DefineModel() {
    const struct {
        int number;
        const char* name;
        ObUpdateFromAssocFunc hears;
    } classes[] = {{kWall, "Wall", WallHears},
                   {kOpening, "Opening", OpeningHears},
                   {kSchedule, "Schedule", ScheduleHears}};
    for (const auto& c : classes) {
        if (ObDefineClass(c.number, c.name, Create, Destroy, nullptr, nullptr, nullptr, nullptr,
                          nullptr, nullptr, c.hears, nullptr, User) != 0) {
            return 1;
        }
    }
    // Which methods travel along each type.
    const uint16_t hosts = OB_PROPAGATE_MARK_UPDATE | OB_PROPAGATE_DESTROY | OB_PROPAGATE_USER;
    const uint16_t lists = OB_PROPAGATE_CREATE | OB_PROPAGATE_MARK_UPDATE | OB_PROPAGATE_DESTROY;
    if (ObDefineAssociationType(kHosts, "Hosts", hosts) != 0 ||
        ObDefineAssociationType(kLists, "Lists", lists) != 0 ||
        ObDefineAssociationType(kJoins, "Joins", OB_PROPAGATE_MARK_UPDATE) != 0) {
        return 1;
    }
    return ObCallbackAdd(TellDestroyed, nullptr, 0, 1);
}

}  // namespace

int main() {
    ObInit();
    if (DefineModel() != 0) return 1;

    Item north{"north wall"}, east{"east wall"}, window{"window"}, door{"door"},
        schedule{"schedule"}, skylight{"skylight"};
    _ObObject* wallN = ObCreateParam(kWall, &north);
    _ObObject* wallE = ObCreateParam(kWall, &east);
    _ObObject* sched = ObCreateParam(kSchedule, &schedule);
    ObAddClassAssociation(sched, kOpening, kLists);  // the schedule hears of every opening
    std::puts("two openings are put into the north wall:");
    _ObObject* win = ObCreateParam(kOpening, &window);
    _ObObject* dr = ObCreateParam(kOpening, &door);
    ObAddAssociation(win, wallN, kHosts);  // the window depends on the north wall
    ObAddAssociation(dr, wallN, kHosts);

    std::puts("\nthe north wall is changed (the newest dependent hears first):");
    bool ok = Check(ObUpdate(wallN) == OB_OK, "update of the north wall");
    ok &= Check(window.heard == 1 && door.heard == 1 && schedule.heard == 4,
                "both openings and, through them, the schedule hear of it");

    std::puts("\na user command on the north wall:");
    ok &= Check(ObUser(wallN, kCmdRenumber, nullptr) == OB_OK, "user command");

    std::puts("\nthe walls are joined, each depends on the other; the east wall changes:");
    ObAddAssociation(wallN, wallE, kJoins);
    ObAddAssociation(wallE, wallN, kJoins);
    ok &= Check(ObUpdate(wallE) == OB_OK, "update of the east wall");
    ok &= Check(north.heard == 1 && east.heard == 0,
                "the change comes back to the east wall while it is busy, and stops there");

    std::puts("\na skylight is created in the east wall:");
    _ObObject* sky = ObCreateParam(kOpening, &skylight);
    ObAddAssociation(sky, wallE, kHosts);

    std::puts("\nthe north wall is demolished:");
    ok &= Check(ObDestroy(wallN) == OB_OK, "destroy of the north wall");
    ObDestroyDelayedList();  // the openings that chose to go with it
    ok &= Check(north.destroyed && window.destroyed && door.destroyed && !skylight.destroyed,
                "the wall and its two openings are gone, the skylight stays");
    ok &= Check(ObGetFirstAssociationType(wallE, OB_ASSOC_ACTIVE, kJoins) == nullptr &&
                    ObGetFirstAssociationType(wallE, OB_ASSOC_PASSIVE, kJoins) == nullptr,
                "the east wall keeps no association with the demolished one");

    std::puts("\ncleaning up:");
    for (_ObObject* object : {sky, wallE, sched}) {
        ok &= Check(ObDestroy(object) == OB_OK, "destroy");
    }
    return ok ? 0 : 1;
}
