// UtCCsvReader: streams a delimiter-separated text file line by line, cuts each line into tokens
// in place and classifies the tokens of each column by the kinds of value they can hold.
//
// The format (kept exactly; files in the field rely on it):
//  - no quoting: a quote is an ordinary character and a delimiter inside quotes still separates;
//  - a run of delimiters separates once and yields no empty field; all delimiters of a run but
//    the last stay at the end of the preceding token ("a;;b" gives "a;" and "b"), leading
//    delimiters stay in token 0 (";a;b" gives ";a" and "b"), one trailing delimiter is dropped;
//  - empty lines are skipped; a CR before the line feed is not part of the line, and a last line
//    without a line feed is read like any other;
//  - a UTF-8 byte-order mark at the start of the file is skipped, and the tokens are then UTF-8;
//    otherwise they are in the file encoding (the system code page unless SetFileEncoding);
//  - a line that begins with Ctrl-Z (0x1A), the end-of-file mark of DOS-era programs, ends the
//    data unless SetDisableZ(true) was called.
// Memory stays bounded by the longest line (lines of up to 1 GiB are read; a longer one stops
// the reader with GetReadState() == eReadLineTooLong). Nothing throws for bad input: a missing
// file or the end of the data shows as false results.
//
// Opt-in, for files written by spreadsheets and databases (off unless asked for):
//  - SetQuoted(true), RFC 4180 quoting. A field that begins with '"' is quoted: inside it the
//    delimiter, CR and LF are ordinary characters and '""' is one quote, so a record may span
//    lines (its line breaks stay in the field as they were). A quote inside a field that does not
//    begin with one is ordinary. Text after a closing quote up to the next delimiter is kept as it
//    is ('"ab"c' gives abc; lenient, as Python's csv reads it). A quoted field that is never closed
//    runs to the end of the data: that last record is delivered, and the read state becomes
//    eReadUnclosedQuote. Records end at LF, CRLF or a lone CR outside quotes and are bounded
//    like lines (1 GiB). In this mode ParseNextRow, SkipNextRow, GetToken, Reset's scan and
//    AutoColDel work on records and see the unquoted field texts, and a record is cut at every
//    delimiter (empty fields are kept, runs do not merge), as RFC 4180 means it.
//  - ReadRecord: the next record cut at every delimiter, in either mode; fields by pointer and
//    length (GetFieldPtr, GetFieldLength) without copies.
//  - DetectFromHead and GuessDelimiter: the delimiter and title lines from the first bytes only,
//    for input that can be read once (standard input, a pipe).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "kbase/export.h"
#include "kbase/text/UtCString.h"
#include "kbase/text/UtCStringList.h"

namespace kbase_tables_internal {
class LineSource;
class RecordCutter;
}

class KBASE_API UtCCsvReader {
public:
    // The kinds of value, as bits of the type masks.
    enum TTypeInfo : uint32_t {
        eTypeLargeInteger = 1,  // whole number above 255, or negative
        eTypeReal = 2,          // real number
        eTypeText = 4,          // text
        eTypeSmallInteger = 8,  // whole number from 0 to 255
    };
    // The implicit mask holds the narrowest kind of each value seen, the explicit mask every kind
    // the values can be read as.
    struct TColumnMasks {
        uint32_t implicitMask = 0;
        uint32_t explicitMask = 0;
    };
    enum TReadState {
        eReadOk,           // reading, or not started
        eReadNotOpen,      // the file could not be opened
        eReadEnd,          // the end of the data was reached
        eReadLineTooLong,  // a line longer than 1 GiB
        eReadError,        // the file could not be read
        eReadNoMemory,     // no memory for the line buffer
        // The data ended inside a quoted field (quoted mode): the record is delivered, and the
        // state stays so at the end of the data instead of eReadEnd.
        eReadUnclosedQuote,
    };

