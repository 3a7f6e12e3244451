// UtCString beside the calls a user would otherwise make: ICU for conversions, std::string for
// comparison. Each pair runs on the same data in the same process; compare the pairs' times.
#include <benchmark/benchmark.h>
#include <unicode/ucnv.h>
#include <unicode/ustring.h>

#include <memory>
#include <random>
#include <string>

#include "kbase/text/UtCString.h"

namespace {

constexpr size_t kMiB = 1 << 20;

// German-like text in 1252: mostly ASCII with umlauts, sharp s and euro signs.
std::string Text1252(bool asciiOnly) {
    static const char* words[] = {"Wand", "Fenster", "T\xFCr", "Stra\xDF" "e", "Geb\xE4ude",
                                  "\x80", "Dach", "Fl\xE4" "che", "H\xF6he", "Ma\xDF"};
    static const char* ascii[] = {"Wand", "Fenster", "Tuer", "Strasse", "Gebaeude", "EUR",
                                  "Dach", "Flaeche", "Hoehe", "Mass"};
    std::mt19937 rng(42);
    std::string s;
    while (s.size() < kMiB) {
        s += (asciiOnly ? ascii : words)[rng() % 10];
        s += (rng() % 8 == 0) ? '\n' : ' ';
    }
    s.resize(kMiB);
    return s;
}

std::u16string Utf16Of(const std::string& s1252) {
    return UtCString(s1252.c_str(), static_cast<int>(s1252.size()), eUtEncodingTypeAnsi1252,
                     eUtEncodingTypeUtf16).GetUtf16String();
}

std::string Utf8Of(const std::string& s1252) {
    return UtCString(s1252.c_str(), static_cast<int>(s1252.size()), eUtEncodingTypeAnsi1252,
                     eUtEncodingTypeUtf8).GetUtf8String(0);
}

UConverter* Converter1252() {
    static UConverter* c = [] {
        UErrorCode err = U_ZERO_ERROR;
        return ucnv_open("windows-1252", &err);
    }();
    return c;
}

void SetBytes(benchmark::State& state, size_t bytes) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

// ---- 1252 -> UTF-16 ----------------------------------------------------------------------------

void BM_Icu_1252ToUtf16(benchmark::State& state) {
    const std::string in = Text1252(state.range(0) != 0);
    std::u16string out(in.size() + 1, u'\0');
    for (auto _ : state) {
        UErrorCode err = U_ZERO_ERROR;
        const int32_t n = ucnv_toUChars(Converter1252(), reinterpret_cast<UChar*>(out.data()),
                                        static_cast<int32_t>(out.size()), in.data(),
                                        static_cast<int32_t>(in.size()), &err);
        benchmark::DoNotOptimize(n);
    }
    SetBytes(state, in.size());
}

void BM_UtCString_1252ToUtf16(benchmark::State& state) {
    const std::string in = Text1252(state.range(0) != 0);
    for (auto _ : state) {
        UtCString s(in.c_str(), static_cast<int>(in.size()), eUtEncodingTypeAnsi1252, eUtEncodingTypeUtf16);
        benchmark::DoNotOptimize(s.uptr());
    }
    SetBytes(state, in.size());
}

// ---- UTF-16 -> 1252 ------------------------------------------------------------------------------

void BM_Icu_Utf16To1252(benchmark::State& state) {
    const std::u16string in = Utf16Of(Text1252(state.range(0) != 0));
    std::string out(in.size() + 1, '\0');
    for (auto _ : state) {
        UErrorCode err = U_ZERO_ERROR;
        const int32_t n = ucnv_fromUChars(Converter1252(), out.data(), static_cast<int32_t>(out.size()),
                                          reinterpret_cast<const UChar*>(in.data()),
                                          static_cast<int32_t>(in.size()), &err);
        benchmark::DoNotOptimize(n);
    }
    SetBytes(state, in.size());
}

void BM_UtCString_Utf16To1252(benchmark::State& state) {
    const std::u16string in = Utf16Of(Text1252(state.range(0) != 0));
    for (auto _ : state) {
        UtCString s(in.c_str(), static_cast<int>(in.size()), eUtEncodingTypeAnsi1252);
        benchmark::DoNotOptimize(s.ptr());
    }
    SetBytes(state, in.size());
}

// ---- UTF-8 <-> UTF-16 ----------------------------------------------------------------------------

void BM_Icu_Utf8ToUtf16(benchmark::State& state) {
    const std::string in = Utf8Of(Text1252(state.range(0) != 0));
    std::u16string out(in.size() + 1, u'\0');
    for (auto _ : state) {
        UErrorCode err = U_ZERO_ERROR;
        int32_t n = 0;
        u_strFromUTF8(reinterpret_cast<UChar*>(out.data()), static_cast<int32_t>(out.size()), &n,
                      in.data(), static_cast<int32_t>(in.size()), &err);
        benchmark::DoNotOptimize(n);
    }
    SetBytes(state, in.size());
}

void BM_UtCString_Utf8ToUtf16(benchmark::State& state) {
    const std::string in = Utf8Of(Text1252(state.range(0) != 0));
    for (auto _ : state) {
        UtCString s(in.c_str(), static_cast<int>(in.size()), eUtEncodingTypeUtf8, eUtEncodingTypeUtf16);
        benchmark::DoNotOptimize(s.uptr());
    }
    SetBytes(state, in.size());
}

void BM_Icu_Utf16ToUtf8(benchmark::State& state) {
    const std::u16string in = Utf16Of(Text1252(state.range(0) != 0));
    std::string out(in.size() * 3 + 1, '\0');
    for (auto _ : state) {
        UErrorCode err = U_ZERO_ERROR;
        int32_t n = 0;
        u_strToUTF8(out.data(), static_cast<int32_t>(out.size()), &n,
                    reinterpret_cast<const UChar*>(in.data()), static_cast<int32_t>(in.size()), &err);
        benchmark::DoNotOptimize(n);
    }
    SetBytes(state, in.size());
}

// The same call as a program makes it when each result needs its own block: worst-case size.
void BM_IcuAlloc_Utf16ToUtf8(benchmark::State& state) {
    const std::u16string in = Utf16Of(Text1252(state.range(0) != 0));
    for (auto _ : state) {
        std::unique_ptr<char[]> out(new char[in.size() * 3 + 1]);
        UErrorCode err = U_ZERO_ERROR;
        int32_t n = 0;
        u_strToUTF8(out.get(), static_cast<int32_t>(in.size() * 3 + 1), &n,
                    reinterpret_cast<const UChar*>(in.data()), static_cast<int32_t>(in.size()), &err);
        benchmark::DoNotOptimize(out.get());
    }
    SetBytes(state, in.size());
}

void BM_UtCString_Utf16ToUtf8(benchmark::State& state) {
    const std::u16string in = Utf16Of(Text1252(state.range(0) != 0));
    for (auto _ : state) {
        UtCString s(in.c_str(), static_cast<int>(in.size()), eUtEncodingTypeUtf8);
        benchmark::DoNotOptimize(s.ptr());
    }
    SetBytes(state, in.size());
}

// ---- comparison and hash -----------------------------------------------------------------------------

void BM_StdString_Compare(benchmark::State& state) {
    const std::string a = Text1252(false).substr(0, static_cast<size_t>(state.range(0)));
    const std::string b = a;
    for (auto _ : state) benchmark::DoNotOptimize(a.compare(b));
    SetBytes(state, a.size());
}

void BM_UtCString_CompareTo(benchmark::State& state) {
    const std::string t = Text1252(false).substr(0, static_cast<size_t>(state.range(0)));
    const UtCString a(t.c_str(), eUtEncodingTypeAnsi1252, eUtEncodingTypeAnsi1252);
    const UtCString b(a);
    for (auto _ : state) benchmark::DoNotOptimize(a.CompareTo(b));
    SetBytes(state, t.size());
}

void BM_UtCString_Hash(benchmark::State& state) {
    const std::string t = Text1252(false);
    const UtCString a(t.c_str(), eUtEncodingTypeAnsi1252, eUtEncodingTypeAnsi1252);
    for (auto _ : state) benchmark::DoNotOptimize(a.hash());
    SetBytes(state, t.size());
}

}  // namespace

