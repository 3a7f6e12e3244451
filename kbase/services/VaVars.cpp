#include "kbase/services/VaVars.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <utility>

#include "basert/files.h"
#include "basert/memory.h"
#include "basert/strings.h"

namespace {

bool g_protocolSubstitutions = true;

std::string EnvValue(const char* name) {
    const int64_t n = OsGetEnv(name, nullptr, 0);
    if (n < 0) return std::string();
    std::string v(static_cast<size_t>(n) + 1, '\0');
    if (OsGetEnv(name, v.data(), v.size()) != n) return std::string();
    v.resize(static_cast<size_t>(n));
    return v;
}

// A copy of text in a new runtime block (null when that fails).
char* NewBlock(const std::string& text) {
    void* p = nullptr;
    if (UtAllocMemoryBlock(&p, text.size() + 1, 1) != kUtMemOk) return nullptr;
    std::memcpy(p, text.c_str(), text.size() + 1);
    return static_cast<char*>(p);
}

std::string Printf(const char* format, double v) {
    char buf[400];
    const int n = std::snprintf(buf, sizeof buf, format, v);
    return std::string(buf, n > 0 ? static_cast<size_t>(n) : 0);
}

// Replaces every occurrence of key, left to right, continuing behind each inserted value. Returns
// the count; 0 with tooLong set when the result would exceed maxLength (text unchanged).
size_t ReplaceIn(std::string& text, const std::string& key, const std::string& value,
                 size_t maxLength, bool& tooLong) {
    size_t pos = text.find(key);
    if (pos == std::string::npos) return 0;
    std::string out;
    size_t from = 0, count = 0;
    while (pos != std::string::npos) {
        out.append(text, from, pos - from);
        out += value;
        from = pos + key.size();
        ++count;
        if (out.size() > maxLength) break;
        pos = text.find(key, from);
    }
    out.append(text, from, std::string::npos);
    if (out.size() > maxLength) {
        tooLong = true;
        return 0;
    }
    text.swap(out);
    return count;
}

}  // namespace

namespace kbase_services_internal {

// Finds, for a substitution, the variables whose keys occur in a text. A key "$name" occurs
// exactly where a '$' is followed by name, so the text is looked at only behind its '$' signs,
// once per name length, instead of being searched once per variable.
class KeyFinder {
  public:
    explicit KeyFinder(const VaList& list) : count_(list.No()) {
        short i = 0;
        for (VaVariable* v = list.First(i); v != nullptr; v = list.Next(i)) {
            const std::string_view name(v->Name());
            vars_.push_back(v);
            names_.emplace(name, i);  // names are unique in a VaVars
            if (std::find(lengths_.begin(), lengths_.end(), name.size()) == lengths_.end()) {
                lengths_.push_back(name.size());
            }
        }
    }
    // The position of the first variable, from position from on in list order, whose key occurs
    // in text; -1 when there is none.
    short Next(std::string_view text, short from) const {
        short best = -1;
        for (size_t d = text.find('$'); d != std::string_view::npos; d = text.find('$', d + 1)) {
            for (size_t n : lengths_) {
                if (d + 1 + n > text.size()) continue;
                const auto it = names_.find(text.substr(d + 1, n));
                if (it != names_.end() && it->second >= from && (best < 0 || it->second < best))
                    best = it->second;
            }
        }
        return best;
    }
    VaVariable* Variable(short i) const { return vars_[static_cast<size_t>(i)]; }
    short Count() const { return count_; }

  private:
    short count_;
    std::vector<VaVariable*> vars_;
    std::unordered_map<std::string_view, short> names_;
    std::vector<size_t> lengths_;
};

}  // namespace kbase_services_internal

using kbase_services_internal::KeyFinder;

void VaSetProtocolSubstitutions(bool on) {
    g_protocolSubstitutions = on;
}
bool VaProtocolSubstitutions() {
    return g_protocolSubstitutions;
}

std::string VaValue::Print(const char* name) const {
    switch (type) {
        case eVaBool:
            return b ? "true" : "false";
        case eVaShort:
            return std::to_string(static_cast<int>(s));
        case eVaLong:
            return std::to_string(static_cast<long>(l));
        case eVaFloat:
            return Printf("%f", static_cast<double>(f));
        case eVaDouble:
            return Printf("%lf", d);
        case eVaText:
            return text;
        case eVaEnv:
            return fromEnv ? EnvValue(name) : text;
        default:
            return std::string();
    }
}

bool VaStack::Pop(VaValue& v) {
    if (values_.empty()) return false;
    v = std::move(values_.back());
    values_.pop_back();
    return true;
}

