// The gaeb jobs: load, then show, csv, copy or check.
#include "gaeb_jobs.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>
#include <ostream>
#include <sstream>

#include "basert/files.h"
#include "csv_output.h"
#include "io.h"
#include "kbase/gaeb/UtGAEB.h"

namespace kbase_tool {

const char* const kBillColumns[7] = {"OZ",    "Bereich", "Bereichstitel", "Kurztext", "Langtext",
                                     "Menge", "ME"};

namespace {

constexpr auto kBillCodePage = eUtEncodingTypeAnsi1252;

std::string Utf8(const char* text) {
    if (text == nullptr || *text == '\0') return std::string();
    return UtCString(text, kBillCodePage, eUtEncodingTypeUtf8).GetUtf8String();
}

std::string Quantity(double v) {
    char buf[400];
    const auto r = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::fixed, 3);
    return r.ec == std::errc() ? std::string(buf, r.ptr) : std::string("0.000");
}

struct Job {
    const GaebOptions& o;
    std::ostream& out;
    std::ostream& err;
    std::string who;
    UtGAEB bill{eGAEBTypeInfo};
    UtGAEBLoadReport report;

    int Fail(int code, const std::string& message) {
        err << who << ": " << message << "\n";
        return code;
    }
};

// Reads the whole bill. The program's checks of the input (a folder, a closed standard input) come
// first.
int LoadBill(Job& job) {
    {
        InputFile check;
        if (const int rc = check.Open(job.o.input, job.who, job.err); rc != kExitOk) return rc;
    }
    const bool standard = job.o.input == "-";
    FILE* f = standard ? stdin : UtFileOpen(job.o.input.c_str(), "rb");
    if (f == nullptr)
        return job.Fail(kExitIo, "cannot open '" + job.o.input + "': " + std::strerror(errno));
    const int status = job.bill.Load(f, &job.report);
    if (!standard) UtFileClose(f);
    const std::string name = standard ? std::string("standard input") : "'" + job.o.input + "'";
    if (status == kGAEBReadFailed) return job.Fail(kExitIo, "cannot read " + name);
    if (status != kGAEBOk) return job.Fail(kExitContent, name + ": " + job.report.message);
    return kExitOk;
}

// ---- walking the bill -----------------------------------------------------------------------

template <class Visit>
void Walk(UtGAEBLVEntity* e, const UtGAEBLVBereich* parent, int depth, Visit& visit) {
    visit(e, parent, depth);
    if (e->GetLVEntityType() != eGAEBLVEntityBereich) return;
    auto* r = static_cast<UtGAEBLVBereich*>(e);
    for (int i = 0; i < r->GetLVEntityCount(); ++i) Walk(r->GetLVEntityPtr(i), r, depth + 1, visit);
}

template <class Visit>
void WalkBill(UtGAEB& bill, Visit visit) {
    if (bill.GetVergabePtr() == nullptr) return;
    UtGAEBLV* lv = bill.GetVergabePtr()->GetLVPtr();
    for (int i = 0; i < lv->GetLVEntityCount(); ++i) Walk(lv->GetLVEntityPtr(i), nullptr, 0, visit);
}

int CountPositions(UtGAEBLVEntity* e) {
    int n = 0;
    auto count = [&n](UtGAEBLVEntity* x, const UtGAEBLVBereich*, int) {
        if (x->GetLVEntityType() == eGAEBLVEntityPosition) ++n;
    };
    Walk(e, nullptr, 0, count);
    return n;
}

struct Totals {
    int positions = 0, ranges = 0;
};

Totals CountBill(UtGAEB& bill) {
    Totals t;
    WalkBill(bill, [&t](UtGAEBLVEntity* e, const UtGAEBLVBereich*, int) {
        (e->GetLVEntityType() == eGAEBLVEntityPosition ? t.positions : t.ranges)++;
    });
    return t;
}

// ---- the jobs -------------------------------------------------------------------------------

int Show(Job& job) {
    const Totals t = CountBill(job.bill);
    std::ostream& out = job.out;
    if (job.bill.GetVergabePtr() != nullptr) {
        UtGAEBLVInfo* info = job.bill.GetVergabePtr()->GetLVPtr()->GetLVInfoPtr();
        out << "Bill " << Utf8(info->GetName());
        if (*info->GetBez() != '\0') out << " - " << Utf8(info->GetBez());
        out << ": ";
    }
    out << t.positions << " position" << (t.positions == 1 ? "" : "s") << " in " << t.ranges
        << " range" << (t.ranges == 1 ? "" : "s") << "\n";
    WalkBill(job.bill, [&out](UtGAEBLVEntity* e, const UtGAEBLVBereich*, int depth) {
        out << std::string(static_cast<size_t>(2 * depth), ' ');
        if (e->GetLVEntityType() == eGAEBLVEntityBereich) {
            auto* r = static_cast<UtGAEBLVBereich*>(e);
            const int n = CountPositions(r);
            out << Utf8(r->GetOZ()) << "  " << Utf8(r->GetBez()) << "  (" << n << " position"
                << (n == 1 ? "" : "s") << ")\n";
            return;
        }
        auto* p = static_cast<UtGAEBPosition*>(e);
        out << Utf8(p->GetOZ()) << "  " << Utf8(p->GetBeschreibungPtr()->GetKurztext());
        if (p->GetMengeFlag() != 0) out << "  " << Quantity(p->GetMenge());
        if (p->GetMEFlag() != 0 && *p->GetME() != '\0') out << " " << Utf8(p->GetME());
        out << "\n";
    });
    out.flush();
    return out ? kExitOk : job.Fail(kExitIo, "cannot write standard output");
}

// Ranges as rows of their own (OZ empty), positions with the range they are in, so that
// `kbase boq` builds the same bill from it.
void WriteCsvRows(Job& job, CsvOut& csv) {
    for (const char* c : kBillColumns) csv.Field(c);
    csv.EndRow();
    WalkBill(job.bill, [&csv](UtGAEBLVEntity* e, const UtGAEBLVBereich* parent, int) {
        if (e->GetLVEntityType() == eGAEBLVEntityBereich) {
            auto* r = static_cast<UtGAEBLVBereich*>(e);
            for (const std::string& f :
                 {std::string(), Utf8(r->GetOZ()), Utf8(r->GetBez()), std::string(), std::string(),
                  std::string(), std::string()}) {
                csv.Field(f);
            }
            csv.EndRow();
            return;
        }
        auto* p = static_cast<UtGAEBPosition*>(e);
        const UtGAEBBeschreibung* b = p->GetBeschreibungPtr();
        csv.Field(Utf8(p->GetOZ()));
        csv.Field(parent != nullptr ? Utf8(parent->GetOZ()) : std::string());
        csv.Field("");
        csv.Field(Utf8(b->GetKurztext()));
        csv.Field(Utf8(b->GetLangtext()));
        csv.Field(p->GetMengeFlag() != 0 ? Quantity(p->GetMenge()) : std::string());
        csv.Field(Utf8(p->GetME()));
        csv.EndRow();
    });
}

int Csv(Job& job) {
    OutputFile file;
    if (const int rc = file.Open(job.o.output, job.who, job.err, job.out); rc != kExitOk) return rc;
    std::ostringstream text;
    CsvOut csv(text, ',');
    WriteCsvRows(job, csv);
    if (!csv.Flush()) return job.Fail(kExitIo, "out of memory");
    const std::string s = text.str();
    if (!file.Write(s.data(), s.size()) || !file.Commit()) return kExitIo;
    return kExitOk;
}

int Check(Job& job) {
    const Totals t = CountBill(job.bill);
    const std::string name =
        job.o.input == "-" ? std::string("standard input") : "'" + job.o.input + "'";
    job.out << name << ": " << job.report.lines << " lines, " << t.positions << " positions, "
            << t.ranges << " ranges, " << job.report.keptItems
            << " blocks and lines kept as written\n";
    for (const std::string& note : job.report.notes) job.out << "  " << note << "\n";
    job.out.flush();
    return job.out ? kExitOk : job.Fail(kExitIo, "cannot write standard output");
}

}  // namespace

