// Sweep scenarios of the application services (logging, callbacks, variables) and of GAEB bills;
// alloc_sweep_test.cpp runs them. Same rules as there: each operation runs in an armed window, its
// result is checked outside, and a run without a failure must give the full result.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include "alloc_sweep.h"
#include "basert/files.h"
#include "basert/memory.h"
#include "kbase/gaeb/UtGAEB.h"
#include "kbase/services/Callback.h"
#include "kbase/services/CallbackArgs.h"
#include "kbase/services/PrProtocol.h"
#include "kbase/services/UtCLogging.h"
#include "kbase/services/VaVars.h"
#include "kbase/text/UtCStringList.h"
#include "sweep_scenarios.h"

namespace {

using kbase_test::SweepPoint;
using kbase_test::Threw;
namespace fs = std::filesystem;

using kbase_test::kCp;
using kbase_test::kU8;
using kbase_test::Text;

// A folder of its own for one run's files, removed with everything in it.
class TempFolder {
  public:
    explicit TempFolder(const char* what)
        : path_(fs::temp_directory_path() /
                ("kbase_sweep_" + std::string(what) + "_" + std::to_string(getpid()))) {
        fs::remove_all(path_);
        fs::create_directory(path_);
    }
    ~TempFolder() { fs::remove_all(path_); }
    std::string File(const char* name) const { return (path_ / name).string(); }
    std::vector<std::string> Files() const {
        std::vector<std::string> out;
        for (const auto& e : fs::directory_iterator(path_)) out.push_back(e.path().string());
        return out;
    }

