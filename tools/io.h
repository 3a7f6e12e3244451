// What every job of the kbase program shares: the exit codes, and files as the program reads and
// writes them.
//
// A job reads through InputFile and writes through OutputFile, and so gets the program's rules for
// free: "-" is standard input or output; a folder, a closed standard input or an empty path is
// refused with a message instead of being read as empty text; an output file is replaced only by
// Commit, after every byte was written, flushed and closed without error (a temporary file beside
// it, renamed over it; the old file's permissions kept, a symbolic link written through to the file
// it names). A device or a pipe given as output is written directly, as there is nothing to
// replace. Messages go to the job's error stream, each starting with the job's name ("kbase
// recode: cannot open 'a.txt': No such file or directory").
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <iosfwd>
#include <string>

namespace kbase_tool {

// Exit codes, one table for every job.
constexpr int kExitOk = 0;     // done
constexpr int kExitIo = 1;     // a file could not be read or written, or memory ran out
constexpr int kExitUsage = 2;  // bad arguments (every argument-parser error), an unknown code page
constexpr int kExitContent = 3;  // text that cannot be converted, a malformed file

// The table above as --help shows it, ending in a newline.
extern const char* const kExitCodeHelp;

// A file, or standard input, read from the start in blocks.
class InputFile {
public:
    InputFile() = default;
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    // Opens path, or for "-" the process's standard input; who starts every message. Returns
    // kExitOk; kExitUsage for an empty path; kExitIo for a file that cannot be opened, a folder,
    // or a standard input that is closed or a folder. Open standard input before any other file:
    // a closed descriptor 0 is taken by the next file opened.
    [[nodiscard]] int Open(const std::string& path, const std::string& who, std::ostream& err);
    // The same with "-" read from stream in instead (tests, and hosts with text at hand).
    [[nodiscard]] int Open(const std::string& path, const std::string& who, std::ostream& err,
                           std::istream& in);

    // Reads up to n bytes into buf, fewer only at the end of the input. Returns the count, or -1
    // after a message.
    [[nodiscard]] int64_t Read(char* buf, int64_t n);

    // "'path'" or "standard input", for messages.
    const std::string& Name() const { return name_; }

private:
    int OpenPath(const std::string& path);

    FILE* file_ = nullptr;
    bool owned_ = false;  // file_ was opened here and is closed here
    std::istream* stream_ = nullptr;
    std::string name_, who_;
    std::ostream* err_ = nullptr;
};

// The output of a job: a file replaced only on success, a device or pipe, or standard output.
class OutputFile {
public:
    OutputFile() = default;
    // Removes the temporary file when Commit was not reached or failed.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Prepares writing to path, or for "-" to the process's standard output. Returns kExitOk;
    // kExitUsage for an empty path; kExitIo (after a message) for a folder, a closed standard
    // output, or a temporary file that cannot be made beside the target.
    [[nodiscard]] int Open(const std::string& path, const std::string& who, std::ostream& err);
    // The same with "-" written to stream out instead.
    [[nodiscard]] int Open(const std::string& path, const std::string& who, std::ostream& err,
                           std::ostream& out);

    // Writes n bytes. False (with a message, once) when this or an earlier write failed; later
    // writes then do nothing.
    [[nodiscard]] bool Write(const char* data, size_t n);
    // Flushes and closes, gives the temporary file the old target's permissions and renames it
    // over the target. False (with a message) when any of that, or an earlier write, failed; the
    // target is then as it was. On standard output, what was written stays written.
    [[nodiscard]] bool Commit();

private:
    enum class Kind { kNone, kTemporary, kDirect, kStandard, kStream };
    int OpenPath(const std::string& path);
    int Fail(const std::string& what, int error);
    bool WriteFailed(int error);

    Kind kind_ = Kind::kNone;
    FILE* file_ = nullptr;
    std::ostream* stream_ = nullptr;
    std::filesystem::path target_, temporary_;  // target: the path with its links resolved
    bool keepPermissions_ = false;
    std::filesystem::perms permissions_ = std::filesystem::perms::none;
    bool failed_ = false;
    std::string name_, who_;
    std::ostream* err_ = nullptr;
};

}  // namespace kbase_tool
