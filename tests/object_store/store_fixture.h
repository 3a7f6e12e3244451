// A scriptable class for the store tests: each object's data block is a Node that says what its
// entry points return and do, and every entry-point call is written to a trace.
//
// The store is process-wide and cannot forget classes, so every test takes fresh class and type
// numbers. Objects of the node class are made by a tracking exemplar, so a test can see which
// objects still exist and the fixture frees what a test left behind.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <deque>
#include <functional>
#include <new>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "kbase/object_store/ObObject.h"
#include "kbase/object_store/ObStore.h"
#include "test_support.h"

namespace obtest {

inline std::vector<std::string>& Trace() {
    static std::vector<std::string> trace;
    return trace;
}

struct Node {
    std::string name;
    OB_STATUS createResult = OB_OK;
    OB_STATUS destroyResult = OB_OK;
    OB_STATUS fromAssocResult = OB_OK;
    // Optional behaviour, run after the call is traced; its result replaces the default.
    std::function<OB_STATUS(_ObObject* self)> onMark;
    std::function<OB_STATUS(_ObObject* self, const AssociationInfo* info, _ObObject* origin,
                            OB_METHOD_ID method, OB_METHOD_PARAM param)>
        onFromAssoc;
    std::function<OB_STATUS(_ObObject* self, int32_t command)> onUser;
};

inline Node* NodeOf(const _ObObject* h) {
    return h != nullptr && (h->obState & OB_STATE_EXTERN) == 0 ? static_cast<Node*>(h->obData)
                                                               : nullptr;
}
inline std::string NameOf(const _ObObject* h) {
    const Node* n = NodeOf(h);
    return n != nullptr ? n->name : "?";
}

// Entry points of the node class.
inline OB_STATUS NodeCreate(_ObObject* self, void* param) {
    self->obData = param;
    Trace().push_back(NameOf(self) + ":create");
    return param != nullptr ? static_cast<Node*>(param)->createResult : OB_OK;
}
inline OB_STATUS NodeDestroy(_ObObject* self) {
    Trace().push_back(NameOf(self) + ":destroy");
    const Node* n = NodeOf(self);
    return n != nullptr ? n->destroyResult : OB_OK;
}
inline OB_STATUS NodeMark(_ObObject* self) {
    Trace().push_back(NameOf(self) + ":mark");
    Node* n = NodeOf(self);
    return n != nullptr && n->onMark ? n->onMark(self) : OB_OK;
}
inline OB_STATUS NodeFromAssoc(_ObObject* self, const AssociationInfo* info, _ObObject* origin,
                               OB_METHOD_ID method, OB_METHOD_PARAM param) {
    Trace().push_back(NameOf(self) + "<-" + NameOf(origin) + ":" + std::to_string(method));
    Node* n = NodeOf(self);
    if (n == nullptr) return OB_OK;
    return n->onFromAssoc ? n->onFromAssoc(self, info, origin, method, param) : n->fromAssocResult;
}
inline OB_STATUS NodeUser(_ObObject* self, int32_t command, void*) {
    Trace().push_back(NameOf(self) + ":user" + std::to_string(command));
    Node* n = NodeOf(self);
    return n != nullptr && n->onUser ? n->onUser(self, command) : OB_OK;
}

// What a derived destructor saw of the object it deletes.
struct DestructorView {
    const _ObObject* handle;  // compared only: the object is gone
    int state;
    int classNo;
    bool operator==(const DestructorView&) const = default;
};
inline std::ostream& operator<<(std::ostream& out, const DestructorView& v) {
    return out << v.handle << " state " << v.state << " class " << v.classNo;
}

// Objects made by this exemplar register themselves while they exist, and their destructors
// write down what they see.
class TrackedObject : public ObObject {
public:
    TrackedObject() { Live().insert(this); }
    explicit TrackedObject(ExemplarTag tag) : ObObject(tag), exemplar_(true) {}
    ~TrackedObject() override {
        if (exemplar_) return;
        Live().erase(this);
        Deleted().push_back(DestructorView{Handle(), obState, obClass});
    }
    ObObject* Make() const override { return new (std::nothrow) TrackedObject(); }
    static std::set<ObObject*>& Live() {
        static std::set<ObObject*> live;
        return live;
    }
    static std::vector<DestructorView>& Deleted() {
        static std::vector<DestructorView> deleted;
        return deleted;
    }
    static TrackedObject& Exemplar() {
        static TrackedObject exemplar{ExemplarTag{}};
        return exemplar;
    }

private:
    bool exemplar_ = false;
};

// Compares handles only: h may name an object that is gone.
inline bool Exists(const _ObObject* h) {
    for (ObObject* o : TrackedObject::Live()) {
        if (o->Handle() == h) return true;
    }
    return false;
}

// Association records come from a pool that asks for memory a chunk at a time. While this
// lives, exactly `keep` records are free; the allocation after those needs memory, so an injected
// failure hits it.
class DrainedRecordPool {
public:
    explicit DrainedRecordPool(size_t keep = 0) {
        hoard_.push_back(ObAllocAssociation());  // the pool holds at least this one
        {
            kbase_test::FailAllocationsFrom noMoreChunks(1);
            while (ObAssociation* r = ObAllocAssociation()) hoard_.push_back(r);
        }
        for (; keep > 0 && !hoard_.empty(); --keep) {
            ObFreeAssociation(hoard_.back());
            hoard_.pop_back();
        }
    }
    ~DrainedRecordPool() {
        for (ObAssociation* r : hoard_) ObFreeAssociation(r);
    }
    DrainedRecordPool(const DrainedRecordPool&) = delete;
    DrainedRecordPool& operator=(const DrainedRecordPool&) = delete;

private:
    std::vector<ObAssociation*> hoard_;
};

// Extended data comes from a pool that asks for memory a chunk at a time. While this lives the
// pool is empty, so the next object's extended data needs memory and an injected failure hits it.
class DrainedExDataPool {
public:
    DrainedExDataPool() {
        kbase_test::FailAllocationsFrom noMoreChunks(1);
        while (ObObject* o = new (std::nothrow) OffPool()) {
            if (o->GetExData() == nullptr) {  // the pool is empty now
                delete o;
                break;
            }
            hoard_.push_back(o);
        }
    }
    ~DrainedExDataPool() {
        for (ObObject* o : hoard_) delete o;
    }
    DrainedExDataPool(const DrainedExDataPool&) = delete;
    DrainedExDataPool& operator=(const DrainedExDataPool&) = delete;

private:
    // Its own memory is not the store's, so making one takes nothing but extended data.
    class OffPool : public ObObject {
    public:
        static void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
            return std::malloc(size);
        }
        static void operator delete(void* block) noexcept { std::free(block); }
    };
    std::vector<ObObject*> hoard_;
};

