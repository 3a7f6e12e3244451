// Logging: UtCLogging keeps the records of a running operation in memory and writes them to a
// dump file on demand; UtLogging is a plain writer of a protocol text file.
//
// A record is "[ <time> <level> ] <message>": the local time as "YYYY-MM-DD hh:mm:ss" (from the
// clock of UtClock.h), the level as seven characters ("INFO   ", "WARNING", "ERROR  "; any other
// value prints as "INFO   ") and the message in its own encoding. Records stay until Clear, so a
// later dump repeats the earlier records.
//
// Dump files: the log file path with "_<time>" before its extension, the time's ':' made '-'
// (log.txt dumps at 2024-05-17 14:03:59 to "log_2024-05-17 14-03-59.txt" beside it). A path
// whose extension is not ".txt" (compared without regard to case) gives the empty name, and no
// dump is written. A dump holds the records in UTF-8, one per line, each ending in "\n", and
// nothing else. Writing replaces an older dump of the same second.
//
// Cost: LogOnly formats the time once per second of the clock and makes one allocation for the
// record (two for a UTF-16 message).
#pragma once

#include <cstdint>
#include <cstdio>
#include <deque>
#include <string>

#include "basert/xdr.h"
#include "kbase/export.h"
#include "kbase/text/UtCString.h"

class KBASE_API UtCLogging {
  public:
    enum eLogLevel { eLogInfo = 0, eLogWarning = 1, eLogError = 2 };

    // An empty path selects "log.txt" in the runtime's temporary folder (the path stays empty when
    // there is none); any other path is used as given.
    explicit UtCLogging(const UtCString& path = UtCString());
    UtCLogging(const UtCLogging& other);
    UtCLogging(UtCLogging&& other) noexcept;
    UtCLogging& operator=(const UtCLogging& other);
    UtCLogging& operator=(UtCLogging&& other) noexcept;
    virtual ~UtCLogging();

    // Appends one record; std::bad_alloc (and no record) when memory is short.
    void LogOnly(const UtCString& msg, eLogLevel level);
    // LogOnly, and for eLogError also DumpAndShow(msg, true).
    void Log(const UtCString& msg, eLogLevel level);
    // Writes every record to a new dump file. With show and a non-empty msg, the message is
    // reported through the runtime's diagnostics (level 0, the dump file as its expression) and
    // the dump file is opened for the user (UtSystem; never when KBASE_NO_SHELL=1). Returns false
    // when there is no dump file name or the file could not be written (nothing is shown then,
    // and a file begun is removed: no partial dump passes for the whole log).
    bool DumpAndShow(const UtCString& msg, bool show);
    // Removes every record.
    void Clear() { records_.clear(); }
    // The number of records.
    long GetLogSize() const { return static_cast<long>(records_.size()); }

    const UtCString& GetPath() const { return path_; }
    // Record i (0 = the first logged); i must be below GetLogSize().
    const UtCString& GetRecord(long i) const { return records_[static_cast<size_t>(i)]; }

    // The dump file name for the clock's current time (empty: not a ".txt" path).
    UtCString GetDumpFileName() const { return CreateDumpFile(); }

  private:
    bool DumpFile(const UtCString& name) const;
    UtCString CreateDumpFile() const;
    static const char* GetLogLevel(eLogLevel level);
    // The current local time as "%F %T"; cached for the clock's second.
    const char* GetTime();
    void ShowMsg(const UtCString& msg, const UtCString& title) const;

    // A deque: records are never moved once made (a moved UtCString allocates an empty buffer).
    std::deque<UtCString> records_;
    UtCString path_;
    // Time cache and a scratch buffer for records; not carried by copies.
    int64_t timeSecond_ = INT64_MIN;
    char timeText_[20] = {};
    std::string scratch_;
};

// A protocol text file. Each writer returns 0, or -1 when no file is open or the write failed.
// Numbers are written with a '.' whatever the locale: Int as "%d", Real as "%.<decimals>f"
// (decimals clamped to 0..15), Point2D as "(x, y)" and Point3D as "(x, y, z)" with each
// coordinate as Real. CurDate writes "YYYY-MM-DD", CurTime "hh:mm:ss", CurDateTime both with a
// blank between, in local time from the clock of UtClock.h. Ln ends the line with "\n".
class KBASE_API UtLogging {
  public:
    UtLogging() = default;
    UtLogging(const UtLogging&) = delete;
    UtLogging& operator=(const UtLogging&) = delete;
    // Closes the file (a failure on that last write is lost; call Close to see it).
    ~UtLogging();

    // Creates or truncates the file (UTF-8 path), closing any open one first. 0, or -1.
    int Open(const UtCString& path);
    // Opens the file for appending, creating it when missing. 0, or -1.
    int Append(const UtCString& path);
    // Closes the file; -1 when no file was open or any write since opening failed.
    int Close();
    bool IsOpen() const { return file_ != nullptr; }

    int Str(const char* text);       // null writes nothing
    int Str(const UtCString& text);  // as UTF-8; -1 also when memory is short
    int Int(int value);
    int Real(double value, int decimals);
    int Ln();
    int CurDate();
    int CurTime();
    int CurDateTime();
    int Point2D(const RPT3& p, int decimals);
    int Point3D(const RPT3& p, int decimals);

    // The texts Real and Point2D write.
    static UtCString RealToStr(double value, int decimals);
    static UtCString Point2DToStr(const RPT3& p, int decimals);

  private:
    int OpenWith(const UtCString& path, const char* mode);
    int Write(const char* text, size_t n);

    FILE* file_ = nullptr;
    bool failed_ = false;
};