VaVariable::VaVariable(const char* name, const char* comment)
    : name_(name != nullptr ? name : ""), comment_(comment != nullptr ? comment : "") {}
VaVariable::~VaVariable() = default;

// ---- VaList -----------------------------------------------------------------------------------

VaList::~VaList() = default;

short VaList::Add(VaVariable* v) {
    if (Full()) return -1;
    items_.push_back(v);
    return static_cast<short>(items_.size() - 1);
}
short VaList::Append(VaVariable* v) {
    return Add(v);
}
VaList& VaList::operator+=(VaVariable* v) {
    Add(v);
    return *this;
}
short VaList::Prepend(VaVariable* v) {
    return Insert(v, 0);
}
short VaList::Insert(const VaVariable* v, short pos) {
    if (Full() || pos < 0 || pos > No()) return -1;
    items_.insert(items_.begin() + pos, const_cast<VaVariable*>(v));
    return pos;
}
bool VaList::Set(short pos, VaVariable* v) {
    if (pos < 0 || pos >= No()) return false;
    items_[static_cast<size_t>(pos)] = v;
    return true;
}
bool VaList::Remove(const VaVariable* v) {
    return RemovePos(Index(v));
}
bool VaList::RemovePos(short pos) {
    if (pos < 0 || pos >= No()) return false;
    items_.erase(items_.begin() + pos);
    return true;
}
VaList& VaList::operator-=(const VaVariable* v) {
    Remove(v);
    return *this;
}
void VaList::RemoveAll() {
    items_.clear();
}
short VaList::No() const {
    return static_cast<short>(items_.size());
}
short VaList::Index(const VaVariable* v) const {
    const auto it = std::find(items_.begin(), items_.end(), v);
    return it == items_.end() ? short{-1} : static_cast<short>(it - items_.begin());
}
bool VaList::Member(const VaVariable* v) const {
    return Index(v) >= 0;
}
VaVariable* VaList::Elem(short pos) const {
    return pos >= 0 && pos < No() ? items_[static_cast<size_t>(pos)] : nullptr;
}
VaVariable* VaList::operator[](short pos) const {
    return Elem(pos);
}
VaVariable* VaList::First() const {
    return Elem(0);
}
VaVariable* VaList::First(short& i) const {
    i = 0;
    return Elem(i);
}
VaVariable* VaList::Last() const {
    return Elem(static_cast<short>(No() - 1));
}
VaVariable* VaList::Last(short& i) const {
    i = static_cast<short>(No() - 1);
    return Elem(i);
}
VaVariable* VaList::Prev(short& i) const {
    if (i >= 0) --i;
    return Elem(i);
}
VaVariable* VaList::Next(short& i) const {
    if (i < No()) ++i;
    return Elem(i);
}
bool VaList::Delete(VaVariable* v) {
    if (!Remove(v)) return false;
    delete v;
    return true;
}
bool VaList::DeletePos(short pos) {
    VaVariable* v = Elem(pos);
    if (!RemovePos(pos)) return false;
    delete v;
    return true;
}
void VaList::DeleteAll() {
    std::vector<VaVariable*> gone;
    gone.swap(items_);
    for (VaVariable* v : gone) delete v;
}
void VaList::Sort(int (*compare)(const VaVariable*, const VaVariable*)) {
    if (compare == nullptr) return;
    std::stable_sort(
        items_.begin(), items_.end(),
        [compare](const VaVariable* a, const VaVariable* b) { return compare(a, b) < 0; });
}
VaVariable* VaList::Search(int (*match)(const VaVariable*)) const {
    if (match == nullptr) return nullptr;
    for (VaVariable* v : items_) {
        if (match(v) != 0) return v;
    }
    return nullptr;
}

// ---- VaVars -----------------------------------------------------------------------------------

VaVars::VaVars() = default;
VaVars::~VaVars() {
    list_.DeleteAll();
}

const KeyFinder& VaVars::Keys() {
    // Variables are only ever added (Unset keeps them), so the count tells whether the list
    // changed.
    if (keys_ == nullptr || keys_->Count() != list_.No())
        keys_ = std::make_unique<KeyFinder>(list_);
    return *keys_;
}

VaVariable* VaVars::Find(const char* name) const {
    if (name == nullptr) return nullptr;
    short i = 0;
    for (VaVariable* v = list_.First(i); v != nullptr; v = list_.Next(i)) {
        if (std::strcmp(v->Name(), name) == 0) return v;
    }
    return nullptr;
}