    // Stores the name, sets the delimiter to ';' and opens the file (UTF-8 path). A file that
    // cannot be opened leaves the reader failed: every read gives "no row".
    explicit UtCCsvReader(const UtCString& fileName);
    // A reader of an open stream (standard input, a pipe) from where it stands; the stream is not
    // owned and never closed here, and is read once: Reset, SetToFirstRow and the rewinding in
    // them fail when it cannot seek (a pipe) and may work when it can. name is for messages
    // (GetFileName). GetFileSize is 0 when the size is unknown. The mark rule is that of files. A
    // null stream leaves the reader failed (eReadNotOpen), an unreadable one too (eReadError).
    explicit UtCCsvReader(std::FILE* stream, const UtCString& name);
    UtCCsvReader(const UtCCsvReader&) = delete;
    UtCCsvReader& operator=(const UtCCsvReader&) = delete;
    virtual ~UtCCsvReader();

    // Reads the next non-empty line and cuts it into at most GetColCount() tokens (with all
    // false, at most GetMaxParseIndex()); the rest of the line is ignored. True when that many
    // tokens were found. False at once while the column count is 0 and no token array is set;
    // false at the end of the data.
    bool ParseNextRow(bool all);
    // Reads the next non-empty line without cutting it (GetMLine holds it); false when the file
    // is not open or at the end of the data.
    bool SkipNextRow();
    // Token i of the current line in the file encoding; the empty text for an index out of range
    // or a column without a token. The result is one string of this reader that the next call
    // overwrites.
    const UtCString& GetToken(int i);
    // Token i as the bytes of the line (NUL-terminated in place), "" when there is none.
    const char* GetTokenPtr(int i) const {
        if (i < 0 || static_cast<size_t>(i) >= tokenStart_.size()) return "";
        const int start = tokenStart_[static_cast<size_t>(i)];
        if (start < 0 || static_cast<size_t>(start) > lineLength_) return "";
        return line_ + start;
    }
    // Token i as a real number: UtCString::Convert(double&), else, for a token with a ',', the
    // decimal-comma reading that the type masks accept. False when it is no number.
    bool GetTokenDouble(int i, double& value);

    // RFC 4180 quoting (see the top of this file); off by default. Takes effect with the next
    // record read.
    void SetQuoted(bool on) { quoted_ = on; }
    bool GetQuoted() const { return quoted_; }

    // Reads the next record and cuts it at every delimiter (empty fields kept; quotes as the mode
    // says, in the raw mode a quote is ordinary), unquoting in place. Records end at LF, CRLF or a
    // lone CR in both modes here (files from old Macs end lines with CR). Empty lines are skipped
    // in both modes; a line holding only '""' is a record of one empty field; a record that
    // begins with Ctrl-Z ends the data as such a line does. Returns the field count (at least 1),
    // or -1 at the end of the data or on an error (GetReadState tells which). The column count
    // and masks are not used or changed; the token starts are cleared. Cost: each byte is looked
    // at once, 64 at a time; no allocation per field.
    int ReadRecord();
    // The fields of the record read last by ReadRecord (or, in quoted mode, by ParseNextRow or
    // SkipNextRow): bytes in the file encoding, NUL-terminated in place and valid until the next
    // read. A field may hold NUL bytes, so its length is authoritative. Out of range: "" and 0.
    int GetFieldCount() const { return fieldCount_; }
    const char* GetFieldPtr(int i) const {
        return static_cast<unsigned>(i) < static_cast<unsigned>(fieldCount_) ? line_ + spans_[2 * static_cast<size_t>(i)] : "";
    }
    size_t GetFieldLength(int i) const {
        return static_cast<unsigned>(i) < static_cast<unsigned>(fieldCount_) ? spans_[2 * static_cast<size_t>(i) + 1] : 0;
    }
    // The 1-based line number of the first line of the record (or line) read last, counting
    // skipped empty lines and the line breaks inside quoted fields; for messages.
    uint64_t GetRecordNumber() const { return recordLine_; }

