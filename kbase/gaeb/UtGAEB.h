// The GAEB classes: a bill of quantities (award data, the bill with its outline levels, ranges and
// positions with their descriptions) and its tagged text form (GAEB 2000, DA 83).
//
// The application builds the tree under a UtGAEB root, opens a file through UtGAEB::Open and
// stores the root. Every object writes itself as an indented block:
//
//   <n blanks>#begin[Block]
//   <n+1 blanks>[Key]value[end]        one line per value, in a fixed order per class
//   ...children, each with indent n + 1...
//   <n blanks>#end[Block]
//
// The root's closing "#end[GAEB]" has no line feed, and the root closes the file after storing
// when its flag (the close-after-store flag, 1 after construction) is set. Store returns 0,
// 3011 for a null file, 1007 for a failed write (what was written stays in the file); a child's
// error is passed up unchanged and ends the block, so the file then ends without closing tags.
// A quantity is written by "%.3f" (always a decimal point, three decimals).
//
// Text. Every text field holds Windows-1252 bytes, the code page of "[Zeichensatz]ANSI", the one
// character set written. The const char* setters take 1252 bytes as they are; the UtCString
// setters convert from whatever encoding the string carries and report a character that 1252
// lacks (kGAEBTextReplaced, written as '?'). Fixed fields hold at most their size minus one
// bytes (the kGAEBSize* constants); a longer text is cut there and the setter returns
// kGAEBTextCut. A value must not contain "[end]" (it would end the value when read back).
// Memory: a UtCString setter that cannot convert throws std::bad_alloc and leaves the field as it
// was; a list that cannot grow deletes the entity or outline level it was handed and throws.
//
// Reading. Load reads what Store writes and what other tendering programs write: block and key
// names in any letter case, any indentation, CRLF, values over several lines up to "[end]" (held
// with their line feeds and the blanks that begin their continuation lines), quantities with a
// decimal comma, the description before or after quantity and unit. Everything the model has no
// field for (blocks such as PrjInfo, AG, Hinweis or ZusText, keys such as Uhrzeit or vendor keys
// beginning with "_", text before "#begin[GAEB]" and after "#end[GAEB]") is kept verbatim and
// written back by Store in the same place: after the modelled line or block it followed in the
// file. Lines that a loaded file did not have stay out of the stored form (a position without
// "[Menge]" gets its quantity flag cleared, a range without "[Bez]" writes none) until their
// value is set. A value the model cannot hold exactly (a text longer than its field, a quantity
// with more than three decimals, a number that is none) is kept as written and the model holds
// the nearest it can; the load report names its line. Line ends come out as LF.
//
// Malformed input ends Load with a status and a message naming the line: kGAEBMalformed (a block
// that never ends, an "#end" that closes another block, a value without "[end]"), kGAEBTooLarge
// (a line over 1 MiB, a value over 16 MiB, blocks nested deeper than 64), kGAEBBinary (a control
// byte other than TAB, CR, LF, FF or Ctrl-Z). Memory is bounded by those limits and by the size
// of the file. What was read before the error stays in the tree.
//
// Choices where the form leaves room:
//  - the fixed fields' sizes are the kGAEBSize* constants below (a Kurztext of 4095 bytes holds
//    the RTF short texts real writers produce); the date is held as "DD.MM.YYYY";
//  - the flag word: the root's is the close-after-store flag (1), an outline level's lets a range
//    level write its "[Bez]" (1); every other object starts with 0 and does not read it;
//  - the award block exists exactly while the type is 1 (SetGAEBType to another type destroys it),
//    so that the root writing "the award when present" and "a root of another type writes only
//    the info" never disagree;
//  - UtGAEBHauptobjekt is an empty stand-in that writes nothing;
//  - the root's Store also reports a failed final flush or close as 1007, since a buffered write
//    fails only then;
//  - reading statuses beyond the writer's: 1005 no begin tag, 1008 a read error, 3020-3022.
//
// Not thread-safe; one object tree per thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "kbase/export.h"
#include "kbase/text/UtCString.h"

namespace kbase_gaeb_internal {
class Reader;
struct Token;
struct Kept;
}  // namespace kbase_gaeb_internal

