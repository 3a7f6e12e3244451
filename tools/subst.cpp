#include "subst.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <new>

#include "kbase/services/VaVars.h"

namespace kbase_tool {

namespace {

const char* const kWho = "kbase subst";

// Protocol lines into an output file of the program, so that it too is replaced only on success.
class OutputProtocol : public PrProtocol {
  public:
    explicit OutputProtocol(OutputFile& file) : file_(file) {}
    void Text(const char* text) override {
        if (text != nullptr) ok_ = file_.Write(text, std::strlen(text)) && ok_;
    }
    void Char(char c) override { ok_ = file_.Write(&c, 1) && ok_; }
    void Number(long value) override { Text(std::to_string(value).c_str()); }
    void EndLine() override { Char('\n'); }
    bool ok() const { return ok_; }

  private:
    OutputFile& file_;
    bool ok_ = true;
};

bool IsLong(const std::string& v, long& out) {
    if (v.empty() || v.size() > 11) return false;
    size_t i = (v[0] == '-' || v[0] == '+') ? 1 : 0;
    if (i == v.size()) return false;
    for (size_t j = i; j < v.size(); ++j) {
        if (v[j] < '0' || v[j] > '9') return false;
    }
    const long long n = std::strtoll(v.c_str(), nullptr, 10);
    if (n < -2147483648LL || n > 2147483647LL) return false;
    out = static_cast<long>(n);
    return true;
}

bool IsReal(const std::string& v, double& out) {
    if (v.empty() || v.find_first_of(".eE") == std::string::npos) return false;
    if (v.find_first_not_of("0123456789+-.eE") != std::string::npos)
        return false;  // no inf, nan, hex
    char* end = nullptr;
    errno = 0;
    const double d = std::strtod(v.c_str(), &end);
    if (end != v.c_str() + v.size() || errno == ERANGE || !std::isfinite(d)) return false;
    out = d;
    return true;
}

// Sets one --var by the form of its value; false when the variable has another type already.
bool SetTyped(VaVars& vars, const std::string& name, const std::string& value) {
    long l = 0;
    double d = 0;
    if (value == "true" || value == "false") return vars.Set(name.c_str(), value == "true");
    if (IsLong(value, l)) return vars.Set(name.c_str(), l);
    if (IsReal(value, d)) return vars.Set(name.c_str(), d);
    return vars.Set(name.c_str(), value.c_str());
}

int DefineVariables(const SubstOptions& options, VaVars& vars, std::ostream& err) {
    for (const SubstDefinition& def : options.definitions) {
        const char* option = def.environment ? "--env" : "--var";
        const size_t eq = def.text.find('=');
        const std::string name = def.text.substr(0, eq);
        if (eq == std::string::npos || name.empty() ||
            name.find_first_of("\n$") != std::string::npos) {
            err << kWho << ": " << option << " '" << def.text
                << "': give NAME=VALUE with a non-empty NAME without '$' or line breaks\n";
            return kExitUsage;
        }
        const std::string value = def.text.substr(eq + 1);
        const bool ok = def.environment ? vars.SetEnv(name.c_str(), value.c_str())
                                        : SetTyped(vars, name, value);
        if (!ok) {
            err << kWho << ": " << option << " '" << def.text << "': '" << name
                << "' was given before with a value of another type\n";
            return kExitUsage;
        }
    }
    return kExitOk;
}

// Streams the template through, line by line.
class Filler {
  public:
    Filler(const SubstOptions& options, VaVars& vars, InputFile& in, OutputFile& out,
           std::ostream& err)
        : options_(options), vars_(vars), in_(in), out_(out), err_(err) {}

    int Run() {
        std::string pending;  // the unfinished line of the blocks read so far
        std::string block(static_cast<size_t>(options_.blockSize), '\0');
        for (;;) {
            const int64_t n = in_.Read(block.data(), options_.blockSize);
            if (n < 0) return kExitIo;
            if (n == 0) break;
            int rc = Lines(pending, block.data(), static_cast<size_t>(n));
            if (rc != kExitOk) return rc;
        }
        if (!pending.empty()) {
            const int rc = FillLine(pending, false);
            if (rc != kExitOk) return rc;
        }
        return kExitOk;
    }

