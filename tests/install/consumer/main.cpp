// A program that uses the installed headers and libraries only.
#include <cstdio>

#include "basert/diag.h"
#include "kbase/text/UtCString.h"
#include "kbase/version.h"

int main() {
    const UtCString s(u"K\u00F6ln", eUtEncodingTypeAnsi1252);
    if (s.GetLength() != 4 || static_cast<unsigned char>(s.ptr()[1]) != 0xF6) return 1;
    std::printf("kbase %s: %s\n", KbaseVersion(), UtCString(s, eUtEncodingTypeUtf8).stringSkipBOM());
    return 0;
}