    // Guesses the delimiter of a sample of the data (its first bytes) among TAB, ',', ';', '|'
    // and space: for each, the first 50 records of the sample are cut (only outside quotes when
    // quoted; a last record that the sample cuts short is left out unless it is the only one), and
    // the candidate whose most common field count (above 1) occurs on the most records wins; ties
    // go to the higher field count, then to the earlier candidate in that order (space last:
    // spaces are common in free text). When quoted, a record that a candidate cuts through quotes
    // (text after a closing quote, a quote inside a field) does not count for it: "a";"1,5" is
    // cut at ';'. 0 when no candidate splits any record.
    static char GuessDelimiter(const char* sample, size_t n, bool quoted);
    // Looks at the first bytes of the data from where the reader stands (up to 256 KiB) without
    // consuming them, so that it works on a pipe: the bytes are then read by ReadRecord from the
    // start. Sets the delimiter by GuessDelimiter on them in the current quoting mode (left as it
    // is when no candidate splits) and, with titles, the title line count by the rule of Reset
    // applied to the records among them. False when nothing could be read.
    bool DetectFromHead(bool titles);

    // Chooses the delimiter among TAB, space, ',' and ';' by the number of occurrences in line (a
    // run of spaces or of TABs counts once); a tie keeps the earlier in that order; no candidate
    // at all leaves the delimiter unchanged. Returns the delimiter now in force. In quoted mode
    // the text between a quote and the next one is not counted.
    char AutoColDel(const UtCString& line);
    // Whether the tokens of a line form a title line: at least one is not empty and none reads as
    // a number (whole, real, or real with a decimal comma).
    bool IsTitleLine(const UtCStringList& tokens) const;

    // Rewinds and rescans the file. With detect, the delimiter is first guessed (the choice of
    // AutoColDel that most of the first 20 non-empty lines make; ties go to the delimiter in
    // force, then to the earlier candidate) and the title lines are counted: the leading lines that are
    // title lines (IsTitleLine), but only the first when no other kind of line follows within
    // the first 1000 lines. Without detect, the delimiter and title line count stay as set. Then
    // every data line is cut without limit: the column count becomes the largest token count of
    // the data lines and the last title line, the type masks the union over all tokens of each
    // column, GetDataRowCount the number of data lines, and the decimal-comma flag tells whether
    // some token needed it. Finally positions at the first data row. False when the file is not
    // readable. ScanProgress is called during the scan. In quoted mode the rows are records, and
    // the delimiter is guessed by GuessDelimiter on the first bytes instead of the vote (a data
    // line with quoted text would vote for what is inside the quotes); an unclosed quote at the
    // end counts as the end.
    bool Reset(bool detect);
    // Rewinds to the first line and, with skipTitleLines, skips the title lines, so that the next
    // ParseNextRow reads the first data row. Columns, masks and flags stay. False when the file
    // is not open.
    bool SetToFirstRow(bool skipTitleLines = true);

    // The masks that one token adds: the classification used by Reset's scan. Sets the
    // decimal-comma flag when the token needs it.
    TColumnMasks ClassifyToken(const UtCString& token);
    // The masks ClassifyToken gives the text p[0..n) in encoding e (no terminator needed); sets
    // *decimalComma (when not null) where ClassifyToken sets the flag. No string is made for ASCII
    // numbers.
    static TColumnMasks ClassifyField(const char* p, size_t n, eUtEncodingType e, bool* decimalComma);
    // UtCString(p, n, e, e).Convert(value), without the string for ASCII text.
    static bool FieldToDouble(const char* p, size_t n, eUtEncodingType e, double& value);
    // Indices of the columns whose implicit / explicit mask has the kind's bit (exactly: is only
    // that bit).
    std::vector<int> GetIndicesImplicitFor(TTypeInfo kind, bool exactly = false) const;
    std::vector<int> GetIndicesExplicitFor(TTypeInfo kind, bool exactly = false) const;

    // Bytes of the file consumed so far and the file's size, for progress reports.
    uint64_t GetFilePosition() const;
    uint64_t GetFileSize() const { return fileSize_; }
    void SetFileSize(uint64_t size) { fileSize_ = size; }