  private:
    // Handles the complete lines of data: runs without '$' are written as they are.
    int Lines(std::string& pending, const char* data, size_t n) {
        size_t start = 0;
        while (start < n) {
            const char* nl = static_cast<const char*>(std::memchr(data + start, '\n', n - start));
            if (nl == nullptr) break;
            const size_t end = static_cast<size_t>(nl - data) + 1;
            if (pending.empty() && std::memchr(data + start, '$', end - start) == nullptr) {
                // A run of plain lines up to the next line with a key.
                size_t runEnd = end;
                ++line_;
                while (runEnd < n) {
                    const char* next =
                        static_cast<const char*>(std::memchr(data + runEnd, '\n', n - runEnd));
                    if (next == nullptr) break;
                    const size_t e = static_cast<size_t>(next - data) + 1;
                    if (std::memchr(data + runEnd, '$', e - runEnd) != nullptr) break;
                    runEnd = e;
                    ++line_;
                }
                if (!out_.Write(data + start, runEnd - start)) return kExitIo;
                start = runEnd;
                continue;
            }
            pending.append(data + start, end - start - 1);
            const int rc = FillLine(pending, true);
            if (rc != kExitOk) return rc;
            pending.clear();
            start = end;
        }
        pending.append(data + start, n - start);
        if (static_cast<int64_t>(pending.size()) > kMaxLineBytes) {
            err_ << kWho << ": line " << line_ + 1 << " is longer than " << (kMaxLineBytes >> 20)
                 << " MiB\n";
            return kExitContent;
        }
        return kExitOk;
    }

    int FillLine(std::string& text, bool newline) {
        ++line_;
        std::string culprit;
        switch (vars_.ReplaceAllLimited(text, options_.maxPasses,
                                        static_cast<size_t>(kMaxLineBytes), &culprit)) {
            case VaReplaceResult::kPassLimit:
                err_ << kWho << ": line " << line_ << ": '$" << culprit
                     << "' is still replaced after " << options_.maxPasses
                     << " passes; does its value refer to itself? (--max-passes sets the limit)\n";
                return kExitContent;
            case VaReplaceResult::kTooLong:
                err_ << kWho << ": line " << line_ << ": replacing '$" << culprit
                     << "' makes it longer than " << (kMaxLineBytes >> 20)
                     << " MiB; does its value refer to itself?\n";
                return kExitContent;
            case VaReplaceResult::kDone:
                break;
        }
        if (newline) text += '\n';
        return out_.Write(text.data(), text.size()) ? kExitOk : kExitIo;
    }

    const SubstOptions& options_;
    VaVars& vars_;
    InputFile& in_;
    OutputFile& out_;
    std::ostream& err_;
    int64_t line_ = 0;
};

int Run(const SubstOptions& options, InputFile& in, OutputFile& out, std::ostream& err) {
    if (options.maxPasses < 1 || options.blockSize < 1) {
        err << kWho << ": --max-passes must be at least 1\n";
        return kExitUsage;
    }
    VaVars vars;
    OutputFile protocolFile;
    OutputProtocol protocol(protocolFile);
    if (!options.protocol.empty()) {
        const int rc = protocolFile.Open(options.protocol, kWho, err);
        if (rc != kExitOk) return rc;
        vars.SetProtocol(&protocol);
    }
    VaSetProtocolSubstitutions(options.protocolSubstitutions);
    int rc = DefineVariables(options, vars, err);
    if (rc != kExitOk) return rc;
    rc = Filler(options, vars, in, out, err).Run();
    if (rc != kExitOk) return rc;
    if (!options.protocol.empty() && (!protocol.ok() || !protocolFile.Commit())) return kExitIo;
    return out.Commit() ? kExitOk : kExitIo;
}

}  // namespace

int Subst(const SubstOptions& options, std::ostream& err) {
    try {
        InputFile in;
        OutputFile out;
        int rc = in.Open(options.input, kWho, err);
        if (rc == kExitOk) rc = out.Open(options.output, kWho, err);
        return rc == kExitOk ? Run(options, in, out, err) : rc;
    } catch (const std::bad_alloc&) {
        err << kWho << ": out of memory\n";
        return kExitIo;
    }
}

int Subst(const SubstOptions& options, std::istream& is, std::ostream& os, std::ostream& err) {
    try {
        InputFile in;
        OutputFile out;
        int rc = in.Open(options.input, kWho, err, is);
        if (rc == kExitOk) rc = out.Open(options.output, kWho, err, os);
        return rc == kExitOk ? Run(options, in, out, err) : rc;
    } catch (const std::bad_alloc&) {
        err << kWho << ": out of memory\n";
        return kExitIo;
    }
}

}  // namespace kbase_tool