// Status codes.
constexpr int kGAEBOk = 0;
constexpr int kGAEBTextCut = 1;         // setter: the text was longer than the field (bit)
constexpr int kGAEBTextReplaced = 2;    // setter: a character 1252 lacks became '?' (bit)
constexpr int kGAEBNotFound = 1005;     // FindInFile, ReadFromFile, Load: the tag is not there
constexpr int kGAEBWriteFailed = 1007;  // a write, the final flush or the close failed
constexpr int kGAEBReadFailed = 1008;   // reading the file failed
constexpr int kGAEBNullFile = 3011;     // the file is null
constexpr int kGAEBMalformed = 3020;    // Load: the block structure is broken
constexpr int kGAEBTooLarge = 3021;     // Load: a line, a value or the nesting is over its limit
constexpr int kGAEBBinary = 3022;       // Load: a control byte that no text file holds

// Sizes of the fixed text fields in bytes, the terminating NUL included.
constexpr size_t kGAEBSizeVersion = 16;
constexpr size_t kGAEBSizeZeichensatz = 16;
constexpr size_t kGAEBSizeDatum = 16;
constexpr size_t kGAEBSizeName = 128;
constexpr size_t kGAEBSizeBez = 256;
constexpr size_t kGAEBSizeTyp = 32;
constexpr size_t kGAEBSizeOZ = 64;
constexpr size_t kGAEBSizeME = 32;
constexpr size_t kGAEBSizeKurztext = 4096;

enum GAEB_TYPE : int {
    eGAEBTypeInfo = 0,  // only the GAEBInfo block
    eGAEBTypeLV = 1,    // GAEBInfo and the award (Vergabe) with its bill
};

enum GAEB_LV_ENTITY_TYPE : int {
    eGAEBLVEntityNone = 0,
    eGAEBLVEntityBereich = 1,
    eGAEBLVEntityPosition = 2,
};

enum GAEB_LV_KEY_TYPE : int {
    eGAEBLVKeyOther = 0,     // any other Typ ("Index", ...)
    eGAEBLVKeyLVStufe = 1,   // Typ "LVStufe": a range level
    eGAEBLVKeyPosition = 2,  // Typ "Position": the position number
};

// What Load found besides the tree: the message and line of a failure, and notes on values kept
// as written.
struct KBASE_API UtGAEBLoadReport {
    int status = kGAEBOk;
    uint64_t line = 0;    // 1-based line of the failure, 0 when none
    std::string message;  // "line 12: #begin[LV] never ends", empty when none
    std::vector<std::string>
        notes;           // "line 40: [Menge]1,2345 has more than three decimals; kept as written"
    uint64_t lines = 0;  // lines read
    uint64_t keptItems = 0;  // lines and blocks kept verbatim
};

// Base of every GAEB class: a flag word, the Store and Load operations, the reading helpers, and
// the verbatim text kept from a loaded file.
class KBASE_API UtGAEBObject {
  public:
    UtGAEBObject();
    virtual ~UtGAEBObject();
    UtGAEBObject(const UtGAEBObject&) = delete;
    UtGAEBObject& operator=(const UtGAEBObject&) = delete;

    int GetFlag() const { return flag_; }
    void SetFlag(int flag) { flag_ = flag; }

    // The block name written around this object ("Position"); empty for an object without one.
    virtual const char* GetBlockName() const = 0;

    // Writes this object as a block with indent blanks before its tags (see the top).
    [[nodiscard]] virtual int Store(FILE* file, int indent);
    // Reads this object from the file: finds the line of its begin tag and reads its block.
    // 0; 3011 for a null file; 1005 when the tag is not found; 1008, 3020-3022 as at the top.
    [[nodiscard]] virtual int Load(FILE* file);
    // The same, with the message and notes in report (which may be null).
    [[nodiscard]] int Load(FILE* file, UtGAEBLoadReport* report);

