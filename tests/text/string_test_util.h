// Helpers for the string tests.
#pragma once

#include <string>

#include "kbase/text/UtCString.h"

namespace kbase_test {

// The buffer's bytes up to and including its terminator.
inline std::string RawBytes(const UtCString& s) {
    if (s.isUtf16EncodingType()) {
        const char16_t* w = s.uptr();
        size_t n = 0;
        while (w[n] != 0) ++n;
        return std::string(reinterpret_cast<const char*>(w), (n + 1) * 2);
    }
    return std::string(s.ptr(), std::char_traits<char>::length(s.ptr()) + 1);
}

// The text as UTF-8 without a mark, for readable expectations.
inline std::string U8(const UtCString& s) { return s.GetUtf8String(0); }

// A string with the given UTF-8 text, stored in encoding e.
inline UtCString Make(const char* utf8, eUtEncodingType e) {
    return UtCString(utf8, eUtEncodingTypeUtf8, e);
}

inline const eUtEncodingType kEncodings[] = {eUtEncodingTypeAnsi1252, eUtEncodingTypeUtf8,
                                             eUtEncodingTypeUtf16};

inline std::string EncodingName(eUtEncodingType e) { return "cp" + std::to_string(static_cast<int>(e)); }

}  // namespace kbase_test
