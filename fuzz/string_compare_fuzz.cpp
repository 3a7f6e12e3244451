// The comparators of UtCString and the string lists on two arbitrary texts. Byte 0 picks the two
// encodings; the rest is split at its first 0xFF into the texts. Properties:
//  - CompareTo gives -1, 0 or 1, 0 for a text and its copy, and is antisymmetric between two
//    texts of one encoding (after a conversion failure it gives 1 both ways, which is kept);
//  - CompareToNoCase is antisymmetric within one code page and 0 for a copy;
//  - UtCStringMultiNumberComparator decides as CompareTo wherever its kept asymmetry cannot act:
//    texts of equal length (both values then come from a's characters), a first text without
//    number characters, and a first text in UTF-8 or UTF-16 (no digits there);
//  - CompareToNoCaseTokenizeNumeric is 0 for a copy;
//  - a list of one encoding sorted with the ordinal comparator is in CompareTo order.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz_support.h"
#include "kbase/text/UtCStringList.h"

KBASE_FUZZ_STRICT_DIAGNOSTICS()

namespace {

int Sign(int v) {
    return (v > 0) - (v < 0);
}

UtCString Make(const char* p, size_t n, eUtEncodingType e) {
    return UtCString(p, static_cast<int>(n), eUtEncodingTypeAnsi1252, e);
}

bool HasNumberChars(const UtCString& s) {
    // One conversion: GetWcharAt locates a UTF-8 character from the start each time.
    for (const char16_t c : s.GetUtf16String()) {
        if ((c >= u'0' && c <= u'9') || c == u',' || c == u'.') return true;
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    static const eUtEncodingType kEncodings[] = {eUtEncodingTypeAnsi1252, eUtEncodingTypeAnsi1252,
                                                 eUtEncodingTypeUtf8, eUtEncodingTypeUtf16};
    const eUtEncodingType ea = kEncodings[data[0] & 3];
    const eUtEncodingType eb = kEncodings[(data[0] >> 2) & 3];
    const char* text = reinterpret_cast<const char*>(data + 1);
    const size_t n = size - 1;
    const char* split = static_cast<const char*>(std::memchr(text, 0xFF, n));
    const size_t na = split != nullptr ? static_cast<size_t>(split - text) : n / 2;
    const size_t nb = split != nullptr ? n - na - 1 : n - na;
    const UtCString a = Make(text, na, ea);
    const UtCString b = Make(text + n - nb, nb, eb);
    const UtCString copy(a);

    const int ab = a.CompareTo(b), ba = b.CompareTo(a);
    if (ab < -1 || ab > 1 || a.CompareTo(copy) != 0) std::abort();
    if (ea == eb && ab != -ba) std::abort();
    if (ea == eb && ea == eUtEncodingTypeAnsi1252) {
        if (Sign(a.CompareToNoCase(b)) != -Sign(b.CompareToNoCase(a))) std::abort();
    }
    if (a.CompareToNoCase(copy) != 0) std::abort();

    UtCStringMultiNumberComparator numbers;
    const bool noValues = a.GetLength() == b.GetLength() || !HasNumberChars(a) ||
                          a.isUtf8EncodingType() || a.isUtf16EncodingType();
    if (noValues && Sign(numbers.Compare(a, b)) != ab) std::abort();
    (void)numbers.Compare(b, a);
    if (a.CompareToNoCaseTokenizeNumeric(copy) != 0 ||
        a.CompareToNoCaseTokenizeNumeric(copy, false) != 0)
        std::abort();
    (void)a.CompareToNoCaseTokenizeNumeric(b, (data[0] & 16) != 0);

    UtCStringList list;
    list.Add(a).Add(b).Add(copy).Add(b.toUpper());
    list.Sort();
    for (long i = 1; ea == eb && i < list.count(); ++i) {
        if (list[i - 1].CompareTo(list[i]) > 0) std::abort();
    }
    UtCStringList byNumber(new UtCStringMultiNumberComparator);
    byNumber.Add(a).Add(b).Add(copy);
    byNumber.Sort();
    if (byNumber.count() != 3) std::abort();
    return 0;
}
