// Sorting rows for the csv job within a memory budget, whatever the input size: rows are kept
// in memory up to a run's size (half the budget, at most 32 MiB), then that run is sorted stably
// and spilled to a temporary file; at the end the runs are merged, earlier runs first among equal
// rows. Many runs are merged level by level, so few files are open at once. For any key columns
// whose cells are all numbers or all texts the result is that of one stable in-memory sort. The
// order of two rows is UtTable::Sort's: per key, two numbers compare by value and end the
// comparison, else the texts compare ordinally (bytes of UTF-8) and a tie moves on.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "csv_numbers.h"

namespace kbase_tool {

struct SortKey {
    size_t column;  // 0-based; a row without the column sorts by the empty text
    bool descending;
};

class ExternalSort {
  public:
    using RowSink = std::function<bool(const std::vector<std::string_view>& fields)>;

    // budget: bytes of memory for the rows held and the merge buffers (at least 1 MiB is used).
    // commas: how a number with a comma reads (see csv_numbers.h).
    ExternalSort(std::vector<SortKey> keys, uint64_t budget, CommaRule commas);
    ~ExternalSort();
    ExternalSort(const ExternalSort&) = delete;
    ExternalSort& operator=(const ExternalSort&) = delete;

    // Adds a row of UTF-8 fields. False when a run could not be written (Error tells why).
    [[nodiscard]] bool Add(const std::vector<std::string_view>& fields);
    // Hands every row to sink in sorted order. False when a run could not be read back or the
    // sink refused a row.
    [[nodiscard]] bool Finish(const RowSink& sink);

    // Runs spilled to temporary files so far (before any merging).
    size_t SpilledRuns() const { return spilled_; }
    const std::string& Error() const { return error_; }

    struct Key {
        double number;
        const char* text;
        uint32_t length;
        bool isNumber;
    };
    // Whether row a goes before row b by their keys.
    static bool Before(const Key* a, const Key* b, const std::vector<SortKey>& keys);
    // <0, 0 or >0 as row a goes before, beside or after row b.
    static int Compare(const Key* a, const Key* b, const std::vector<SortKey>& keys);

  private:
    struct Run;
    class RunWriter;
    struct RadixEntry {
        uint64_t bits;
        uint32_t index;
    };
    // One key; decided is false when the rows tie on it and the next key decides.
    static int Compare(const Key& a, const Key& b, bool descending, bool& decided);
    bool Spill();
    // Puts the held rows' indices into order_, in sorted order.
    void SortRows();
    bool RadixOrder();
    void KeysOf(const char* row, Key* keys);
    static void Fields(const char* row, std::vector<std::string_view>& out);
    // Merges runs_[first..] in order and hands each stored row to sink.
    bool Merge(size_t first, const std::function<bool(const char*)>& sink);

    std::vector<SortKey> sortKeys_;
    uint64_t budget_;
    uint64_t runCap_;  // bytes of rows sorted as one run
    CommaRule commas_;
    // Rows, never moved once written; kept from run to run.
    std::vector<std::unique_ptr<char[]>> blocks_;
    std::vector<size_t> blockSizes_;
    size_t blockIndex_ = 0, blockUsed_ = 0, blockSize_ = 0;
    uint64_t heldBytes_ = 0;
    std::vector<const char*> rows_;
    std::vector<Key> keys_;  // rows_.size() * sortKeys_.size()
    std::vector<RadixEntry> radix_, radixSwap_;
    std::vector<uint32_t> order_;
    std::vector<std::unique_ptr<Run>> runs_;
    size_t spilled_ = 0;
    std::string scratch_;
    std::string error_;
};

}  // namespace kbase_tool
