// The process-wide cache of opened code pages, one for each back end: a page is made on first use
// and kept (a number without a converter is remembered as null too), and the page found last is
// at hand first, since callers convert many times in a row with one page. Single-threaded, as the
// code-page layer is by contract.
#pragma once

#include <memory>
#include <new>
#include <unordered_map>

// Page has a member `number`; Make builds the page of a number, gives null when there is none and
// throws std::bad_alloc when memory ran out on the way. Such a page is not remembered, since it
// exists: the call gives null with *noMemory set (when given), and the next call tries again.
template <typename Page, std::unique_ptr<Page> (*Make)(unsigned short)>
Page* BrFindCodePage(unsigned short number, bool* noMemory) {
    static std::unordered_map<unsigned short, std::unique_ptr<Page>> cache;
    static Page* last = nullptr;
    if (noMemory != nullptr) *noMemory = false;
    if (last != nullptr && last->number == number) return last;
    auto it = cache.find(number);
    if (it == cache.end()) {
        try {
            std::unique_ptr<Page> page = Make(number);
            it = cache.emplace(number, std::move(page)).first;
        } catch (const std::bad_alloc&) {
            if (noMemory != nullptr) *noMemory = true;
            return nullptr;
        }
    }
    if (it->second) last = it->second.get();
    return it->second.get();
}
