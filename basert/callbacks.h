// Callback lists: registered functions that are told of events.
//
// Each entry holds a function, its user data, a caller-chosen id handed back on every call, an
// event mask and an on/off switch. CbCallbackPerformByMask calls, in registration order, every
// switched-on entry whose mask shares a bit with the event mask. An entry is identified by its
// function and user data (the first such entry, in registration order, when there are several).
//
// Calls may change the list they come from: an entry removed during a perform is not called
// afterwards, an entry added during a perform is first called by the next perform, and performs
// may nest. Lists are not locked; use one from one thread at a time.
#pragma once

#include <cstdint>

#include "basert/export.h"

// Called with the user data and id given at registration, the event mask of the perform, and the
// record the performer passes (its layout belongs to the performer).
using CbFunction = void (*)(void* user, int32_t id, uint32_t mask, void* record);

struct CbCallbackEntry;

// A list. A zero-initialised list (a static one, or one after CbCallbacksInit) is empty.
// The fields are private to the runtime.
struct CbCallbackList {
    CbCallbackEntry* entries;
    uint32_t count;
    uint32_t capacity;
    uint32_t performing;  // nesting depth of running performs
    uint32_t removed;     // entries emptied during performs, dropped when the outermost one ends
};

// Entry flags.
constexpr uint32_t kCbOnce = 0x1;  // the entry is removed just before its first call

// Status codes. Allocation failures pass on the code of UtAllocMemoryBlock (kUtMemNoMemory).
constexpr int kCbOk = 0;
constexpr int kCbNotFound = -1;
constexpr int kCbBadArgument = -2;

// Makes list empty. It must not hold entries (free them with CbCallbacksFree first); a null list
// is ignored.
BASERT_API void CbCallbacksInit(CbCallbackList* list);
// Releases every entry and leaves list empty. Must not be called from one of its callbacks.
BASERT_API void CbCallbacksFree(CbCallbackList* list);

// Appends an entry. on: 0 adds it switched off. Returns kCbOk; kCbBadArgument for a null list or
// function or unknown flag bits; or the non-zero code of the memory-block service (nothing added).
[[nodiscard]] BASERT_API int CbCallbackAdd(CbCallbackList* list, CbFunction function, void* user,
                                           int32_t id, uint32_t flags, int on, uint32_t mask);
// Removes the first entry with this function and user data. kCbOk or kCbNotFound.
BASERT_API int CbCallbackRemove(CbCallbackList* list, CbFunction function, void* user);
// Switches the first entry with this function and user data on (on != 0) or off.
// kCbOk or kCbNotFound.
BASERT_API int CbCallbackOnOff(CbCallbackList* list, CbFunction function, void* user, int on);

// Whether a switched-on entry listens to any bit of mask. Cost: O(entries).
BASERT_API bool CbCallbackAny(const CbCallbackList* list, uint32_t mask);
// Calls every switched-on entry whose mask shares a bit with mask, in registration order, with
// record. Returns the number of calls made.
BASERT_API int CbCallbackPerformByMask(CbCallbackList* list, uint32_t mask, void* record);