VaVariable* VaVars::FindOrCreate(const char* name, const char* comment) {
    if (name == nullptr || *name == '\0') return nullptr;
    if (VaVariable* v = Find(name)) return v;
    auto v = std::make_unique<VaVariable>(name, comment);
    if (list_.Add(v.get()) < 0) return nullptr;  // std::bad_alloc frees it as well
    return v.release();
}

void VaVars::Line(const char* a, const char* b, const char* c, const char* d, const char* e) {
    if (protocol_ == nullptr) return;
    for (const char* t : {a, b, c, d, e}) {
        if (t != nullptr) protocol_->Text(t);
    }
    protocol_->EndLine();
}

template <typename T>
bool VaVars::SetValue(const char* name, short type, T value, const char* comment) {
    VaVariable* var = FindOrCreate(name, comment);
    if (var == nullptr) return false;
    VaValue& v = var->Value();
    if (v.type != eVaNone && v.type != type) return false;
    if constexpr (std::is_same_v<T, bool>) v.b = value;
    if constexpr (std::is_same_v<T, short>) v.s = value;
    if constexpr (std::is_same_v<T, long>) v.l = static_cast<int32_t>(value);
    if constexpr (std::is_same_v<T, float>) v.f = value;
    if constexpr (std::is_same_v<T, double>) v.d = value;
    // Moved, not copied: nothing that can fail comes between creating the variable and its value.
    if constexpr (std::is_same_v<T, std::string>) v.text = std::move(value);
    v.type = type;
    v.fromEnv = false;
    if (protocol_ != nullptr) Line("Variables: set '$", name, "' to '", var->Print().c_str(), "'");
    return true;
}

bool VaVars::Set(const char* name, bool value, const char* comment) {
    return SetValue(name, eVaBool, value, comment);
}
bool VaVars::Set(const char* name, short value, const char* comment) {
    return SetValue(name, eVaShort, value, comment);
}
bool VaVars::Set(const char* name, long value, const char* comment) {
    return SetValue(name, eVaLong, value, comment);
}
bool VaVars::Set(const char* name, float value, const char* comment) {
    return SetValue(name, eVaFloat, value, comment);
}
bool VaVars::Set(const char* name, double value, const char* comment) {
    return SetValue(name, eVaDouble, value, comment);
}
bool VaVars::Set(const char* name, const char* value, const char* comment) {
    if (value == nullptr) return false;
    return SetValue(name, eVaText, std::string(value), comment);
}

template <typename T>
bool VaVars::GetValue(const char* name, short type, T VaValue::*field, T& out) {
    const VaVariable* var = Find(name);
    if (var == nullptr || var->Type() != type) return false;
    out = var->Value().*field;
    if (protocol_ != nullptr) Line("Variables: '", name, "' is '", var->Print().c_str(), "'");
    return true;
}

bool VaVars::Get(const char* name, char*& value) {
    const VaVariable* var = Find(name);
    if (var == nullptr || var->Type() == eVaNone) return false;
    const std::string text = var->Print();
    char* copy = NewBlock(text);
    if (copy == nullptr) return false;
    value = copy;
    if (protocol_ != nullptr) Line("Variables: '", name, "' is '", text.c_str(), "'");
    return true;
}
bool VaVars::Get(const char* name, bool& value) {
    return GetValue(name, eVaBool, &VaValue::b, value);
}
bool VaVars::Get(const char* name, short& value) {
    int16_t v = 0;
    if (!GetValue(name, eVaShort, &VaValue::s, v)) return false;
    value = v;
    return true;
}
bool VaVars::Get(const char* name, long& value) {
    int32_t v = 0;
    if (!GetValue(name, eVaLong, &VaValue::l, v)) return false;
    value = v;
    return true;
}
bool VaVars::Get(const char* name, float& value) {
    return GetValue(name, eVaFloat, &VaValue::f, value);
}
bool VaVars::Get(const char* name, double& value) {
    return GetValue(name, eVaDouble, &VaValue::d, value);
}

bool VaVars::SetEnv(const char* name, const char* defaultValue) {
    std::string fallback = defaultValue != nullptr ? defaultValue : "";  // before anything changes
    VaVariable* var = FindOrCreate(name, nullptr);
    if (var == nullptr) return false;
    VaValue& v = var->Value();
    if (v.type != eVaNone && v.type != eVaEnv) return false;
    v.type = eVaEnv;
    if (OsGetEnv(name, nullptr, 0) >= 0) {
        v.text.clear();
        v.text.shrink_to_fit();
        v.fromEnv = true;
        if (protocol_ != nullptr)
            Line("Variables: Environment '", name, "' has value '", EnvValue(name).c_str(), "'");
    } else {
        v.text = std::move(fallback);
        v.fromEnv = false;
        if (protocol_ != nullptr) {
            Line("Variables: No Envrionment value for '", name, "', use default '", v.text.c_str(),
                 "'");
        }
    }
    return true;
}

