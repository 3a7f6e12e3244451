// An allocation-failure sweep for tests, in the manner of SQLite's: a scenario runs again and
// again, and run n makes the n-th allocation fail, until a run completes without reaching n.
//
// Allocations counted, in one sequence: operator new of the whole program (the library's and the
// standard library's containers included), the runtime's memory blocks (UtAllocMemoryBlock,
// UtCcalloc, hence the small-block pool) and, where the code pages are ICU's, ICU's heap. ICU keeps
// some failures for the life of the process (its normalisers are made once), so a scenario makes
// those before it arms. Only allocations inside an armed window count, so a
// scenario arms around the operations under test and keeps its set-up and checks outside.
// A failing operator new throws std::bad_alloc (the nothrow forms return null); a failing memory
// block is refused with its status. Linking this library replaces the global operator new and
// delete of the test program; nothing of it is in the shipped libraries.
#pragma once

#include <cstdint>
#include <functional>

namespace kbase_test {

class SweepPoint {
  public:
    explicit SweepPoint(uint64_t n) : n_(n) {}
    // The allocation that fails in this run (1-based).
    uint64_t n() const { return n_; }
    // Whether that allocation was reached (and so failed) so far.
    bool Failed() const;

    // Counts (and fails) allocations while it lives.
    class Armed {
      public:
        explicit Armed(SweepPoint& point);
        ~Armed();
        Armed(const Armed&) = delete;
        Armed& operator=(const Armed&) = delete;

      private:
        SweepPoint& point_;
    };

  private:
    friend class Armed;
    uint64_t n_;
    uint64_t seen_ = 0;  // allocations counted in earlier windows of this run
};

// Runs scenario for n = 1, 2, ... until a run does not reach its n-th allocation (that last run
// completes with nothing failed), at most limit runs. Returns the number of failure points: the
// runs in which an allocation failed. The scenario checks its own results.
uint64_t SweepAllocations(const std::function<void(SweepPoint&)>& scenario, uint64_t limit = 20000);

// Whether the leak checker of a sanitizer build finds memory that nothing points to any more
// (false when there is no leak checker).
bool LeaksFound();

}  // namespace kbase_test