// Argument 0: German text; 1: pure ASCII.
BENCHMARK(BM_Icu_1252ToUtf16)->Arg(0)->Arg(1);
BENCHMARK(BM_UtCString_1252ToUtf16)->Arg(0)->Arg(1);
BENCHMARK(BM_Icu_Utf16To1252)->Arg(0)->Arg(1);
BENCHMARK(BM_UtCString_Utf16To1252)->Arg(0)->Arg(1);
BENCHMARK(BM_Icu_Utf8ToUtf16)->Arg(0)->Arg(1);
BENCHMARK(BM_UtCString_Utf8ToUtf16)->Arg(0)->Arg(1);
BENCHMARK(BM_Icu_Utf16ToUtf8)->Arg(0)->Arg(1);
BENCHMARK(BM_IcuAlloc_Utf16ToUtf8)->Arg(0)->Arg(1);
BENCHMARK(BM_UtCString_Utf16ToUtf8)->Arg(0)->Arg(1);
// Argument: text length in bytes.
BENCHMARK(BM_StdString_Compare)->Arg(32)->Arg(1 << 20);
BENCHMARK(BM_UtCString_CompareTo)->Arg(32)->Arg(1 << 20);
BENCHMARK(BM_UtCString_Hash);

BENCHMARK_MAIN();
