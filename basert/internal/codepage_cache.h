// The process-wide cache of opened code pages, one for each back end: a page is made on first use
// and kept (a number without a converter is remembered as null too), and the page found last is
// at hand first, since callers convert many times in a row with one page. Single-threaded, as the
// code-page layer is by contract.
#pragma once

#include <memory>
#include <unordered_map>

// Page has a member `number`; Make builds the page of a number, or null when there is none.
template <typename Page, std::unique_ptr<Page> (*Make)(unsigned short)>
Page* BrFindCodePage(unsigned short number) {
    static std::unordered_map<unsigned short, std::unique_ptr<Page>> cache;
    static Page* last = nullptr;
    if (last != nullptr && last->number == number) return last;
    auto it = cache.find(number);
    if (it == cache.end()) it = cache.emplace(number, Make(number)).first;
    if (it->second) last = it->second.get();
    return it->second.get();
}