inline int FreshClassNumber() {
    static int next = 100;
    if (next == 266) next = 276;  // the numbers with fixed names
    return next++;
}
inline int FreshTypeNumber() {
    static int next = 10;
    return next++;
}

// Defines a class whose entry points are those of Node, with the tracking exemplar.
inline int DefineNodeClass(const char* name = "Node") {
    const int cls = FreshClassNumber();
    EXPECT_EQ(ObDefineClass(cls, name, NodeCreate, NodeDestroy, nullptr, nullptr, nullptr, nullptr,
                            nullptr, NodeMark, NodeFromAssoc, nullptr, NodeUser),
              0);
    ObObject::InstallClass(cls, &TrackedObject::Exemplar());
    return cls;
}

inline int DefineType(uint16_t propagations) {
    const int type = FreshTypeNumber();
    EXPECT_EQ(ObDefineAssociationType(type, "T", propagations), 0);
    return type;
}

class StoreTest : public ::testing::Test {
protected:
    void SetUp() override {
        ObInit();
        Trace().clear();
        cls_ = DefineNodeClass();
        all_ = DefineType(0xFFFF);
    }
    void TearDown() override {
        ObSetPropagateDestroy(1);
        ObSetPropagateUpdate(1);
        ObSetPropagateUser(1);
        const std::set<ObObject*> left = TrackedObject::Live();
        for (ObObject* o : left) ObFreeObject(o->Handle());
        EXPECT_TRUE(TrackedObject::Live().empty());
    }

    _ObObject* Make(const std::string& name, int cls = 0) {
        nodes_.push_back(Node{name});
        _ObObject* h = ObCreateParam(cls != 0 ? cls : cls_, &nodes_.back());
        EXPECT_NE(h, nullptr) << name;
        return h;
    }
    Node& N(_ObObject* h) { return *NodeOf(h); }
    // `dependent` depends on `on`.
    void Depend(_ObObject* dependent, _ObObject* on, int type = -1) {
        ASSERT_EQ(ObAddAssociation(dependent, on, type < 0 ? all_ : type), 0);
    }
    std::vector<std::string> TakeTrace() {
        std::vector<std::string> t;
        t.swap(Trace());
        return t;
    }

    int cls_ = 0;
    int all_ = 0;  // a type along which every method travels
    std::deque<Node> nodes_;
};

// The partners a list names, in list order.
inline std::vector<std::string> Partners(_ObObject* h, OB_ASSOC_LIST_TYPE list) {
    std::vector<std::string> names;
    for (ObAssociation* r = ObGetFirstAssociation(h, list); r != nullptr;
         r = ObGetNextAssociationFast(r)) {
        names.push_back(NameOf(ObGetAssocPartner(r)));
    }
    return names;
}

using Strings = std::vector<std::string>;

// prefix followed by n ("R" 3 -> "R3").
inline std::string Numbered(const char* prefix, int n) {
    std::string s(prefix);
    s += std::to_string(n);
    return s;
}

}  // namespace obtest