    // Writes indent blanks. 0; 3011 for a null file; 1007 on a failed write.
    [[nodiscard]] static int StoreLineStart(FILE* file, int indent);
    // Reads lines until one holds text (case-sensitive) and leaves the file after that line.
    // 0 found; 1005 at the end of the file; 3011 for a null file; 1008 on a read error. Lines are
    // read in pieces, so a long line costs no memory.
    [[nodiscard]] static int FindInFile(FILE* file, const char* text);
    // Finds the next "[key]" and reads its value up to "[end]" (over several lines; at most size -
    // 1 bytes are kept, the rest read past). 0; 1005 when key or "[end]" is missing; 3011 for a
    // null file or buffer.
    [[nodiscard]] static int ReadFromFile(FILE* file, const char* key, char* out, size_t size);
    // The value as a 16-bit number or a real (a decimal comma read like a point); 3020 when it is
    // no number.
    [[nodiscard]] static int ReadFromFile(FILE* file, const char* key, short& out);
    [[nodiscard]] static int ReadFromFile(FILE* file, const char* key, double& out);

    // The number of lines and blocks kept verbatim from a loaded file (this object only).
    size_t GetKeptCount() const;
    // Drops what was kept from a loaded file, and its line-absent marks: Store then writes the
    // plain form of the model.
    void ResetKept();

    // ---- used by the classes of this file ----------------------------------------------------
    // The values and children in store order: slots 1..GetSlotCount(). Writes slot (nothing when
    // the object leaves it out).
    virtual int GetSlotCount() const = 0;
    [[nodiscard]] virtual int StoreSlot(FILE* file, int indent, int slot);
    // Takes one token of the object's block; returns the slot it filled, 0 when the object has
    // no place for it (it is then kept verbatim), or a negative status.
    virtual int ReadToken(kbase_gaeb_internal::Reader& reader, kbase_gaeb_internal::Token& token);
    // Called before the block is read (lists emptied, flags as after construction) and after its
    // end tag was read.
    virtual void BeginLoad() {}
    virtual void FinishLoad(kbase_gaeb_internal::Reader& reader);
    // Reads the rest of the block whose begin tag was just read.
    [[nodiscard]] int LoadBlock(kbase_gaeb_internal::Reader& reader,
                                const kbase_gaeb_internal::Token& begin);
    // The slots 1..n that are values or single children (the rest are list items).
    virtual int GetFixedSlotCount() const { return GetSlotCount(); }
    // Keeps raw text after slot anchor; shadow > 0 names the slot whose value it holds as
    // written (it is left out once that slot's value is set).
    void Keep(int anchor, int shadow, std::string raw);
    // Writes what was kept after slot anchor.
    [[nodiscard]] int StoreKept(FILE* file, int anchor) const;

  protected:
    // Writes the block; the end tag is followed by a line feed when lineFeed is set.
    [[nodiscard]] int StoreBlock(FILE* file, int indent, bool lineFeed);
    // Whether slot was filled before in the block being read (a second one is kept verbatim);
    // marks it filled.
    bool Fresh(int slot);
    // Copies text into a fixed field (see the top) and marks slot as set.
    int SetText(char* field, size_t size, int slot, const char* text);
    int SetText(char* field, size_t size, int slot, const UtCString& text);
    [[nodiscard]] int StoreTag(FILE* file, int indent, const char* what, bool lineFeed = true);
    // "[key]value[end]\n" after indent blanks.
    [[nodiscard]] static int StoreValue(FILE* file, int indent, const char* key, const char* value);
    [[nodiscard]] static int StoreValue(FILE* file, int indent, const char* key, int value);
    bool IsAbsent(int slot) const { return slot < 32 && (absent_ & (1u << slot)) != 0; }
    void SetAbsent(int slot, bool on);

    int flag_ = 0;
    uint32_t absent_ = 0;  // slots that a loaded file did not have (bit per slot)
    uint32_t seen_ = 0;    // slots filled while reading the block
    int duplicate_ = 0;    // the slot that the token being read would have filled a second time
    kbase_gaeb_internal::Kept* kept_ = nullptr;
};

