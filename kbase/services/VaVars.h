// Variables: named, typed values that fill texts. Any "$" followed by a variable's name in a text
// is replaced by the variable's value (ReplaceAll).
//
// Types (VaVariable::Type) and how a value is printed into a text:
//   0 not set: ""            1 boolean: "true"/"false"   2 short: "%d"     3 long: "%ld"
//   4 float: "%f" (widened)  5 double: "%lf"             6 text: itself    7 environment text
// A variable's type is fixed by its first Set; a Set of another type is refused (false) while the
// variable is set. Unset makes it type 0 again (it keeps its place, comment and pushed values).
//
// Kept on purpose, callers rely on them:
//  - keys have no terminator: "$ab" is also matched by a variable named "a"; the first variable in
//    list order (the order of first Set) whose key occurs wins;
//  - ReplaceAll repeats its pass while any replacement happened, so values holding "$" keys are
//    expanded too, and a value holding its own key makes ReplaceAll run without end. Use
//    ReplaceAllLimited where the variables come from outside.
//
// Environment variables (SetEnv): the value comes from the process environment when the name is set
// there (it is read again at every use, so a change of the environment shows); otherwise the
// default given is kept as the value.
//
// Protocol: with a sink attached (SetProtocol), every successful change or query writes one line:
//   Variables: set '$<name>' to '<value>'
//   Variables: Environment '<name>' has value '<value>'
//   Variables: No Envrionment value for '<name>', use default '<default>'   (sic: the spelling is
//   kept) Variables: '<name>' is '<value>'                       (Get) Variables: variable's
//   '<name>' new comment: '<comment>' Variables: push '<name>'    Variables: pop '<name>'
//   Variables: Undefine '<name>' Variables: substitute '<input>' to '<result>' (ReplaceAll, only
//   while
//                                                            VaProtocolSubstitutions() is true)
// Values in the lines are printed as in a substitution.
//
// Texts handed out (Get of a text, Comment) are new blocks of the runtime: free them with
// UtFreeMemory. Not thread-safe.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kbase/export.h"
#include "kbase/services/PrProtocol.h"

namespace kbase_services_internal {
class KeyFinder;
}

enum eVaType : short {
    eVaNone = 0,
    eVaBool = 1,
    eVaShort = 2,
    eVaLong = 3,
    eVaFloat = 4,
    eVaDouble = 5,
    eVaText = 6,
    eVaEnv = 7,
};

// Substitution lines in the protocol on (the default) or off, for every VaVars.
KBASE_API void VaSetProtocolSubstitutions(bool on);
KBASE_API bool VaProtocolSubstitutions();

// A variable's value: its type and the value of that type.
struct KBASE_API VaValue {
    short type = eVaNone;
    bool b = false;
    int16_t s = 0;
    int32_t l = 0;
    float f = 0;
    double d = 0;
    std::string text;      // types 6 and 7
    bool fromEnv = false;  // type 7: the value is read from the environment at each use

    // The printed value (see the table above); for an environment value the environment is read.
    std::string Print(const char* name) const;
};

// The earlier values of one variable, last pushed on top.
class KBASE_API VaStack {
  public:
    void Push(const VaValue& v) { values_.push_back(v); }
    // Moves the top into v; false when empty.
    bool Pop(VaValue& v);
    bool IsEmpty() const { return values_.empty(); }
    size_t Depth() const { return values_.size(); }
    void Clear() { values_.clear(); }

  private:
    std::vector<VaValue> values_;
};

class KBASE_API VaVariable {
  public:
    explicit VaVariable(const char* name, const char* comment = nullptr);
    virtual ~VaVariable();

    const char* Name() const { return name_.c_str(); }
    short Type() const { return value_.type; }
    const char* GetComment() const { return comment_.c_str(); }
    void SetComment(const char* comment) { comment_ = comment != nullptr ? comment : ""; }
    const VaValue& Value() const { return value_; }
    VaValue& Value() { return value_; }
    // The value as it is printed into a text.
    std::string Print() const { return value_.Print(name_.c_str()); }
    VaStack& Saved() { return saved_; }

  private:
    std::string name_;
    std::string comment_;
    VaValue value_;
    VaStack saved_;
};

// An ordered list of variables. Positions are short (0 first); Elem and operator[] give null for a
// position outside the list. Remove* only unlink; Delete* also destroy the variable. The list does
// not destroy its variables when it is destroyed. It holds at most 32767 variables: beyond that
// the adding members refuse (-1).
class KBASE_API VaList {
  public:
    VaList() = default;
    VaList(const VaList&) = delete;
    VaList& operator=(const VaList&) = delete;
    virtual ~VaList();

