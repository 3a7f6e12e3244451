// UtCString::CompareToNoCaseTokenizeNumeric: natural order through the multi-number comparator.
#include "kbase/text/UtCString.h"
#include "kbase/text/UtCStringList.h"

namespace {

bool IsAsciiDigit(char16_t c) { return c >= u'0' && c <= u'9'; }

// The runs of digits and of other characters of s, in order. Digit runs are stored as 8-bit
// text, since the multi-number comparator reads digits only from 8-bit strings; the other runs
// keep the encoding of s.
void SplitRuns(const UtCString& s, UtCStringList& runs) {
    const eUtEncodingType e = s.encodingType();
    if (s.isUtf16EncodingType()) {
        const char16_t* w = s.uptr();
        const int n = s.GetLength();
        int start = 0;
        for (int i = 1; i <= n; ++i) {
            if (i < n && IsAsciiDigit(w[i]) == IsAsciiDigit(w[start])) continue;
            if (IsAsciiDigit(w[start])) {
                runs.Add(UtCString(w + start, i - start, eUtEncodingTypeAnsi1252));
            } else {
                runs.Add(UtCString(w + start, i - start, e));
            }
            start = i;
        }
        return;
    }
    // Code pages and UTF-8: digits are single ASCII bytes and never part of a multi-byte sequence.
    const char* p = s.stringSkipBOM();
    int n = 0;
    while (p[n] != '\0') ++n;
    int start = 0;
    for (int i = 1; i <= n; ++i) {
        if (i < n && IsAsciiDigit(static_cast<unsigned char>(p[i])) ==
                         IsAsciiDigit(static_cast<unsigned char>(p[start]))) {
            continue;
        }
        const bool digits = IsAsciiDigit(static_cast<unsigned char>(p[start]));
        runs.Add(UtCString(p + start, i - start, e, digits ? eUtEncodingTypeAnsi1252 : e));
        start = i;
    }
}

}  // namespace

int UtCString::CompareToNoCaseTokenizeNumeric(const UtCString& other, bool ignoreCase) const {
    UtCStringList mine(new UtCStringMultiNumberComparator());
    UtCStringList theirs(new UtCStringMultiNumberComparator());
    SplitRuns(*this, mine);
    SplitRuns(other, theirs);
    if (ignoreCase) {
        mine.SetToLower();
        theirs.SetToLower();
    }
    return mine.CompareTo(theirs);
}
