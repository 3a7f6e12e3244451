#include "basert/callbacks.h"

#include <cstring>

#include "basert/memory.h"

// An entry whose function is null is empty: it was removed while a perform ran, and is dropped
// once the outermost perform ends. Until then indices stay stable, which is what lets a perform
// walk the list by index while its callbacks change it.
struct CbCallbackEntry {
    CbFunction function;
    void* user;
    int32_t id;
    uint32_t flags;
    uint32_t mask;
    int on;
};

namespace {

constexpr uint32_t kKnownFlags = kCbOnce;

CbCallbackEntry* FindEntry(const CbCallbackList* list, CbFunction function, void* user) {
    if (list == nullptr || function == nullptr) return nullptr;
    for (uint32_t i = 0; i < list->count; ++i) {
        CbCallbackEntry& e = list->entries[i];
        if (e.function == function && e.user == user) return &e;
    }
    return nullptr;
}

void EraseAt(CbCallbackList* list, uint32_t index) {
    std::memmove(&list->entries[index], &list->entries[index + 1],
                 (list->count - index - 1) * sizeof(CbCallbackEntry));
    --list->count;
}

// Empties an entry: erased at once when no perform runs, else left empty for later.
void Remove(CbCallbackList* list, CbCallbackEntry* entry) {
    if (list->performing == 0) {
        EraseAt(list, static_cast<uint32_t>(entry - list->entries));
        return;
    }
    entry->function = nullptr;
    ++list->removed;
}

void DropEmptyEntries(CbCallbackList* list) {
    uint32_t kept = 0;
    for (uint32_t i = 0; i < list->count; ++i) {
        if (list->entries[i].function != nullptr) list->entries[kept++] = list->entries[i];
    }
    list->count = kept;
    list->removed = 0;
}

}  // namespace

void CbCallbacksInit(CbCallbackList* list) {
    if (list == nullptr) return;
    *list = CbCallbackList{};
}

void CbCallbacksFree(CbCallbackList* list) {
    if (list == nullptr) return;
    UtFreeMemory(list->entries);
    *list = CbCallbackList{};
}

int CbCallbackAdd(CbCallbackList* list, CbFunction function, void* user, int32_t id,
                  uint32_t flags, int on, uint32_t mask) {
    if (list == nullptr || function == nullptr || (flags & ~kKnownFlags) != 0) {
        return kCbBadArgument;
    }
    if (list->count == list->capacity) {
        const uint64_t capacity = list->capacity == 0 ? 4 : uint64_t{list->capacity} * 2;
        if (capacity > UINT32_MAX) return kCbBadArgument;
        void* block = list->entries;
        const int rc = UtAllocMemoryBlock(&block, capacity, sizeof(CbCallbackEntry));
        if (rc != kUtMemOk) return rc;
        list->entries = static_cast<CbCallbackEntry*>(block);
        list->capacity = static_cast<uint32_t>(capacity);
    }
    list->entries[list->count++] = CbCallbackEntry{function, user, id, flags, mask, on != 0};
    return kCbOk;
}

int CbCallbackRemove(CbCallbackList* list, CbFunction function, void* user) {
    CbCallbackEntry* e = FindEntry(list, function, user);
    if (e == nullptr) return kCbNotFound;
    Remove(list, e);
    return kCbOk;
}

int CbCallbackOnOff(CbCallbackList* list, CbFunction function, void* user, int on) {
    CbCallbackEntry* e = FindEntry(list, function, user);
    if (e == nullptr) return kCbNotFound;
    e->on = on != 0;
    return kCbOk;
}

bool CbCallbackAny(const CbCallbackList* list, uint32_t mask) {
    if (list == nullptr) return false;
    for (uint32_t i = 0; i < list->count; ++i) {
        const CbCallbackEntry& e = list->entries[i];
        if (e.function != nullptr && e.on && (e.mask & mask) != 0) return true;
    }
    return false;
}

int CbCallbackPerformByMask(CbCallbackList* list, uint32_t mask, void* record) {
    if (list == nullptr) return 0;
    int calls = 0;
    ++list->performing;
    // Entries appended by the callbacks lie beyond end and wait for the next perform. The array
    // may move when they are added, so it is indexed afresh for every entry.
    const uint32_t end = list->count;
    for (uint32_t i = 0; i < end; ++i) {
        CbCallbackEntry& e = list->entries[i];
        if (e.function == nullptr || !e.on || (e.mask & mask) == 0) continue;
        const CbCallbackEntry call = e;
        if ((call.flags & kCbOnce) != 0) Remove(list, &e);
        call.function(call.user, call.id, mask, record);
        ++calls;
    }
    if (--list->performing == 0 && list->removed != 0) DropEmptyEntries(list);
    return calls;
}
