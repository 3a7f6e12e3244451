// The GAEB classes: reading the tagged text form, and the legacy search helpers.
#include <charconv>
#include <cstring>

#include "kbase/gaeb/UtGAEB.h"
#include "kbase/gaeb/internal/format.h"
#include "kbase/gaeb/internal/reader.h"

using kbase_gaeb_internal::kAfterEnd;
using kbase_gaeb_internal::Kind;
using kbase_gaeb_internal::NameIs;
using kbase_gaeb_internal::Reader;
using kbase_gaeb_internal::Token;

namespace {

// Fills a fixed text field from a loaded value. A value that does not fit is cut in the field and
// kept as written.
template <size_t N>
void TakeText(char (&field)[N], Reader& reader, const Token& token) {
    if (token.value.size() < N) {
        std::memcpy(field, token.value.data(), token.value.size());
        field[token.value.size()] = '\0';
        return;
    }
    std::memcpy(field, token.value.data(), N - 1);
    field[N - 1] = '\0';
    reader.keepAsShadow = true;
    reader.Note(token.line, "[" + token.name + "] is longer than " + std::to_string(N - 1) +
                                " bytes; the field holds its start, the line is kept as written");
}

void TakeShort(short& field, Reader& reader, const Token& token) {
    if (kbase_gaeb_internal::ParseShort(token.value, field)) return;
    reader.keepAsShadow = true;
    reader.Note(token.line, "[" + token.name + "]" + std::string(token.value) +
                                " is no 16-bit number; kept as written");
}

// Whether a number as ParseReal takes it has at most three decimals.
bool AtMostThreeDecimals(std::string_view text) {
    const size_t sep = text.find_first_of(".,");
    if (sep == std::string_view::npos) return true;
    size_t digits = 0;
    for (size_t i = sep + 1; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) ++digits;
    return digits <= 3;
}

// A quantity: kept as written unless "%.3f" gives the same number back.
void TakeQuantity(double& field, Reader& reader, const Token& token) {
    double v = 0;
    if (!kbase_gaeb_internal::ParseReal(token.value, v)) {
        reader.keepAsShadow = true;
        reader.Note(token.line, "[" + token.name + "]" + std::string(token.value) +
                                    " is no number; kept as written");
        return;
    }
    field = v;
    // Below 2^40 a double is finer than half a thousandth: three decimals written come back as
    // the same number, and only more of them can be lost.
    if (v < 1099511627776.0 && v > -1099511627776.0 && AtMostThreeDecimals(token.value)) return;
    char buf[kbase_gaeb_internal::kFixed3Room];
    const char* end = kbase_gaeb_internal::FormatFixed3(v, buf);
    double back = 0;
    if (std::from_chars(buf, end, back).ec != std::errc() || back != v) {
        reader.keepAsShadow = true;
        reader.Note(token.line, "[" + token.name + "]" + std::string(token.value) +
                                    " has more than three decimals; kept as written");
    }
}

bool IsValue(const Token& t, const char* key) {
    return t.kind == Kind::kValue && NameIs(t.name, key);
}
bool IsBlock(const Token& t, const char* name) {
    return t.kind == Kind::kBegin && NameIs(t.name, name);
}

}  // namespace

// ---- the block loop -----------------------------------------------------------------------------

int UtGAEBObject::ReadToken(Reader&, Token&) {
    return 0;
}

void UtGAEBObject::FinishLoad(Reader&) {}

int UtGAEBObject::LoadBlock(Reader& reader, const Token& begin) {
    reader.Enter();
    if (reader.Depth() > kbase_gaeb_internal::kMaxDepth) {
        return reader.Fail(
            kGAEBTooLarge, begin.line,
            "blocks nested deeper than " + std::to_string(kbase_gaeb_internal::kMaxDepth));
    }
    seen_ = 0;
    ResetKept();  // what an earlier load kept
    BeginLoad();
    int last = 0;
    Token t;
    for (;;) {
        if (!reader.Next(t)) return reader.Status();
        if (t.kind == Kind::kEof) {
            return reader.Fail(kGAEBMalformed, begin.line, "#begin[" + begin.name + "] never ends");
        }
        if (t.kind == Kind::kEnd) {
            if (!NameIs(t.name, begin.name.c_str())) {
                return reader.Fail(kGAEBMalformed, t.line,
                                   "#end[" + t.name + "] does not close #begin[" + begin.name +
                                       "] of line " + std::to_string(begin.line));
            }
            break;
        }
        reader.lastSlot = last;
        reader.keepAsShadow = false;
        duplicate_ = 0;
        const int slot = ReadToken(reader, t);
        if (reader.Status() != 0) return reader.Status();
        if (slot > 0) {
            if (reader.keepAsShadow && t.kind == Kind::kValue) {
                // In the slot's own place, so that a second value of the slot stays behind it.
                Keep(slot, slot, t.Raw());
                SetAbsent(slot, true);
                reader.CountKept();
            }
            last = slot;
            continue;
        }
        std::string raw;
        if (t.kind == Kind::kBegin) {
            if (!reader.CaptureBlock(t, raw)) return reader.Status();
        } else {
            t.AppendRaw(raw);
        }
        // A second value or block of a slot goes after that slot's own, so that reading the stored
        // form takes the same one as the first.
        Keep(duplicate_ > last ? duplicate_ : last, 0, std::move(raw));
        reader.CountKept();
    }
    reader.Leave();
    reader.keepAsShadow = false;  // this block's last value must not mark the block in its parent
    // A line the file did not have stays out when this object is stored again.
    const int fixed = GetFixedSlotCount();
    for (int slot = 1; slot <= fixed && slot < 32; ++slot) {
        if ((seen_ & (1u << slot)) == 0) SetAbsent(slot, true);
    }
    FinishLoad(reader);
    if (t.value.find_first_not_of(" \t") != std::string::npos &&
        dynamic_cast<UtGAEB*>(this) == nullptr) {
        // Text after an inner end tag has no place in the model; it goes back behind the tag.
        Keep(kAfterEnd, 0, std::string(t.value));
        reader.CountKept();
    }
    return reader.Status();
}