bool VaVars::IsEnv(const char* name, bool& isEnv) {
    const VaVariable* var = Find(name);
    if (var == nullptr) return false;
    isEnv = var->Type() == eVaEnv;
    return true;
}

bool VaVars::Comment(const char* name, char*& comment) {
    VaVariable* var = Find(name);
    if (var == nullptr) return false;
    if (comment == nullptr) {
        comment = NewBlock(var->GetComment());
        return comment != nullptr;
    }
    var->SetComment(comment);
    if (protocol_ != nullptr)
        Line("Variables: variable's '", name, "' new comment: '", comment, "'");
    return true;
}

bool VaVars::Unset(const char* name) {
    VaVariable* var = Find(name);
    if (var == nullptr) return false;
    VaValue& v = var->Value();
    v = VaValue();
    if (protocol_ != nullptr) Line("Variables: Undefine '", name, "'");
    return true;
}

bool VaVars::Push(const char* name) {
    VaVariable* var = Find(name);
    if (var == nullptr) return false;
    var->Saved().Push(var->Value());
    if (protocol_ != nullptr) Line("Variables: push '", name, "'");
    return true;
}

bool VaVars::Pop(const char* name) {
    VaVariable* var = Find(name);
    if (var == nullptr || !var->Saved().Pop(var->Value())) return false;
    if (protocol_ != nullptr) Line("Variables: pop '", name, "'");
    return true;
}

bool VaVars::PushAll() {
    short i = 0;
    for (VaVariable* v = list_.First(i); v != nullptr; v = list_.Next(i)) Push(v->Name());
    return true;
}

bool VaVars::PopAll() {
    bool all = true;
    short i = 0;
    for (VaVariable* v = list_.First(i); v != nullptr; v = list_.Next(i)) {
        if (!Pop(v->Name())) all = false;
    }
    return all;
}

bool VaVars::ReplaceAll(char* text, short size) {
    if (text == nullptr || size < 1) return false;
    if (std::strchr(text, '$') == nullptr) return true;
    const bool protocol = protocol_ != nullptr && g_protocolSubstitutions;
    const std::string input = protocol ? text : std::string();
    const KeyFinder& keys = Keys();
    std::string key;
    bool replaced = true;
    while (replaced) {
        // One pass: every variable in list order whose key occurs in the text as it is by then.
        replaced = false;
        for (short i = keys.Next(text, 0); i >= 0; i = keys.Next(text, static_cast<short>(i + 1))) {
            const VaVariable* v = keys.Variable(i);
            key.assign(1, '$');
            key += v->Name();
            if (UtSubstSubStr(text, key.c_str(), v->Print().c_str(), size) > 0) replaced = true;
        }
    }
    if (protocol) Line("Variables: substitute '", input.c_str(), "' to '", text, "'");
    return true;
}

VaReplaceResult VaVars::ReplaceAllLimited(std::string& text, int maxPasses, size_t maxLength,
                                          std::string* culprit) {
    if (text.find('$') == std::string::npos) return VaReplaceResult::kDone;
    const bool protocol = protocol_ != nullptr && g_protocolSubstitutions;
    const std::string input = protocol ? text : std::string();
    const KeyFinder& keys = Keys();
    std::string key;
    for (int pass = 0;; ++pass) {
        const VaVariable* first = nullptr;
        for (short i = keys.Next(text, 0); i >= 0; i = keys.Next(text, static_cast<short>(i + 1))) {
            const VaVariable* v = keys.Variable(i);
            key.assign(1, '$');
            key += v->Name();
            bool tooLong = false;
            if (ReplaceIn(text, key, v->Print(), maxLength, tooLong) > 0 && first == nullptr)
                first = v;
            if (tooLong) {
                if (culprit != nullptr) *culprit = v->Name();
                return VaReplaceResult::kTooLong;
            }
        }
        if (first == nullptr) break;
        if (pass >= maxPasses) {
            if (culprit != nullptr) *culprit = first->Name();
            return VaReplaceResult::kPassLimit;
        }
    }
    if (protocol) Line("Variables: substitute '", input.c_str(), "' to '", text.c_str(), "'");
    return VaReplaceResult::kDone;
}

bool VaVars::SetProtocol(const PrProtocol* sink) {
    // The sink is written to; the signature keeps the pointer const for the callers' sake.
    protocol_ = const_cast<PrProtocol*>(sink);
    return true;
}