// The date of the info block, kept as the text "DD.MM.YYYY". No block: Store writes only its
// indent and the line "[Datum]...[end]".
class KBASE_API UtGAEBDatum : public UtGAEBObject {
  public:
    UtGAEBDatum();  // today's local date
    const char* GetBlockName() const override { return ""; }
    void SetDate(unsigned short day, unsigned short month, unsigned short year);
    // Parsed from the text; 0 when it does not hold that part.
    unsigned short GetDay() const;
    unsigned short GetMonth() const;
    unsigned short GetYear() const;
    // The text as held (a loaded date keeps its form).
    int GetDatum(char* out, size_t size) const;
    const char* GetDatum() const { return datum_; }
    int SetDatum(const char* text);

    [[nodiscard]] int Store(FILE* file, int indent) override;
    int GetSlotCount() const override { return 1; }

  private:
    unsigned short Part(int index) const;
    char datum_[kGAEBSizeDatum] = {};  // "DD.MM.YYYY" when set by SetDate
};

class KBASE_API UtGAEBInfo : public UtGAEBObject {
  public:
    enum Slot { kVersion = 1, kVersMon, kVersJahr, kDatum, kZeichensatz, kSlots = kZeichensatz };
    UtGAEBInfo();
    const char* GetBlockName() const override { return "GAEBInfo"; }
    int GetVersion(char* out, size_t size) const;
    const char* GetVersion() const { return version_; }
    int SetVersion(const char* text);
    int SetVersion(const UtCString& text);
    short GetVersMon() const { return versMon_; }
    void SetVersMon(short v);
    short GetVersJahr() const { return versJahr_; }
    void SetVersJahr(short v);
    int GetZeichensatz(char* out, size_t size) const;
    const char* GetZeichensatz() const { return zeichensatz_; }
    int SetZeichensatz(const char* text);
    UtGAEBDatum* GetDatumPtr() { return &datum_; }

    int GetSlotCount() const override { return kSlots; }
    [[nodiscard]] int StoreSlot(FILE* file, int indent, int slot) override;
    int ReadToken(kbase_gaeb_internal::Reader& reader, kbase_gaeb_internal::Token& token) override;

  private:
    char version_[kGAEBSizeVersion] = {};
    short versMon_ = 3;
    short versJahr_ = 2002;
    char zeichensatz_[kGAEBSizeZeichensatz] = {};
    UtGAEBDatum datum_;
};

// An outline level of the bill: a range level ("LVStufe"), the position number ("Position") or
// another part ("Index"). Its flag (1 after construction) lets a range level write its "[Bez]".
class KBASE_API UtGAEBLVGlied : public UtGAEBObject {
  public:
    enum Slot { kTyp = 1, kBez, kLaenge, kSlots = kLaenge };
    UtGAEBLVGlied();
    const char* GetBlockName() const override { return "LVGlied"; }
    GAEB_LV_KEY_TYPE GetKeyType() const;
    int GetTyp(char* out, size_t size) const;
    const char* GetTyp() const { return typ_; }
    int SetTyp(const char* text);
    int GetBez(char* out, size_t size) const;
    const char* GetBez() const { return bez_; }
    int SetBez(const char* text);
    int SetBez(const UtCString& text);
    short GetLaenge() const { return laenge_; }
    void SetLaenge(short v);

    int GetSlotCount() const override { return kSlots; }
    [[nodiscard]] int StoreSlot(FILE* file, int indent, int slot) override;
    int ReadToken(kbase_gaeb_internal::Reader& reader, kbase_gaeb_internal::Token& token) override;
    void FinishLoad(kbase_gaeb_internal::Reader& reader) override;

  private:
    char typ_[kGAEBSizeTyp] = {};
    char bez_[kGAEBSizeBez] = {};
    short laenge_ = 0;
    bool bezCut_ = false;  // a loaded "[Bez]" was longer than the field
};

class KBASE_API UtGAEBLVInfo : public UtGAEBObject {
  public:
    enum Slot { kName = 1, kBez, kKurzLang, kGlieder };  // outline levels from kGlieder on
    UtGAEBLVInfo() = default;
    ~UtGAEBLVInfo() override;
    const char* GetBlockName() const override { return "LVInfo"; }
    int GetName(char* out, size_t size) const;
    const char* GetName() const { return name_; }
    int SetName(const char* text);
    int SetName(const UtCString& text);
    int GetBez(char* out, size_t size) const;
    const char* GetBez() const { return bez_; }
    int SetBez(const char* text);
    int SetBez(const UtCString& text);
    short GetKurzLang() const { return kurzLang_; }
    void SetKurzLang(short v);
    // Takes ownership of glied (null is ignored) and appends it.
    void AddLVGlied(UtGAEBLVGlied* glied);
    // The outline level at index, null when out of range.
    UtGAEBLVGlied* GetLVGliedPtr(int index) const;
    int GetLVGliedCount() const { return static_cast<int>(glieder_.size()); }
    // Destroys every outline level.
    void ResetLVGliedList();

