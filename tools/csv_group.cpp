#include "csv_group.h"

#include <algorithm>
#include <cstring>

namespace kbase_tool {

namespace {

// Packs cells into one text that differs whenever one of the cells does: each cell is preceded
// by its length.
void Pack(const std::string_view* cells, size_t n, std::string& out) {
    out.clear();
    for (size_t i = 0; i < n; ++i) {
        const uint32_t len = static_cast<uint32_t>(cells[i].size());
        out.append(reinterpret_cast<const char*>(&len), sizeof len);
        out.append(cells[i]);
    }
}

}  // namespace

GroupTotals::GroupTotals(size_t keys, size_t sums, CommaRule commas)
    : keyCount_(keys), sumCount_(sums), commas_(commas), sawNumber_(sums, false) {}

void GroupTotals::AddCell(UtCDecimalSum& total, std::string_view cell, bool first, size_t k) {
    if (total.Add(cell.data(), cell.size())) {
        sawNumber_[k] = true;
        return;
    }
    std::string_view text = cell;
    if (PointForm(cell, commas_, scratch_)) {
        text = scratch_;
        if (total.Add(text.data(), text.size())) {
            sawNumber_[k] = true;
            usedComma_ = usedComma_ || commas_ == CommaRule::kDecimal;
            return;
        }
    }
    if (first) {
        // The group's first row starts its total leniently, as the table's grouping does.
        total.AddLenient(text.data(), text.size());
    }
}

void GroupTotals::Add(const std::string_view* keys, const std::string_view* sums) {
    Pack(keys, keyCount_, probe_);
    auto it = index_.find(std::string_view(probe_));
    const bool first = it == index_.end();
    if (first) {
        Group g;
        g.keys.assign(keys, keys + keyCount_);
        g.totals.resize(sumCount_);
        groups_.push_back(std::move(g));
        it = index_.emplace(probe_, static_cast<uint32_t>(groups_.size() - 1)).first;
    }
    Group& g = groups_[it->second];
    for (size_t k = 0; k < sumCount_; ++k) AddCell(g.totals[k], sums[k], first, k);
}

bool GroupTotals::ForEach(const char* format, bool commaOut, const Sink& sink) const {
    std::vector<uint32_t> order(groups_.size());
    for (uint32_t i = 0; i < order.size(); ++i) order[i] = i;
    // Keys of distinct groups differ, so the order is total and needs no stability.
    std::sort(order.begin(), order.end(),
              [&](uint32_t a, uint32_t b) { return groups_[a].keys < groups_[b].keys; });
    std::vector<std::string> totals(sumCount_);
    std::vector<std::string_view> row;
    for (const uint32_t i : order) {
        const Group& g = groups_[i];
        row.assign(g.keys.begin(), g.keys.end());
        for (size_t k = 0; k < sumCount_; ++k) {
            totals[k] = g.totals[k].Format(format);
            if (commaOut) std::replace(totals[k].begin(), totals[k].end(), '.', ',');
            row.emplace_back(totals[k]);
        }
        if (!sink(row)) return false;
    }
    return true;
}

}  // namespace kbase_tool