int UtGAEBObject::Load(FILE* file) {
    return Load(file, nullptr);
}

int UtGAEBObject::Load(FILE* file, UtGAEBLoadReport* report) {
    if (report != nullptr) *report = UtGAEBLoadReport();
    if (file == nullptr) {
        if (report != nullptr) {
            report->status = kGAEBNullFile;
            report->message = "no file";
        }
        return kGAEBNullFile;
    }
    const bool root = dynamic_cast<UtGAEB*>(this) != nullptr;
    Reader reader(file, report);
    Token t;
    std::string before;
    reader.SetPlain(true);
    for (;;) {
        if (!reader.Next(t)) break;
        if (t.kind == Kind::kEof) {
            reader.Fail(kGAEBNotFound, reader.Lines(),
                        std::string("no #begin[") + GetBlockName() + "]");
            break;
        }
        if (IsBlock(t, GetBlockName())) break;
        if (root) t.AppendRaw(before);
    }
    reader.SetPlain(false);
    int status = reader.Status();
    if (status == kGAEBOk) {
        status = LoadBlock(reader, t);
        if (!before.empty()) {
            Keep(-1, 0, std::move(before));
            reader.CountKept();
        }
    }
    if (status == kGAEBOk && root) {
        // The trailer some writers put after the root's end tag ("1272|3096"), kept to the byte.
        std::string trailer = reader.LastEndTail();
        if (reader.EndTerminated()) {
            trailer.push_back('\n');
            if (!reader.ReadRest(trailer)) status = reader.Status();
        }
        if (!trailer.empty()) {
            Keep(kAfterEnd, 0, std::move(trailer));
            reader.CountKept();
        }
    }
    if (report != nullptr) {
        report->lines = reader.Lines();
        report->keptItems = reader.KeptCount();
    }
    return status;
}

// ---- per class ----------------------------------------------------------------------------------

int UtGAEB::Load(FILE* file) {
    return UtGAEBObject::Load(file, nullptr);
}

int UtGAEB::ReadToken(Reader& reader, Token& t) {
    if (IsBlock(t, "GAEBInfo") && Fresh(kInfo)) {
        return info_.LoadBlock(reader, t) == 0 ? kInfo : -1;
    }
    if (IsBlock(t, "Vergabe") && Fresh(kVergabe)) {
        SetGAEBType(eGAEBTypeLV);
        return vergabe_->LoadBlock(reader, t) == 0 ? kVergabe : -1;
    }
    return 0;
}

void UtGAEB::FinishLoad(Reader&) {
    if ((seen_ & (1u << kVergabe)) == 0) SetGAEBType(eGAEBTypeInfo);
}

int UtGAEBInfo::ReadToken(Reader& reader, Token& t) {
    if (IsValue(t, "Version") && Fresh(kVersion)) {
        TakeText(version_, reader, t);
        return kVersion;
    }
    if (IsValue(t, "VersMon") && Fresh(kVersMon)) {
        TakeShort(versMon_, reader, t);
        return kVersMon;
    }
    if (IsValue(t, "VersJahr") && Fresh(kVersJahr)) {
        TakeShort(versJahr_, reader, t);
        return kVersJahr;
    }
    if (IsValue(t, "Datum") && Fresh(kDatum)) {
        char datum[kGAEBSizeDatum];
        TakeText(datum, reader, t);
        datum_.SetDatum(datum);
        return kDatum;
    }
    if (IsValue(t, "Zeichensatz") && Fresh(kZeichensatz)) {
        TakeText(zeichensatz_, reader, t);
        return kZeichensatz;
    }
    return 0;
}