    void BeginLoad() override { ResetLVGliedList(); }
    int GetSlotCount() const override { return kGlieder - 1 + GetLVGliedCount(); }
    int GetFixedSlotCount() const override { return kGlieder - 1; }
    [[nodiscard]] int StoreSlot(FILE* file, int indent, int slot) override;
    int ReadToken(kbase_gaeb_internal::Reader& reader, kbase_gaeb_internal::Token& token) override;

  private:
    char name_[kGAEBSizeName] = {};
    char bez_[kGAEBSizeBez] = {};
    short kurzLang_ = 0;
    std::vector<UtGAEBLVGlied*> glieder_;
};

// An entry of the bill: a range or a position.
class KBASE_API UtGAEBLVEntity : public UtGAEBObject {
  public:
    explicit UtGAEBLVEntity(GAEB_LV_ENTITY_TYPE type) : type_(type) {}
    GAEB_LV_ENTITY_TYPE GetLVEntityType() const { return type_; }

  private:
    GAEB_LV_ENTITY_TYPE type_;
};

// A list of owned entities, shared by the bill and its ranges. Reading a "#begin[LVBereich]" or
// "#begin[Position]" appends one.
class KBASE_API UtGAEBEntityList {
  public:
    UtGAEBEntityList() = default;
    ~UtGAEBEntityList();
    UtGAEBEntityList(const UtGAEBEntityList&) = delete;
    UtGAEBEntityList& operator=(const UtGAEBEntityList&) = delete;

    // Takes ownership of entity (null is ignored) and appends it.
    void Add(UtGAEBLVEntity* entity);
    UtGAEBLVEntity* Get(int index) const;
    int Count() const { return static_cast<int>(items_.size()); }
    void Reset();
    // The range whose OZ equals oz (blanks at both ends ignored on both sides), searched depth
    // first through nested ranges; null when none.
    class UtGAEBLVBereich* FindLVBereich(const char* oz) const;
    int StoreItem(FILE* file, int indent, int index) const;
    // Appends a range or a position for a begin tag of that name; null for another name.
    UtGAEBLVEntity* AddFor(const std::string& blockName);

  private:
    std::vector<UtGAEBLVEntity*> items_;
};

class KBASE_API UtGAEBLVBereich : public UtGAEBLVEntity {
  public:
    enum Slot { kOZ = 1, kBez, kEntities };  // entities from kEntities on
    UtGAEBLVBereich() : UtGAEBLVEntity(eGAEBLVEntityBereich) {}
    const char* GetBlockName() const override { return "LVBereich"; }
    int GetOZ(char* out, size_t size) const;
    const char* GetOZ() const { return oz_; }
    int SetOZ(const char* text);
    int SetOZ(const UtCString& text);
    int GetBez(char* out, size_t size) const;
    const char* GetBez() const { return bez_; }
    int SetBez(const char* text);
    int SetBez(const UtCString& text);
    void AddLVEntity(UtGAEBLVEntity* entity) { entities_.Add(entity); }
    UtGAEBLVEntity* GetLVEntityPtr(int index) const { return entities_.Get(index); }
    int GetLVEntityCount() const { return entities_.Count(); }
    void ResetLVEntityList() { entities_.Reset(); }
    // This range's nested range with that OZ (this one itself not included).
    UtGAEBLVBereich* FindLVBereich(const char* oz) const { return entities_.FindLVBereich(oz); }