int WriteBill(UtGAEB& bill, const std::string& path, const std::string& who, std::ostream& out,
              std::ostream& err) {
    OutputFile file;
    if (const int rc = file.Open(path, who, err, out); rc != kExitOk) return rc;
    // The library stores into a FILE; a temporary one takes it, then the output file gets it whole.
    FILE* tmp = std::tmpfile();
    if (tmp == nullptr) {
        err << who << ": cannot make a temporary file: " << std::strerror(errno) << "\n";
        return kExitIo;
    }
    bill.SetFlag(0);  // closed here
    if (bill.Store(tmp, 0) != kGAEBOk || std::fseek(tmp, 0, SEEK_SET) != 0) {
        std::fclose(tmp);
        err << who << ": cannot write a temporary file: " << std::strerror(errno) << "\n";
        return kExitIo;
    }
    std::vector<char> buf(size_t{1} << 16);
    bool ok = true;
    for (size_t n; ok && (n = std::fread(buf.data(), 1, buf.size(), tmp)) > 0;)
        ok = file.Write(buf.data(), n);
    const bool readOk = !std::ferror(tmp);
    std::fclose(tmp);
    if (!readOk) {
        err << who << ": cannot read a temporary file\n";
        return kExitIo;
    }
    return ok && file.Commit() ? kExitOk : kExitIo;
}

int Gaeb(const GaebOptions& options, std::ostream& out, std::ostream& err) {
    Job job{options, out, err, "kbase gaeb " + options.action};
    if (const int rc = LoadBill(job); rc != kExitOk) return rc;
    if (options.action == "show") return Show(job);
    if (options.action == "csv") return Csv(job);
    if (options.action == "check") return Check(job);
    if (options.action == "copy") {
        for (const std::string& note : job.report.notes) err << job.who << ": " << note << "\n";
        return WriteBill(job.bill, options.output, job.who, out, err);
    }
    return job.Fail(kExitUsage, "unknown action '" + options.action + "'");
}

}  // namespace kbase_tool