    virtual short Add(VaVariable* v);     // appends; position or -1
    virtual short Append(VaVariable* v);  // the same as Add
    virtual VaList& operator+=(VaVariable* v);
    virtual short Prepend(VaVariable* v);                  // 0, or -1
    virtual short Insert(const VaVariable* v, short pos);  // before pos (pos == No(): at the end)
    virtual bool Set(short pos, VaVariable* v);            // replaces the entry at pos
    virtual bool Remove(const VaVariable* v);              // its first entry
    virtual bool RemovePos(short pos);
    virtual VaList& operator-=(const VaVariable* v);
    virtual void RemoveAll();
    virtual short No() const;
    virtual short Index(const VaVariable* v) const;  // first position, or -1
    virtual bool Member(const VaVariable* v) const;
    virtual VaVariable* Elem(short pos) const;
    virtual VaVariable* operator[](short pos) const;
    // Walking: First/Last set i and return that entry; Next/Prev move i by one and return the entry
    // there; null (with i outside the list) past either end.
    virtual VaVariable* First() const;
    virtual VaVariable* First(short& i) const;
    virtual VaVariable* Last() const;
    virtual VaVariable* Last(short& i) const;
    virtual VaVariable* Prev(short& i) const;
    virtual VaVariable* Next(short& i) const;
    virtual bool Delete(VaVariable* v);
    virtual bool DeletePos(short pos);
    virtual void DeleteAll();
    // Stable sort by compare (< 0: a before b).
    virtual void Sort(int (*compare)(const VaVariable*, const VaVariable*));
    // The first variable for which match returns non-zero, or null.
    virtual VaVariable* Search(int (*match)(const VaVariable*)) const;

  private:
    bool Full() const { return items_.size() >= 32767; }
    std::vector<VaVariable*> items_;
};

// How ReplaceAllLimited ended.
enum class VaReplaceResult { kDone, kPassLimit, kTooLong };

class KBASE_API VaVars {
  public:
    VaVars();
    VaVars(const VaVars&) = delete;
    VaVars& operator=(const VaVars&) = delete;
    virtual ~VaVars();

    // Creates the variable with comment when absent; false when it is set with another type (or
    // value is a null text).
    virtual bool Set(const char* name, bool value, const char* comment = nullptr);
    virtual bool Set(const char* name, short value, const char* comment = nullptr);
    virtual bool Set(const char* name, long value, const char* comment = nullptr);
    virtual bool Set(const char* name, float value, const char* comment = nullptr);
    virtual bool Set(const char* name, double value, const char* comment = nullptr);
    virtual bool Set(const char* name, const char* value, const char* comment = nullptr);
    // A plain int is a long (32 bits, as every long here).
    bool Set(const char* name, int value, const char* comment = nullptr) {
        return Set(name, static_cast<long>(value), comment);
    }

    // The value of a set variable of exactly that type; the text form gives any set variable's
    // printed value as a new block. False when absent, not set or of another type.
    virtual bool Get(const char* name, char*& value);
    virtual bool Get(const char* name, bool& value);
    virtual bool Get(const char* name, short& value);
    virtual bool Get(const char* name, long& value);
    virtual bool Get(const char* name, float& value);
    virtual bool Get(const char* name, double& value);

    // An environment variable with a default (see the header's opening). False when the variable
    // is set with a type other than 7.
    virtual bool SetEnv(const char* name, const char* defaultValue);
    // Whether the variable takes its value from the environment settings (type 7); false when
    // absent.
    virtual bool IsEnv(const char* name, bool& isEnv);
    // With a non-null comment: gives the variable that comment (protocol line). With a null one:
    // hands out a copy of the current comment. False when the variable is absent.
    virtual bool Comment(const char* name, char*& comment);
    // Makes the variable not set (type 0); false when absent.
    virtual bool Unset(const char* name);
    // Saves the variable's value (type included) on its own stack / restores the last saved one.
    // Pop is false when nothing is saved.
    virtual bool Push(const char* name);
    virtual bool Pop(const char* name);
    // Push or Pop of every variable; PopAll pops those that have something saved and is false
    // when any had nothing.
    virtual bool PushAll();
    virtual bool PopAll();
    // Replaces keys in text (size: the buffer's capacity in bytes) with passes until a pass
    // replaces nothing; a replacement that would make the text longer than size - 1 is not made
    // (UtSubstSubStr). False for a null text or a size below 1.
    virtual bool ReplaceAll(char* text, short size);
    // Attaches sink (null detaches). The sink is written to; it must outlive its attachment.
    virtual bool SetProtocol(const PrProtocol* sink);

    // ReplaceAll on a growable text, with at most maxPasses passes and the text never longer than
    // maxLength (it is left as it was when the pass that would exceed it started). On kPassLimit
    // and kTooLong, culprit (if not null) names the first variable that replaced in the last pass.
    VaReplaceResult ReplaceAllLimited(std::string& text, int maxPasses, size_t maxLength,
                                      std::string* culprit = nullptr);

    VaVariable* Find(const char* name) const;
    const VaList& List() const { return list_; }

  private:
    template <typename T>
    bool SetValue(const char* name, short type, T value, const char* comment);
    template <typename T>
    bool GetValue(const char* name, short type, T VaValue::*field, T& out);
    VaVariable* FindOrCreate(const char* name, const char* comment);
    void Line(const char* a, const char* b = nullptr, const char* c = nullptr,
              const char* d = nullptr, const char* e = nullptr);

    // The names behind the keys, for substitution; rebuilt when a variable was added.
    const kbase_services_internal::KeyFinder& Keys();

    VaList list_;  // owned variables
    PrProtocol* protocol_ = nullptr;
    std::unique_ptr<kbase_services_internal::KeyFinder> keys_;
};