    void BeginLoad() override { entities_.Reset(); }
    int GetSlotCount() const override { return kEntities - 1 + entities_.Count(); }
    int GetFixedSlotCount() const override { return kEntities - 1; }
    [[nodiscard]] int StoreSlot(FILE* file, int indent, int slot) override;
    int ReadToken(kbase_gaeb_internal::Reader& reader, kbase_gaeb_internal::Token& token) override;
    void FinishLoad(kbase_gaeb_internal::Reader& reader) override;

  private:
    char oz_[kGAEBSizeOZ] = {};
    char bez_[kGAEBSizeBez] = {};
    UtGAEBEntityList entities_;
};

class KBASE_API UtGAEBBeschreibung : public UtGAEBObject {
  public:
    enum Slot { kLangtext = 1, kKurztext, kSlots = kKurztext };
    UtGAEBBeschreibung() = default;
    const char* GetBlockName() const override { return "Beschreibung"; }
    // The long text, allocated to its length (no limit); "" when there is none.
    const char* GetLangtext() const { return langtext_.c_str(); }
    size_t GetLangtextLength() const { return langtext_.size(); }
    int GetLangtext(char* out, size_t size) const;
    int SetLangtext(const char* text);
    int SetLangtext(const UtCString& text);
    int GetKurztext(char* out, size_t size) const;
    const char* GetKurztext() const { return kurztext_.c_str(); }
    int SetKurztext(const char* text);
    int SetKurztext(const UtCString& text);

    int GetSlotCount() const override { return kSlots; }
    [[nodiscard]] int StoreSlot(FILE* file, int indent, int slot) override;
    int ReadToken(kbase_gaeb_internal::Reader& reader, kbase_gaeb_internal::Token& token) override;

  private:
    std::string langtext_;
    // A fixed field in what it holds (at most kGAEBSizeKurztext - 1 bytes), allocated to its length
    // so that a bill of many positions does not carry 4 KiB for each.
    std::string kurztext_;
};

class KBASE_API UtGAEBPosition : public UtGAEBLVEntity {
  public:
    enum Slot { kOZ = 1, kMenge, kME, kBeschreibung, kSlots = kBeschreibung };
    UtGAEBPosition() : UtGAEBLVEntity(eGAEBLVEntityPosition) {}
    const char* GetBlockName() const override { return "Position"; }
    int GetOZ(char* out, size_t size) const;
    const char* GetOZ() const { return oz_; }
    int SetOZ(const char* text);
    int SetOZ(const UtCString& text);
    double GetMenge() const { return menge_; }
    void SetMenge(double v);
    int GetME(char* out, size_t size) const;
    const char* GetME() const { return me_; }
    int SetME(const char* text);
    int SetME(const UtCString& text);
    // Whether the quantity, the unit and the description are written (all 1 after construction).
    int GetMengeFlag() const { return mengeFlag_; }
    void SetMengeFlag(int on) { mengeFlag_ = on; }
    int GetMEFlag() const { return meFlag_; }
    void SetMEFlag(int on) { meFlag_ = on; }
    int GetBeschreibungFlag() const { return beschreibungFlag_; }
    void SetBeschreibungFlag(int on) { beschreibungFlag_ = on; }
    UtGAEBBeschreibung* GetBeschreibungPtr() { return &beschreibung_; }
    const UtGAEBBeschreibung* GetBeschreibungPtr() const { return &beschreibung_; }

    int GetSlotCount() const override { return kSlots; }
    [[nodiscard]] int StoreSlot(FILE* file, int indent, int slot) override;
    int ReadToken(kbase_gaeb_internal::Reader& reader, kbase_gaeb_internal::Token& token) override;
    void FinishLoad(kbase_gaeb_internal::Reader& reader) override;

  private:
    char oz_[kGAEBSizeOZ] = {};
    double menge_ = 0.0;
    char me_[kGAEBSizeME] = {};
    int mengeFlag_ = 1, meFlag_ = 1, beschreibungFlag_ = 1;
    bool seenMenge_ = false, seenME_ = false, seenBeschreibung_ = false;
    UtGAEBBeschreibung beschreibung_;
};