int UtGAEBVergabe::ReadToken(Reader& reader, Token& t) {
    if (IsValue(t, "DP") && Fresh(kDP)) {
        TakeShort(dp_, reader, t);
        return kDP;
    }
    if (IsBlock(t, "LV") && Fresh(kLV)) return lv_.LoadBlock(reader, t) == 0 ? kLV : -1;
    return 0;
}

int UtGAEBLV::ReadToken(Reader& reader, Token& t) {
    if (IsBlock(t, "LVInfo") && Fresh(kLVInfo))
        return info_.LoadBlock(reader, t) == 0 ? kLVInfo : -1;
    if (t.kind != Kind::kBegin) return 0;
    UtGAEBLVEntity* e = entities_.AddFor(t.name);
    if (e == nullptr) return 0;
    return e->LoadBlock(reader, t) == 0 ? kEntities + entities_.Count() - 1 : -1;
}

int UtGAEBLVInfo::ReadToken(Reader& reader, Token& t) {
    if (IsValue(t, "Name") && Fresh(kName)) {
        TakeText(name_, reader, t);
        return kName;
    }
    if (IsValue(t, "Bez") && Fresh(kBez)) {
        TakeText(bez_, reader, t);
        return kBez;
    }
    if (IsValue(t, "KurzLang") && Fresh(kKurzLang)) {
        TakeShort(kurzLang_, reader, t);
        return kKurzLang;
    }
    if (IsBlock(t, "LVGlied")) {
        auto* g = new UtGAEBLVGlied;
        AddLVGlied(g);
        return g->LoadBlock(reader, t) == 0 ? kGlieder + GetLVGliedCount() - 1 : -1;
    }
    return 0;
}

int UtGAEBLVGlied::ReadToken(Reader& reader, Token& t) {
    if (IsValue(t, "Typ") && Fresh(kTyp)) {
        TakeText(typ_, reader, t);
        return kTyp;
    }
    if (IsValue(t, "Bez") && Fresh(kBez)) {
        TakeText(bez_, reader, t);
        bezCut_ = reader.keepAsShadow;
        // Kept in its place until the type is known: only a range level writes its "[Bez]".
        reader.keepAsShadow = true;
        return kBez;
    }
    if (IsValue(t, "Laenge") && Fresh(kLaenge)) {
        TakeShort(laenge_, reader, t);
        return kLaenge;
    }
    return 0;
}

void UtGAEBLVGlied::FinishLoad(Reader& reader) {
    if ((seen_ & (1u << kBez)) == 0 || bezCut_ || GetKeyType() != eGAEBLVKeyLVStufe) return;
    // A range level writes the line itself.
    auto& items = kept_->items;
    for (auto it = items.begin(); it != items.end(); ++it) {
        if (it->shadow == kBez) {
            items.erase(it);
            reader.UncountKept();
            break;
        }
    }
    SetAbsent(kBez, false);
}

int UtGAEBLVBereich::ReadToken(Reader& reader, Token& t) {
    if (IsValue(t, "OZ") && Fresh(kOZ)) {
        TakeText(oz_, reader, t);
        return kOZ;
    }
    if (IsValue(t, "Bez") && Fresh(kBez)) {
        TakeText(bez_, reader, t);
        return kBez;
    }
    if (t.kind != Kind::kBegin) return 0;
    UtGAEBLVEntity* e = entities_.AddFor(t.name);
    if (e == nullptr) return 0;
    return e->LoadBlock(reader, t) == 0 ? kEntities + entities_.Count() - 1 : -1;
}

void UtGAEBLVBereich::FinishLoad(Reader&) {
    // Some writers title a range by "[BEZTX]" instead of "[Bez]": the title is taken from it
    // while the line stays kept as written (and no "[Bez]" is added).
    if ((seen_ & (1u << kBez)) != 0 || kept_ == nullptr) return;
    for (const auto& item : kept_->items) {
        const std::string_view raw = item.raw;
        const size_t open = raw.find_first_not_of(" \t");
        if (open == std::string_view::npos || raw.compare(open, 7, "[BEZTX]") != 0) continue;
        const size_t end = raw.find("[end]", open);
        if (end == std::string_view::npos) continue;
        const std::string_view value = raw.substr(open + 7, end - open - 7);
        const size_t n = value.size() < sizeof bez_ - 1 ? value.size() : sizeof bez_ - 1;
        std::memcpy(bez_, value.data(), n);
        bez_[n] = '\0';
        return;
    }
}

