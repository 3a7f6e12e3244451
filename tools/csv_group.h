// Grouped totals for the csv job, in memory proportional to the number of groups: each row is
// folded into its group as it is read. The result equals UtTable::SumColumn on the projected
// rows (grouping columns first, then the summed ones): groups in ordinal order of their key
// cells, each total starting from the group's first row read leniently (like atof) and adding
// every later cell that is a number, exactly for decimal texts.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "csv_numbers.h"
#include "kbase/tables/UtCDecimalSum.h"

namespace kbase_tool {

class GroupTotals {
  public:
    // keys: the number of grouping cells per row; sums: the number of summed cells per row.
    // commas: how a number with a comma reads (see csv_numbers.h).
    GroupTotals(size_t keys, size_t sums, CommaRule commas);

    // Folds one row in: keys[0..keys) then sums[0..sums), UTF-8.
    void Add(const std::string_view* keys, const std::string_view* sums);

    size_t GroupCount() const { return groups_.size(); }
    // Whether summed column k met a cell that reads as a number.
    bool SawNumber(size_t k) const { return sawNumber_[k]; }
    // Whether some total took a number written with a decimal comma.
    bool UsedComma() const { return usedComma_; }
    // Hands one row per group to sink, in order: the keys, then the totals formatted by format
    // ("%.2f"); with commaOut the decimal point of a total is a comma. False when sink refused.
    using Sink = std::function<bool(const std::vector<std::string_view>&)>;
    bool ForEach(const char* format, bool commaOut, const Sink& sink) const;

  private:
    struct Group {
        std::vector<std::string> keys;
        std::vector<UtCDecimalSum> totals;
    };
    struct Hash {
        using is_transparent = void;
        size_t operator()(std::string_view s) const { return std::hash<std::string_view>{}(s); }
    };
    struct Equal {
        using is_transparent = void;
        bool operator()(std::string_view a, std::string_view b) const { return a == b; }
    };

    void AddCell(UtCDecimalSum& total, std::string_view cell, bool first, size_t k);

    size_t keyCount_, sumCount_;
    CommaRule commas_;
    bool usedComma_ = false;
    std::vector<Group> groups_;
    std::unordered_map<std::string, uint32_t, Hash, Equal> index_;
    std::vector<bool> sawNumber_;
    std::string probe_;  // the packed key of the row being added
    std::string scratch_;
};

}  // namespace kbase_tool