class KBASE_API UtGAEBLV : public UtGAEBObject {
  public:
    enum Slot { kLVInfo = 1, kEntities };  // entities from kEntities on
    UtGAEBLV() = default;
    const char* GetBlockName() const override { return "LV"; }
    UtGAEBLVInfo* GetLVInfoPtr() { return &info_; }
    void AddLVEntity(UtGAEBLVEntity* entity) { entities_.Add(entity); }
    UtGAEBLVEntity* GetLVEntityPtr(int index) const { return entities_.Get(index); }
    int GetLVEntityCount() const { return entities_.Count(); }
    void ResetLVEntityList() { entities_.Reset(); }
    // The range with that OZ at any depth; null when none.
    UtGAEBLVBereich* FindLVBereich(const char* oz) const { return entities_.FindLVBereich(oz); }

    void BeginLoad() override { entities_.Reset(); }
    int GetSlotCount() const override { return kEntities - 1 + entities_.Count(); }
    int GetFixedSlotCount() const override { return kEntities - 1; }
    [[nodiscard]] int StoreSlot(FILE* file, int indent, int slot) override;
    int ReadToken(kbase_gaeb_internal::Reader& reader, kbase_gaeb_internal::Token& token) override;

  private:
    UtGAEBLVInfo info_;
    UtGAEBEntityList entities_;
};

class KBASE_API UtGAEBVergabe : public UtGAEBObject {
  public:
    enum Slot { kDP = 1, kLV, kSlots = kLV };
    UtGAEBVergabe() = default;
    const char* GetBlockName() const override { return "Vergabe"; }
    short GetDP() const { return dp_; }
    void SetDP(short v);
    UtGAEBLV* GetLVPtr() { return &lv_; }

    int GetSlotCount() const override { return kSlots; }
    [[nodiscard]] int StoreSlot(FILE* file, int indent, int slot) override;
    int ReadToken(kbase_gaeb_internal::Reader& reader, kbase_gaeb_internal::Token& token) override;

  private:
    short dp_ = 0;
    UtGAEBLV lv_;
};

// Has no fields and writes nothing: a stand-in for the object a bill is about, for applications
// that hang their own data on the tree.
class KBASE_API UtGAEBHauptobjekt : public UtGAEBObject {
  public:
    const char* GetBlockName() const override { return ""; }
    [[nodiscard]] int Store(FILE* file, int indent) override;
    int GetSlotCount() const override { return 0; }
};

// The root. Its flag is the close-after-store flag (1 after construction).
class KBASE_API UtGAEB : public UtGAEBObject {
  public:
    enum Slot { kInfo = 1, kVergabe, kSlots = kVergabe };
    explicit UtGAEB(GAEB_TYPE type = eGAEBTypeLV);
    ~UtGAEB() override;
    const char* GetBlockName() const override { return "GAEB"; }
    GAEB_TYPE GetGAEBType() const { return type_; }
    // Type 1 creates the award block when there is none; another type destroys it.
    void SetGAEBType(GAEB_TYPE type);
    UtGAEBInfo* GetInfoPtr() { return &info_; }
    // The award block, null unless the type is 1.
    UtGAEBVergabe* GetVergabePtr() { return vergabe_; }

    // Opens path with mode "w" when write is non-zero, else "r"; null when it cannot be opened.
    static FILE* Open(const UtCString& path, int write);

    // Stores the tree (see the top); closes the file afterwards when the flag is set, and a failed
    // close or final flush gives 1007 when storing had succeeded.
    [[nodiscard]] int Store(FILE* file, int indent) override;
    // Reads a whole file: the root, then its blocks. The award block is created when the file has
    // one (the type becomes 1). Does not close the file.
    [[nodiscard]] int Load(FILE* file) override;
    [[nodiscard]] int Load(FILE* file, UtGAEBLoadReport* report) {
        return UtGAEBObject::Load(file, report);
    }

    int GetSlotCount() const override { return kSlots; }
    [[nodiscard]] int StoreSlot(FILE* file, int indent, int slot) override;
    int ReadToken(kbase_gaeb_internal::Reader& reader, kbase_gaeb_internal::Token& token) override;
    void FinishLoad(kbase_gaeb_internal::Reader& reader) override;

  private:
    GAEB_TYPE type_;
    UtGAEBInfo info_;
    UtGAEBVergabe* vergabe_ = nullptr;
};
