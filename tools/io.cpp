#include "io.h"

#include <cerrno>
#include <cstring>
#include <istream>
#include <ostream>
#include <random>
#include <system_error>

#include "basert/fileio.h"
#include "basert/files.h"

namespace kbase_tool {

namespace fs = std::filesystem;

const char* const kExitCodeHelp =
    "Exit codes:\n"
    "  0  done\n"
    "  1  a file could not be read or written, or memory ran out\n"
    "  2  usage: bad or missing arguments, an unknown code page\n"
    "  3  content: text that cannot be converted, malformed input\n";

namespace {

std::string Quoted(const std::string& path) {
    return "'" + path + "'";
}

// Paths are UTF-8 in the program; std::filesystem would read a char string in the ANSI code page
// on Windows.
fs::path PathOf(const std::string& utf8) { return fs::path(std::u8string(utf8.begin(), utf8.end())); }
std::string Utf8Of(const fs::path& p) {
    const std::u8string u = p.u8string();
    return std::string(u.begin(), u.end());
}

// The file a chain of symbolic links ends in (which need not exist yet), so that the output
// replaces that file and the links stay links.
fs::path ResolveLinks(fs::path p, std::error_code& ec) {
    for (int hops = 0; hops < 40; ++hops) {
        const fs::file_status st = fs::symlink_status(p, ec);
        if (st.type() == fs::file_type::not_found) {
            ec.clear();
            return p;
        }
        if (ec) return {};
        if (!fs::is_symlink(st)) return p;
        const fs::path link = fs::read_symlink(p, ec);
        if (ec) return {};
        p = link.is_absolute() ? link : p.parent_path() / link;
    }
    ec = std::make_error_code(std::errc::too_many_symbolic_link_levels);
    return {};
}

}  // namespace

// ---- InputFile --------------------------------------------------------------------------------

InputFile::~InputFile() {
    if (owned_) UtFileClose(file_);
}

int InputFile::Open(const std::string& path, const std::string& who, std::ostream& err) {
    who_ = who;
    err_ = &err;
    if (path != "-") return OpenPath(path);
    name_ = "standard input";
    switch (UtFileKind(stdin)) {
        case kUtFileClosed:
            err << who << ": standard input is closed\n";
            return kExitIo;
        case kUtFileDirectory:
            err << who << ": standard input is a directory\n";
            return kExitIo;
        default:
            UtFileSetBinary(stdin);
            file_ = stdin;
            return kExitOk;
    }
}

int InputFile::Open(const std::string& path, const std::string& who, std::ostream& err,
                    std::istream& in) {
    who_ = who;
    err_ = &err;
    if (path != "-") return OpenPath(path);
    name_ = "standard input";
    stream_ = &in;
    return kExitOk;
}

int InputFile::OpenPath(const std::string& path) {
    if (path.empty()) {
        *err_ << who_ << ": the input path is empty\n";
        return kExitUsage;
    }
    name_ = Quoted(path);
    file_ = UtFileOpen(path.c_str(), "rb");
    if (file_ == nullptr) {
        const int error = errno;
        std::error_code ec;
        if (fs::is_directory(PathOf(path), ec)) {  // Windows refuses to open a folder at all
            *err_ << who_ << ": cannot read " << name_ << ": it is a directory\n";
        } else {
            *err_ << who_ << ": cannot open " << name_ << ": " << std::strerror(error) << "\n";
        }
        return kExitIo;
    }
    owned_ = true;
    // Some systems open a folder for reading and only the first read fails; say what it is.
    if (UtFileKind(file_) == kUtFileDirectory) {
        *err_ << who_ << ": cannot read " << name_ << ": it is a directory\n";
        return kExitIo;
    }
    return kExitOk;
}

int64_t InputFile::Read(char* buf, int64_t n) {
    if (stream_ != nullptr) {
        stream_->read(buf, n);
        if (stream_->bad()) {
            *err_ << who_ << ": cannot read " << name_ << "\n";
            return -1;
        }
        return stream_->gcount();
    }
    if (file_ == nullptr) return -1;
    const size_t got = std::fread(buf, 1, static_cast<size_t>(n), file_);
    if (got < static_cast<size_t>(n) && std::ferror(file_)) {
        *err_ << who_ << ": cannot read " << name_ << ": " << std::strerror(errno) << "\n";
        return -1;
    }
    return static_cast<int64_t>(got);
}

// ---- OutputFile -------------------------------------------------------------------------------

OutputFile::~OutputFile() {
    if (kind_ == Kind::kTemporary) {
        if (file_ != nullptr) UtFileClose(file_);
        std::error_code ec;
        fs::remove(temporary_, ec);
    } else if (kind_ == Kind::kDirect && file_ != nullptr) {
        UtFileClose(file_);
    }
}

int OutputFile::Fail(const std::string& what, int error) {
    *err_ << who_ << ": " << what << " " << name_ << ": " << std::strerror(error) << "\n";
    failed_ = true;
    return kExitIo;
}

int OutputFile::Open(const std::string& path, const std::string& who, std::ostream& err) {
    who_ = who;
    err_ = &err;
    if (path != "-") return OpenPath(path);
    name_ = "standard output";
    if (UtFileKind(stdout) == kUtFileClosed) {
        err << who << ": standard output is closed\n";
        return kExitIo;
    }
    kind_ = Kind::kStandard;
    UtFileSetBinary(stdout);
    file_ = stdout;
    return kExitOk;
}

int OutputFile::Open(const std::string& path, const std::string& who, std::ostream& err,
                     std::ostream& out) {
    who_ = who;
    err_ = &err;
    if (path != "-") return OpenPath(path);
    name_ = "standard output";
    kind_ = Kind::kStream;
    stream_ = &out;
    return kExitOk;
}

int OutputFile::OpenPath(const std::string& path) {
    std::ostream& err = *err_;
    const std::string& who = who_;
    if (path.empty()) {
        err << who << ": the output path is empty\n";
        return kExitUsage;
    }
    name_ = Quoted(path);
    std::error_code ec;
    target_ = ResolveLinks(PathOf(path), ec);
    if (ec) return Fail("cannot resolve", ec.value());
    const fs::file_status st = fs::status(target_, ec);
    if (fs::is_directory(st)) {
        err << who << ": cannot write " << name_ << ": it is a directory\n";
        return kExitIo;
    }
    if (fs::exists(st) && !fs::is_regular_file(st)) {
        // A device or a pipe: renaming over it would replace the node itself.
        file_ = UtFileOpen(Utf8Of(target_).c_str(), "ab");
        if (file_ == nullptr) return Fail("cannot open", errno);
        kind_ = Kind::kDirect;
        return kExitOk;
    }
    keepPermissions_ = fs::exists(st);
    permissions_ = st.permissions();
    std::random_device seed;
    std::mt19937 random(seed());
    for (int attempt = 0; attempt < 16 && file_ == nullptr; ++attempt) {
        char suffix[32];
        std::snprintf(suffix, sizeof suffix, ".kbase-%08x.tmp", static_cast<unsigned>(random()));
        temporary_ = target_.parent_path() / PathOf("." + Utf8Of(target_.filename()) + suffix);
        // "x": never open a file that someone else made meanwhile.
        file_ = UtFileOpen(Utf8Of(temporary_).c_str(), "wbx");
        if (file_ == nullptr && errno != EEXIST) break;
    }
    if (file_ == nullptr) return Fail("cannot write", errno);
    kind_ = Kind::kTemporary;
    return kExitOk;
}

bool OutputFile::WriteFailed(int error) {
    if (kind_ == Kind::kStream) {
        *err_ << who_ << ": cannot write " << name_ << "\n";
        failed_ = true;
    } else {
        Fail("cannot write", error);
    }
    return false;
}

bool OutputFile::Write(const char* data, size_t n) {
    if (failed_ || kind_ == Kind::kNone) return false;
    if (n == 0) return true;
    if (kind_ == Kind::kStream) {
        stream_->write(data, static_cast<std::streamsize>(n));
        return *stream_ ? true : WriteFailed(0);
    }
    if (std::fwrite(data, 1, n, file_) != n) return WriteFailed(errno);
    return true;
}

bool OutputFile::Commit() {
    if (failed_ || kind_ == Kind::kNone) return false;
    switch (kind_) {
        case Kind::kStream:
            stream_->flush();
            return *stream_ ? true : WriteFailed(0);
        case Kind::kStandard:
            if (std::fflush(file_) != 0 || std::ferror(file_)) return WriteFailed(errno);
            return true;
        case Kind::kDirect: {
            FILE* f = file_;
            file_ = nullptr;
            if (UtFileClose(f) != 0) return WriteFailed(errno);
            return true;
        }
        default:
            break;
    }
    FILE* f = file_;
    file_ = nullptr;
    // Don't retry close on EINTR: the descriptor is gone either way, and the data with it.
    if (UtFileClose(f) != 0) return WriteFailed(errno);
    std::error_code ec;
    if (keepPermissions_) {
        fs::permissions(temporary_, permissions_, fs::perm_options::replace, ec);
        if (ec) {
            Fail("cannot set the permissions of", ec.value());
            return false;
        }
    }
    if (UtFileReplace(Utf8Of(temporary_).c_str(), Utf8Of(target_).c_str()) != 0) {
        Fail("cannot replace", errno);
        return false;
    }
    kind_ = Kind::kNone;  // nothing left to remove
    return true;
}

}  // namespace kbase_tool
