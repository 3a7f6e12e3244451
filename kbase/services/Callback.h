// Callbacks: a Callback wraps a function with its user data; a CallbackHandler is an event source
// that executes the callbacks registered with it, in registration order.
//
// Registration is known to both sides: CallbackHandler::Add(cb) puts cb in the handler's list and
// the handler in cb's list of handlers. Neither side owns the other. Removing on either side
// (CallbackHandler::Remove, Callback::Remove) undoes the registration on both, and so does
// destroying either side, so a destroyed callback is never called and a destroyed handler never
// touched. A callback is registered with a handler at most once: adding it again changes nothing.
// Removing what is not registered (or null) does nothing.
//
// Changes while ExecuteAll runs (from a callback's function, also nested ExecuteAll calls):
//  - a callback added to the executing handler is first called by the next ExecuteAll;
//  - a callback removed, or destroyed, before its turn is not called; the others are still called
//    once each, in order, none skipped and none repeated;
//  - the executing callback may remove or destroy itself, other callbacks, or the handler: after a
//    handler is destroyed its ExecuteAll returns without touching it again;
//  - suspending the handler stops the walk before the next callback.
// Not thread-safe; use a handler and its callbacks from one thread at a time.
#pragma once

#include <cstdint>

#include "kbase/export.h"
#include "kbase/services/CallbackArgs.h"
#include "kbase/text/UtCPtrList.h"

class Callback;
class CallbackHandler;

using CallbackFunction = void (*)(void* userData, CallbackArgs* args);

// An ordered list of handlers, not owned.
class KBASE_API CallbackHandlerList {
  public:
    CallbackHandlerList() = default;
    virtual ~CallbackHandlerList();

    // Appends h (null is ignored); returns its index or -1.
    long Add(CallbackHandler* h);
    // Removes the first entry h; false when there is none.
    bool Remove(const CallbackHandler* h);
    long Count() const { return list_.count(); }
    // Entry i; an index outside 0..Count()-1 is reported and gives null.
    CallbackHandler* operator[](long i) const {
        return static_cast<CallbackHandler*>(list_.item(i));
    }
    long IndexOf(const CallbackHandler* h) const { return list_.IndexOf(h); }

  private:
    UtCPtrList list_;
};

class KBASE_API Callback {
  public:
    Callback() = default;
    Callback(CallbackFunction function, void* userData)
        : function_(function), userData_(userData) {}
    Callback(const Callback&) = delete;
    Callback& operator=(const Callback&) = delete;
    // Removes the callback from every handler it is registered with.
    virtual ~Callback();

    static constexpr CallbackTypeId TypeId() { return 1; }
    static bool IsTypeOf(const Callback* cb) { return cb != nullptr && cb->IsKindOf(TypeId()); }
    virtual CallbackTypeId GetTypeId() const { return TypeId(); }
    virtual bool IsKindOf(CallbackTypeId id) const { return id == TypeId(); }

    void Set(CallbackFunction function, void* userData) {
        function_ = function;
        userData_ = userData;
    }
    void Suspended(int suspended) { suspended_ = suspended; }
    int Suspended() const { return suspended_; }

    // Calls the function with the user data and args, unless no function is set or the callback
    // is suspended.
    virtual void Execute(CallbackArgs* args);

    // Undoes the registration with h (h->Remove(this)).
    void Remove(CallbackHandler* h);
    // The handlers this callback is registered with, in registration order.
    const CallbackHandlerList& Handlers() const { return handlers_; }

  private:
    friend class CallbackHandler;

    CallbackFunction function_ = nullptr;
    void* userData_ = nullptr;
    CallbackHandlerList handlers_;
    int32_t suspended_ = 0;
};

class KBASE_API CallbackHandler {
  public:
    CallbackHandler() = default;
    CallbackHandler(const CallbackHandler&) = delete;
    CallbackHandler& operator=(const CallbackHandler&) = delete;
    // Removes every registration; a running ExecuteAll stops without touching the handler again.
    virtual ~CallbackHandler();

    // Registers cb (see the header's opening for null and repeated adds).
    void Add(Callback* cb);
    // Undoes the registration of cb on both sides.
    void Remove(Callback* cb);
    // Nothing while the handler is suspended; otherwise Execute of every callback that is not
    // suspended, in registration order. The handled flag of args does not stop the walk.
    void ExecuteAll(CallbackArgs* args);
    // Execute of the callback added last, unless the handler is suspended or has no callbacks.
    void ExecuteLast(CallbackArgs* args);
    bool HasCallbacks() const { return callbacks_.count() > 0; }
    long Count() const { return callbacks_.count(); }
    // Callback i in registration order; an index outside is reported and gives null.
    Callback* operator[](long i) const { return static_cast<Callback*>(callbacks_.item(i)); }

    void Suspended(int suspended) { suspended_ = suspended; }
    int Suspended() const { return suspended_; }

  private:
    // One running ExecuteAll: the next index to call and the end of the callbacks it calls, kept
    // right by every removal; walks nest (a callback may run ExecuteAll again).
    struct Walk {
        long next;
        long end;
        bool handlerGone;
        Walk* outer;
    };
    void RemoveAt(long index);

    UtCPtrList callbacks_;  // of Callback*, not owned
    int32_t suspended_ = 0;
    Walk* walks_ = nullptr;
};