int UtGAEBBeschreibung::ReadToken(Reader& reader, Token& t) {
    if (IsValue(t, "Langtext") && Fresh(kLangtext)) {
        langtext_.assign(t.value);
        return kLangtext;
    }
    if (IsValue(t, "Kurztext") && Fresh(kKurztext)) {
        if (t.value.size() < kGAEBSizeKurztext) {
            kurztext_.assign(t.value);
        } else {
            char cut[kGAEBSizeKurztext];
            TakeText(cut, reader, t);
            kurztext_ = cut;
        }
        return kKurztext;
    }
    return 0;
}

int UtGAEBPosition::ReadToken(Reader& reader, Token& t) {
    if (IsValue(t, "OZ") && Fresh(kOZ)) {
        TakeText(oz_, reader, t);
        return kOZ;
    }
    if (IsValue(t, "Menge") && Fresh(kMenge)) {
        TakeQuantity(menge_, reader, t);
        return kMenge;
    }
    if (IsValue(t, "ME") && Fresh(kME)) {
        TakeText(me_, reader, t);
        return kME;
    }
    if (IsBlock(t, "Beschreibung") && Fresh(kBeschreibung)) {
        return beschreibung_.LoadBlock(reader, t) == 0 ? kBeschreibung : -1;
    }
    return 0;
}

void UtGAEBPosition::FinishLoad(Reader&) {
    // A position without quantity, unit or description writes none: the flags say so, as they
    // would for a position built that way.
    if ((seen_ & (1u << kMenge)) == 0) mengeFlag_ = 0;
    if ((seen_ & (1u << kME)) == 0) meFlag_ = 0;
    if ((seen_ & (1u << kBeschreibung)) == 0) beschreibungFlag_ = 0;
    for (int slot : {kMenge, kME, kBeschreibung}) {
        if ((seen_ & (1u << slot)) == 0) SetAbsent(slot, false);
    }
}

// ---- the search helpers -------------------------------------------------------------------------

namespace {

// Reads one character; EOF at the end.
int Get(FILE* file) {
    return std::getc(file);
}

}  // namespace

int UtGAEBObject::FindInFile(FILE* file, const char* text) {
    if (file == nullptr || text == nullptr) return kGAEBNullFile;
    const size_t n = std::strlen(text);
    if (n == 0) return kGAEBOk;
    // A sliding match within each line (text holds no line feed in any use; one that does is
    // matched across lines as well), then the rest of the line is skipped.
    std::string window;
    for (;;) {
        const int c = Get(file);
        if (c == EOF) return std::ferror(file) ? kGAEBReadFailed : kGAEBNotFound;
        window.push_back(static_cast<char>(c));
        if (window.size() > n) window.erase(0, 1);
        if (window.size() == n && window == text) break;
    }
    for (int c = Get(file); c != EOF && c != '\n'; c = Get(file)) {
    }
    return kGAEBOk;
}

int UtGAEBObject::ReadFromFile(FILE* file, const char* key, char* out, size_t size) {
    if (file == nullptr || key == nullptr || out == nullptr || size == 0) return kGAEBNullFile;
    out[0] = '\0';
    const std::string tag = std::string("[") + key + "]";
    // The key is found by its text; the value runs to "[end]".
    std::string window;
    for (;;) {
        const int c = Get(file);
        if (c == EOF) return std::ferror(file) ? kGAEBReadFailed : kGAEBNotFound;
        window.push_back(static_cast<char>(c));
        if (window.size() > tag.size()) window.erase(0, 1);
        if (window == tag) break;
    }
    static const char kEnd[] = "[end]";
    size_t kept = 0, matched = 0;
    for (;;) {
        const int c = Get(file);
        if (c == EOF) return std::ferror(file) ? kGAEBReadFailed : kGAEBNotFound;
        if (c == '\r') continue;
        if (static_cast<char>(c) == kEnd[matched]) {
            if (++matched == 5) break;
            continue;
        }
        // Bytes that looked like the start of "[end]" belong to the value.
        for (size_t i = 0; i < matched; ++i) {
            if (kept + 1 < size) out[kept++] = kEnd[i];
        }
        matched = static_cast<char>(c) == kEnd[0] ? 1 : 0;
        if (matched == 0 && kept + 1 < size) out[kept++] = static_cast<char>(c);
    }
    out[kept] = '\0';
    return kGAEBOk;
}

int UtGAEBObject::ReadFromFile(FILE* file, const char* key, short& value) {
    char buf[64];
    const int status = ReadFromFile(file, key, buf, sizeof buf);
    if (status != kGAEBOk) return status;
    return kbase_gaeb_internal::ParseShort(buf, value) ? kGAEBOk : kGAEBMalformed;
}

int UtGAEBObject::ReadFromFile(FILE* file, const char* key, double& value) {
    char buf[128];
    const int status = ReadFromFile(file, key, buf, sizeof buf);
    if (status != kGAEBOk) return status;
    return kbase_gaeb_internal::ParseReal(buf, value) ? kGAEBOk : kGAEBMalformed;
}
