// Arbitrary bytes into the services' readers of outside data. Byte 0 picks:
//  - even: VlValue read repeatedly from the rest as a checked XDR file (ExMain ends a read);
//  - odd: variables and a text: the rest is split at the first NUL into definitions (lines
//    NAME=VALUE, set as texts in that order) and a template. The template is filled with
//    ReplaceAllLimited (a few passes, a bounded length); when that ends, ReplaceAll on a buffer
//    that held every step must end too and give the same text.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_file.h"
#include "fuzz_support.h"
#include "kbase/services/VaVars.h"
#include "kbase/services/VlValue.h"
#include "kbase/streams/ExMain.h"
#include "kbase/streams/XdStream.h"
#include "kbase/text/UtCString.h"

KBASE_FUZZ_STRICT_DIAGNOSTICS()

namespace {

constexpr size_t kMaxDefinitions = 64;
constexpr short kBuffer = 4096;

void ReadValues(const uint8_t* data, size_t size) {
    FuzzFile file(data, size);
    try {
        XdStdio in(UtCString(file.path().c_str()), UtCString("r"));
        for (int i = 0; i < 64; ++i) {
            VlValue v;
            in >> v;
            if (v.IsText() && v.GetText() == nullptr) __builtin_trap();
        }
    } catch (const kbase::ExMain&) {
    }
}

void Substitute(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t split = input.find('\0');
    if (split == std::string::npos) return;
    VaVars vars;
    size_t start = 0;
    for (size_t n = 0; start < split && n < kMaxDefinitions; ++n) {
        size_t end = input.find('\n', start);
        if (end == std::string::npos || end > split) end = split;
        const std::string line = input.substr(start, end - start);
        const size_t eq = line.find('=');
        if (eq != std::string::npos && eq > 0) {
            vars.Set(line.substr(0, eq).c_str(), line.substr(eq + 1).c_str());
        }
        start = end + 1;
    }
    std::string text = input.substr(split + 1);
    text.resize(std::strlen(text.c_str()));  // up to the next NUL, as a C text
    if (text.size() >= static_cast<size_t>(kBuffer)) return;
    std::vector<char> buf(text.c_str(), text.c_str() + text.size() + 1);
    buf.resize(static_cast<size_t>(kBuffer));
    const VaReplaceResult r = vars.ReplaceAllLimited(text, 16, static_cast<size_t>(kBuffer) - 1);
    if (r != VaReplaceResult::kDone) return;
    if (!vars.ReplaceAll(buf.data(), kBuffer)) __builtin_trap();
    if (text != buf.data()) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    if (data[0] % 2 == 0) {
        ReadValues(data + 1, size - 1);
    } else {
        Substitute(data + 1, size - 1);
    }
    return 0;
}