    const UtCString& GetFileName() const { return fileName_; }
    bool IsOpen() const;
    TReadState GetReadState() const { return state_; }
    char GetColDelimiter() const { return delimiter_; }
    void SetColDelimiter(char d) { delimiter_ = d; }
    int GetMaxParseIndex() const { return maxParseIndex_; }
    void SetMaxParseIndex(int n) { maxParseIndex_ = n; }
    uint64_t GetTitleLineCount() const { return titleLines_; }
    void SetTitleLineCount(uint64_t n) { titleLines_ = n; }
    bool GetDecimalComma() const { return decimalComma_; }
    void SetDecimalComma(bool on) { decimalComma_ = on; }
    bool GetDisableZ() const { return disableZ_; }
    void SetDisableZ(bool on) { disableZ_ = on; }
    // The encoding of the tokens: UTF-8 after a byte-order mark, else the system code page unless
    // set here (256 means the system code page).
    eUtEncodingType GetFileEncoding() const { return fileEncoding_; }
    void SetFileEncoding(eUtEncodingType e) { fileEncoding_ = e; }
    // Data lines counted by the last Reset.
    uint64_t GetDataRowCount() const { return dataRows_; }

    // The current line (cut in place once parsed; in quoted mode the record, cut and unquoted);
    // SetMLine replaces it by a copy of text and clears the token starts and fields.
    const char* GetMLine() const { return line_; }
    void SetMLine(const char* text);
    int GetColCount() const { return static_cast<int>(masks_.size()); }
    const std::vector<TColumnMasks>& GetMColumnTypeMasks() const { return masks_; }
    void SetMColumnTypeMasks(const std::vector<TColumnMasks>& masks) { masks_ = masks; }
    // Token starts of the current line (-1: no token); entries outside the line read as -1.
    const std::vector<int>& GetMTokenStartIndex() const { return tokenStart_; }
    void SetMTokenStartIndex(const std::vector<int>& starts);

protected:
    // Called during Reset's scan about every 64 KiB of lines and once at its end; a host
    // overrides it to show progress. The default does nothing.
    virtual void ScanProgress(uint64_t position, uint64_t size);

private:
    TColumnMasks CalcTypeMask(const UtCString& token);
    bool ReadLine();
    bool ReadNextRecord();
    bool FetchMore();
    bool ReadRow() { return quoted_ ? ReadNextRecord() : ReadLine(); }
    bool Rewind();
    int CutTokens(int limit, int* starts) const;
    // The fields of a row: pointer and length.
    using FieldList = std::vector<std::pair<const char*, size_t>>;
    // Cuts the row just read into all its fields: the record's in quoted mode, else the tokens
    // of the format (a run of delimiters separates once).
    void RowFields(FieldList& out);
    // The title lines among the first rows that nextRow gives (the rule of Reset).
    uint64_t CountTitleLines(const std::function<bool(FieldList&)>& nextRow) const;

    UtCString fileName_;
    std::unique_ptr<kbase_tables_internal::LineSource> source_;
    std::unique_ptr<kbase_tables_internal::RecordCutter> cutter_;
    uint64_t sourceEpoch_ = 0;  // of the bytes the cutter's masks were taken from
    bool quoted_ = false;
    int fieldCount_ = 0;
    const uint32_t* spans_ = nullptr;  // the cutter's offset and length pairs of the fields
    uint64_t lines_ = 0;  // line ends consumed
    uint64_t recordLine_ = 0;
    char delimiter_ = ';';
    int maxParseIndex_ = 0;
    uint64_t titleLines_ = 0;
    bool decimalComma_ = false;
    bool disableZ_ = false;
    bool dataEnded_ = false;  // a Ctrl-Z line was met
    TReadState state_ = eReadOk;
    eUtEncodingType fileEncoding_ = eUtEncodingTypeSystemDefault;
    uint64_t fileSize_ = 0;
    uint64_t dataRows_ = 0;
    char* line_;
    size_t lineLength_ = 0;
    std::vector<char> ownLine_;  // the text of SetMLine
    std::vector<TColumnMasks> masks_;
    std::vector<int> tokenStart_;
    std::vector<int> rowStarts_;  // scratch of RowFields
    UtCString token_;
};