  private:
    fs::path path_;
};

std::string Contents(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

UtCString Utf8Path(const std::string& file) {
    return UtCString(file.c_str(), kU8, kU8);
}

}  // namespace

// Logging: records of three encodings kept in memory and dumped to a file, and a protocol file
// written by the plain writer.
void LogToFile(SweepPoint& p) {
    const TempFolder folder("log");
    UtCLogging log(Utf8Path(folder.File("log.txt")));
    const UtCString messages[] = {Text("Wand 1 gespeichert"),
                                  Text("Ma\xDF"
                                       "e gepr\xFC"
                                       "ft",
                                       kU8),
                                  Text("\xC4nderung verworfen", eUtEncodingTypeUtf16)};
    const UtCLogging::eLogLevel levels[] = {UtCLogging::eLogInfo, UtCLogging::eLogWarning,
                                            UtCLogging::eLogInfo};
    const char* levelTexts[] = {"INFO   ", "WARNING", "INFO   "};
    std::vector<std::string> kept;  // what each record must read after its time
    for (int i = 0; i < 3; ++i) {
        const long before = log.GetLogSize();
        const bool threw = Threw(p, [&] { log.LogOnly(messages[i], levels[i]); });
        // A record is added whole, or (std::bad_alloc) not at all.
        ASSERT_EQ(log.GetLogSize(), before + (threw ? 0 : 1)) << "n=" << p.n();
        if (!threw)
            kept.push_back(std::string(levelTexts[i]) + " ] " + messages[i].GetUtf8String(0));
    }
    std::vector<std::string> lines;
    for (long i = 0; i < log.GetLogSize(); ++i) {
        const std::string record = log.GetRecord(i).GetUtf8String(0);
        // "[ YYYY-MM-DD hh:mm:ss " and then the level and the message.
        ASSERT_GT(record.size(), 22u);
        EXPECT_EQ(record.substr(22), kept[static_cast<size_t>(i)]) << "n=" << p.n();
        lines.push_back(record);
    }
    bool dumped = false;
    const bool dumpThrew = Threw(p, [&] { dumped = log.DumpAndShow(messages[0], false); });
    EXPECT_EQ(log.GetLogSize(), static_cast<long>(kept.size()));  // a dump keeps the records
    std::vector<std::string> dumps;
    for (const std::string& f : folder.Files()) {
        if (f != folder.File("log.txt")) dumps.push_back(f);
    }
    if (dumped) {
        ASSERT_EQ(dumps.size(), 1u);
        std::string expected;
        for (const std::string& l : lines) expected += l + "\n";
        EXPECT_EQ(Contents(dumps[0]), expected);
    } else {
        EXPECT_TRUE(dumps.empty()) << "a failed dump leaves a partial file";
    }

    // The plain writer: every call answers 0, or -1 once a write failed; an allocation refused
    // inside one is std::bad_alloc. What the file holds is what the calls that answered 0 wrote,
    // as long as no call before them failed.
    UtLogging plain;
    const UtCString protocol = Utf8Path(folder.File("protocol.txt"));
    int opened = -1;
    bool plainFailed = Threw(p, [&] { opened = plain.Open(protocol); });
    std::string expected;
    bool whole = opened == 0;
    const RPT3 point{1.5, -2.25, 0.125};
    const auto write = [&](auto call, const std::string& text) {
        int rc = -1;
        if (Threw(p, [&] { rc = call(); }) || rc != 0) {
            whole = false;
            plainFailed = true;
        } else if (whole) {
            expected += text;
        }
    };
    if (opened == 0) {
        write([&] { return plain.Str(messages[1]); }, messages[1].GetUtf8String(0));
        write([&] { return plain.Str(" "); }, " ");
        write([&] { return plain.Int(-42); }, "-42");
        write([&] { return plain.Real(2.5, 2); }, "2.50");
        write([&] { return plain.Point3D(point, 3); }, "(1.500, -2.250, 0.125)");
        write([&] { return plain.Ln(); }, "\n");
        int closed = -1;
        if (Threw(p, [&] { closed = plain.Close(); }) || closed != 0) whole = false;
        if (whole) {
            EXPECT_EQ(Contents(protocol.GetUtf8String(0)), expected);
        }
    }
    if (!p.Failed()) {
        EXPECT_EQ(log.GetLogSize(), 3);
        EXPECT_FALSE(dumpThrew);
        EXPECT_TRUE(dumped);
        EXPECT_FALSE(plainFailed);
        EXPECT_TRUE(whole);
    }
}

namespace {

struct Calls {
    int count[3] = {};
    int order[8] = {};
    int n = 0;
};
Calls* g_calls = nullptr;

void Note(void* user, CallbackArgs* args) {
    const int which = static_cast<int>(reinterpret_cast<intptr_t>(user));
    ++g_calls->count[which];
    if (g_calls->n < 8) g_calls->order[g_calls->n++] = which;
    if (args != nullptr) args->Handled(1);
}

bool Registered(const CallbackHandler& h, const Callback& cb) {
    bool inHandler = false;
    for (long i = 0; i < h.Count(); ++i) inHandler = inHandler || h[i] == &cb;
    const bool inCallback = cb.Handlers().IndexOf(&h) >= 0;
    EXPECT_EQ(inHandler, inCallback) << "a registration known to one side only";
    return inHandler;
}

}  // namespace

// Callbacks: three registered with a handler (and one with a second handler), arguments of every
// kind built, the handler fired, a registration undone, the second handler destroyed.
void RegisterAndFireCallbacks(SweepPoint& p) {
    Calls calls;
    g_calls = &calls;
    Callback cbs[3] = {{Note, reinterpret_cast<void*>(intptr_t{0})},
                       {Note, reinterpret_cast<void*>(intptr_t{1})},
                       {Note, reinterpret_cast<void*>(intptr_t{2})}};
    CallbackHandler handler;
    bool threw = false;
    std::vector<int> registered;
    for (int i = 0; i < 3; ++i) {
        threw |= Threw(p, [&] { handler.Add(&cbs[i]); });
        if (Registered(handler, cbs[i])) registered.push_back(i);
    }
    ASSERT_EQ(handler.Count(), static_cast<long>(registered.size()));
    auto other = std::make_unique<CallbackHandler>();
    threw |= Threw(p, [&] { other->Add(&cbs[0]); });
    const bool inOther = Registered(*other, cbs[0]);

    // Arguments: each parameter is added whole or not at all.
    CallbackArgs args(7);
    const UtCString names[] = {Text("Name"), Text("Anzahl"),
                               Text("Fl\xE4"
                                    "che"),
                               Text("Teile"), Text("Punkt")};
    const UtCString value = Text(
        "Au\xDF"
        "enwand",
        kU8);
    UtCStringList parts;
    parts.Add(Text("Ziegel")).Add(Text("M\xF6rtel"));
    const RPT3 point{1, 2, 3};
    std::vector<int> kinds;
    for (int k = 0; k < 6; ++k) {
        const long before = args.ParamCount();
        threw |= Threw(p, [&] {
            switch (k) {
                case 0:
                    args.AddStringParam(names[0], value);
                    break;
                case 1:
                    args.AddInt32Param(names[1], 12);
                    break;
                case 2:
                    args.AddRealParam(names[2], 7.5);
                    break;
                case 3:
                    args.AddStringListParam(names[3], parts);
                    break;
                case 4:
                    args.AddRPT3Param(names[4], point);
                    break;
                default:
                    args.AddErrTypeParam(3011);
                    break;
            }
        });
        ASSERT_LE(args.ParamCount(), before + 1);
        if (args.ParamCount() == before + 1) kinds.push_back(k);
    }
    for (size_t i = 0; i < kinds.size(); ++i) {
        const int k = kinds[i];
        CallbackArgsParam* param = args.GetParam(static_cast<long>(i));
        ASSERT_NE(param, nullptr);
        if (k < 5) {
            EXPECT_EQ(param->Name(), names[k]);
            EXPECT_EQ(args.GetParamByName(names[k]), param);
        }
        if (k == 0) {
            const auto* s = args.GetStringParamByName(names[0]);
            ASSERT_NE(s, nullptr);
            EXPECT_EQ(s->Value(), value);
        }
        if (k == 3) {
            const auto* l = args.GetStringListParamByName(names[3]);
            ASSERT_NE(l, nullptr);
            EXPECT_EQ(l->Value().CompareTo(parts), 0);
        }
        if (k == 5) {
            ASSERT_NE(args.GetErrTypeParam(), nullptr);
            EXPECT_EQ(args.GetErrTypeParam()->Value(), 3011);
        }
    }

    // Firing: every registered callback once, in registration order.
    threw |= Threw(p, [&] { handler.ExecuteAll(&args); });
    ASSERT_EQ(calls.n, static_cast<int>(registered.size()));
    for (size_t i = 0; i < registered.size(); ++i) EXPECT_EQ(calls.order[i], registered[i]);
    EXPECT_EQ(args.Handled(), registered.empty() ? 0 : 1);
    threw |= Threw(p, [&] { handler.Remove(&cbs[1]); });
    EXPECT_FALSE(Registered(handler, cbs[1]));
    threw |= Threw(p, [&] { other.reset(); });  // undoes its registration on cbs[0]
    EXPECT_EQ(cbs[0].Handlers().Count(), Registered(handler, cbs[0]) ? 1 : 0);
    calls = Calls{};
    threw |= Threw(p, [&] { handler.ExecuteLast(&args); });
    EXPECT_LE(calls.n, 1);
    threw |= Threw(p, [&] { args.Clear(); });
    EXPECT_EQ(args.ParamCount(), 0);
    EXPECT_EQ(args.Handled(), 0);
    if (!p.Failed()) {
        EXPECT_FALSE(threw);
        EXPECT_EQ(registered.size(), 3u);
        EXPECT_TRUE(inOther);
        EXPECT_EQ(kinds.size(), 6u);
        EXPECT_EQ(calls.n, 1);
        EXPECT_EQ(calls.order[0], 2);
    }
    g_calls = nullptr;
}

namespace {

// The text ReplaceAll makes of template with vars, computed where nothing fails.
std::string Filled(VaVars& vars, const std::string& text) {
    char buffer[256];
    std::snprintf(buffer, sizeof buffer, "%s", text.c_str());
    EXPECT_TRUE(vars.ReplaceAll(buffer, sizeof buffer));
    return buffer;
}

}  // namespace

// Variables: set with every type and a protocol attached, read, pushed and popped, and texts
// filled by both substitutions.
void SubstituteVariables(SweepPoint& p) {
    PrMemoryProtocol protocol;
    VaVars vars;
    vars.SetProtocol(&protocol);
    bool threw = false;
    struct Setting {
        const char* name;
        std::function<bool(VaVars&)> set;
        short type;
        const char* printed;
    };
    const Setting settings[] = {
        {"name", [](VaVars& v) { return v.Set("name", "Anna", "Empf\xE4nger"); }, eVaText, "Anna"},
        {"count", [](VaVars& v) { return v.Set("count", 3L); }, eVaLong, "3"},
        {"sum", [](VaVars& v) { return v.Set("sum", 12.5); }, eVaDouble, "12.500000"},
        {"flag", [](VaVars& v) { return v.Set("flag", true); }, eVaBool, "true"},
        {"greeting", [](VaVars& v) { return v.Set("greeting", "Hallo $name, willkommen"); },
         eVaText, "Hallo $name, willkommen"},
        {"KBASE_SWEEP_NOT_SET",
         [](VaVars& v) { return v.SetEnv("KBASE_SWEEP_NOT_SET", "Vorgabe aus dem Programm"); },
         eVaEnv, "Vorgabe aus dem Programm"},
    };
    for (const Setting& s : settings) {
        bool ok = false;
        threw |= Threw(p, [&] { ok = s.set(vars); });
        // Set, or (std::bad_alloc, false) left absent; never created without its value.
        const VaVariable* v = vars.Find(s.name);
        if (ok) {
            ASSERT_NE(v, nullptr);
        }
        if (v != nullptr) {
            EXPECT_EQ(v->Type(), s.type) << s.name << " n=" << p.n();
            EXPECT_EQ(v->Print(), s.printed) << s.name;
        }
    }
    char* got = nullptr;
    bool read = false;
    threw |= Threw(p, [&] { read = vars.Get("greeting", got); });
    if (read) {
        ASSERT_NE(got, nullptr);
        EXPECT_STREQ(got, "Hallo $name, willkommen");
    }
    UtFreeMemory(got);

    // Push, change and pop: the value afterwards is the one pushed, or the change when the pop
    // failed, never anything else.
    bool pushed = false, changed = false, popped = false;
    threw |= Threw(p, [&] { pushed = vars.Push("sum"); });
    threw |= Threw(p, [&] { changed = vars.Set("sum", 99.0); });
    threw |= Threw(p, [&] { popped = vars.Pop("sum"); });
    if (const VaVariable* sum = vars.Find("sum")) {
        const std::string now = sum->Print();
        EXPECT_TRUE(now == "12.500000" || now == "99.000000") << now;
        if (pushed && popped) {
            EXPECT_EQ(now, "12.500000");
        }
        if (!pushed && changed) {
            EXPECT_EQ(now, "99.000000");
        }
    }

    // Substitution in place and on a growing text: the full result, or a text on the way there
    // (each replacement is whole), which filling again completes.
    const std::string input = "Liebe $greeting, $count Posten zu $sum: $flag";
    char buffer[256];
    std::snprintf(buffer, sizeof buffer, "%s", input.c_str());
    bool replaced = false;
    threw |= Threw(p, [&] { replaced = vars.ReplaceAll(buffer, sizeof buffer); });
    const std::string full = Filled(vars, input);
    EXPECT_EQ(Filled(vars, buffer), full);
    if (replaced) {
        EXPECT_EQ(std::string(buffer), full);
    }
    std::string grown = input;
    VaReplaceResult result = VaReplaceResult::kPassLimit;
    threw |= Threw(p, [&] { result = vars.ReplaceAllLimited(grown, 10, 1000); });
    EXPECT_NE(result, VaReplaceResult::kTooLong);
    EXPECT_EQ(Filled(vars, grown), full);
    if (result == VaReplaceResult::kDone) {
        EXPECT_EQ(grown, full);
    }
    vars.SetProtocol(nullptr);
    if (!p.Failed()) {
        EXPECT_FALSE(threw);
        EXPECT_EQ(full, "Liebe Hallo Anna, willkommen, 3 Posten zu 12.500000: true");
        EXPECT_NE(protocol.Contents().find("Variables: set '$name' to 'Anna'"), std::string::npos);
        EXPECT_NE(protocol.Contents().find("Variables: substitute '"), std::string::npos);
    }
}

namespace {

// The caller's texts, made before any allocation is refused: a string that gets no memory is
// empty by its own contract, and the bill would then rightly hold the empty text.
struct BillTexts {
    UtCString name = Text("Einfamilienhaus");
    UtCString bez = Text(
        "Rohbau S\xFC"
        "d",
        kU8);
    UtCString rangeBez = Text("Mauerarbeiten");
    UtCString shortTexts[2] = {Text("Au\xDF"
                                    "enwand"),
                               Text("Innenwand")};
    UtCString longText = Text("Mauerwerk aus Ziegeln,\nd = 36,5 cm");
};

// A small bill: two outline levels, a range with two positions (one with a long text) and a
// position outside it.
std::unique_ptr<UtGAEB> BuildBill(const BillTexts& texts) {
    auto bill = std::make_unique<UtGAEB>(eGAEBTypeLV);
    bill->GetInfoPtr()->GetDatumPtr()->SetDate(17, 5, 2024);
    UtGAEBVergabe* award = bill->GetVergabePtr();
    award->SetDP(83);
    UtGAEBLV* lv = award->GetLVPtr();
    UtGAEBLVInfo* info = lv->GetLVInfoPtr();
    EXPECT_EQ(info->SetName(texts.name), kGAEBOk);
    EXPECT_EQ(info->SetBez(texts.bez), kGAEBOk);
    for (const char* typ : {"LVStufe", "Position"}) {
        auto glied = std::make_unique<UtGAEBLVGlied>();
        glied->SetTyp(typ);
        glied->SetLaenge(typ[0] == 'L' ? 2 : 4);
        info->AddLVGlied(glied.release());
    }
    auto range = std::make_unique<UtGAEBLVBereich>();
    range->SetOZ("01");
    EXPECT_EQ(range->SetBez(texts.rangeBez), kGAEBOk);
    for (int i = 0; i < 2; ++i) {
        auto pos = std::make_unique<UtGAEBPosition>();
        pos->SetOZ(i == 0 ? "01.0010" : "01.0020");
        pos->SetMenge(12.5 * (i + 1));
        pos->SetME("m2");
        UtGAEBBeschreibung* text = pos->GetBeschreibungPtr();
        EXPECT_EQ(text->SetKurztext(texts.shortTexts[i]), kGAEBOk);
        if (i == 0) {
            EXPECT_EQ(text->SetLangtext(texts.longText), kGAEBOk);
        }
        range->AddLVEntity(pos.release());
    }
    lv->AddLVEntity(range.release());
    auto last = std::make_unique<UtGAEBPosition>();
    last->SetOZ("02.0010");
    last->SetMenge(1);
    last->SetME("psch");
    last->GetBeschreibungPtr()->SetKurztext("Baustelle r\xE4umen");
    lv->AddLVEntity(last.release());
    return bill;
}

int StoreTo(UtGAEB& bill, const std::string& file) {
    FILE* f = UtGAEB::Open(Utf8Path(file), 1);
    return f == nullptr ? kGAEBWriteFailed : bill.Store(f, 0);  // Store closes it
}

}  // namespace

// GAEB: a small bill built, stored to a file, loaded back and stored again, and a position found
// in the file.
void StoreAndLoadBill(SweepPoint& p) {
    const TempFolder folder("gaeb");
    const std::string reference = folder.File("reference.X83"), stored = folder.File("bill.X83"),
                      again = folder.File("again.X83");
    const BillTexts texts;
    ASSERT_EQ(StoreTo(*BuildBill(texts), reference), kGAEBOk);
    const std::string expected = Contents(reference);

    std::unique_ptr<UtGAEB> bill;
    bool threw = Threw(p, [&] { bill = BuildBill(texts); });
    int storeStatus = -1;
    if (bill != nullptr) {
        threw |= Threw(p, [&] { storeStatus = StoreTo(*bill, stored); });
        // Stored whole, or refused with its status or std::bad_alloc.
        if (storeStatus == kGAEBOk) {
            EXPECT_EQ(Contents(stored), expected);
        }
    }
    // Loading the reference: the tree read is the bill (stored again, the same bytes), or an
    // error status or std::bad_alloc with a tree that can still be stored and destroyed.
    UtGAEB loaded(eGAEBTypeInfo);
    int loadStatus = -1;
    FILE* in = UtGAEB::Open(Utf8Path(reference), 0);
    ASSERT_NE(in, nullptr);
    threw |= Threw(p, [&] { loadStatus = loaded.Load(in); });
    UtFileClose(in);
    const int againStatus = StoreTo(loaded, again);
    EXPECT_EQ(againStatus, kGAEBOk);
    if (loadStatus == kGAEBOk) {
        EXPECT_EQ(Contents(again), expected);
    }
    int found = -1;
    in = UtGAEB::Open(Utf8Path(reference), 0);
    ASSERT_NE(in, nullptr);
    const bool findThrew =
        Threw(p, [&] { found = UtGAEBObject::FindInFile(in, "[OZ]01.0020[end]"); });
    threw |= findThrew;
    UtFileClose(in);
    EXPECT_TRUE(findThrew || found == kGAEBOk || found == kGAEBReadFailed) << found;
    if (!p.Failed()) {
        EXPECT_FALSE(threw);
        EXPECT_EQ(storeStatus, kGAEBOk);
        EXPECT_EQ(loadStatus, kGAEBOk);
        EXPECT_EQ(found, kGAEBOk);
    }
}
