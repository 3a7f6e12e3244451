// How the csv job reads numbers that carry a comma. A file delimited by ',' can hold a comma in a
// number only inside quotes, and such files write thousands that way ("6,718"); in a file with
// any other delimiter a comma in a number is the decimal comma ("1,5").
#pragma once

#include <string>
#include <string_view>

namespace kbase_tool {

enum class CommaRule { kDecimal, kThousands };

inline CommaRule CommaRuleFor(char delimiter) {
    return delimiter == ',' ? CommaRule::kThousands : CommaRule::kDecimal;
}

// The text of a number written with the rule's separators in the point form the library reads
// ("1,5" -> "1.5", "2.940,00" -> "2940.00" for decimal commas; "6,718" -> "6718" for thousands
// commas), in scratch. False when the text is not such a number or needs no change.
inline bool PointForm(std::string_view text, CommaRule rule, std::string& scratch) {
    if (text.find(',') == std::string_view::npos) return false;
    const char group = rule == CommaRule::kDecimal ? '.' : ',';
    const char point = rule == CommaRule::kDecimal ? ',' : '.';
    auto digit = [](char c) { return c >= '0' && c <= '9'; };
    size_t i = 0;
    scratch.clear();
    if (i < text.size() && (text[i] == '-' || text[i] == '+')) scratch += text[i++];
    // The whole part: digits, or 1 to 3 digits and then groups of a separator and 3 digits.
    const size_t start = i;
    while (i < text.size() && digit(text[i])) scratch += text[i++];
    if (i == start) return false;
    if (i < text.size() && text[i] == group) {
        if (i - start > 3) return false;
        while (i < text.size() && text[i] == group) {
            if (i + 4 > text.size() || !digit(text[i + 1]) || !digit(text[i + 2]) ||
                !digit(text[i + 3]))
                return false;
            scratch.append(text.substr(i + 1, 3));
            i += 4;
        }
        if (i < text.size() && digit(text[i])) return false;
    }
    if (i < text.size() && text[i] == point) {
        scratch += '.';
        const size_t frac = ++i;
        while (i < text.size() && digit(text[i])) scratch += text[i++];
        if (i == frac) return false;
    }
    return i == text.size();
}

}  // namespace kbase_tool
