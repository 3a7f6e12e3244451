#include "kbase/services/Callback.h"

CallbackHandlerList::~CallbackHandlerList() = default;

long CallbackHandlerList::Add(CallbackHandler* h) {
    if (h == nullptr) return -1;
    const long before = list_.count();
    list_.Append(h);
    return list_.count() > before ? before : -1;
}

bool CallbackHandlerList::Remove(const CallbackHandler* h) {
    const long i = list_.IndexOf(h);
    if (i < 0) return false;
    list_.Remove(i);
    return true;
}

Callback::~Callback() {
    // Each Remove takes this handler out of handlers_, so the list shrinks from the back.
    while (handlers_.Count() > 0) handlers_[handlers_.Count() - 1]->Remove(this);
}

void Callback::Execute(CallbackArgs* args) {
    if (function_ != nullptr && suspended_ == 0) function_(userData_, args);
}

void Callback::Remove(CallbackHandler* h) {
    if (h != nullptr) h->Remove(this);
}

CallbackHandler::~CallbackHandler() {
    for (Walk* w = walks_; w != nullptr; w = w->outer) w->handlerGone = true;
    for (long i = callbacks_.count() - 1; i >= 0; --i) {
        static_cast<Callback*>(callbacks_.item(i))->handlers_.Remove(this);
    }
}

void CallbackHandler::Add(Callback* cb) {
    if (cb == nullptr || callbacks_.IndexOf(cb) >= 0) return;
    const long before = callbacks_.count();
    callbacks_.Append(cb);
    if (callbacks_.count() == before) return;  // no memory: nothing registered on either side
    if (cb->handlers_.Add(this) < 0) callbacks_.Remove(before);
}

void CallbackHandler::RemoveAt(long index) {
    callbacks_.Remove(index);
    for (Walk* w = walks_; w != nullptr; w = w->outer) {
        if (index < w->next) --w->next;
        if (index < w->end) --w->end;
    }
}

void CallbackHandler::Remove(Callback* cb) {
    const long i = callbacks_.IndexOf(cb);
    if (i < 0) return;
    cb->handlers_.Remove(this);
    RemoveAt(i);
}

void CallbackHandler::ExecuteAll(CallbackArgs* args) {
    if (suspended_ != 0) return;
    Walk walk{0, callbacks_.count(), false, walks_};
    walks_ = &walk;
    while (walk.next < walk.end && suspended_ == 0) {
        Callback* cb = static_cast<Callback*>(callbacks_.item(walk.next++));
        if (cb->Suspended() == 0) cb->Execute(args);
        if (walk.handlerGone) return;  // destroyed by the callback: this is gone too
    }
    walks_ = walk.outer;
}

void CallbackHandler::ExecuteLast(CallbackArgs* args) {
    if (suspended_ != 0 || callbacks_.count() == 0) return;
    static_cast<Callback*>(callbacks_.item(callbacks_.count() - 1))->Execute(args);
}
