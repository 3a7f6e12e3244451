#include "tirpc_recording.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>

namespace tirpc_recording {

namespace {

constexpr size_t kShortBytes = 256;  // encodings up to this long are kept byte for byte

std::string Path() {
    const char* dir = std::getenv("KBASE_SOURCE_DIR");
    return std::string(dir != nullptr ? dir : ".") + "/tests/streams/tirpc_recording.txt";
}

uint64_t Mix(uint64_t h, const void* data, size_t n) {
    const auto* p = static_cast<const unsigned char*>(data);
    for (size_t i = 0; i < n; ++i) h = (h ^ p[i]) * 0x100000001B3ULL;  // FNV-1a
    return h;
}

void WriteHex(std::ostream& out, uint64_t v) {
    char buf[20];
    std::snprintf(buf, sizeof buf, "%016llX", static_cast<unsigned long long>(v));
    out << buf;
}

std::map<uint64_t, Entry> Load() {
    std::map<uint64_t, Entry> entries;
    std::ifstream in(Path());
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        std::string key, digest, hex;
        Entry e;
        fields >> key >> e.length >> digest >> hex;
        e.digest = std::stoull(digest, nullptr, 16);
        for (size_t i = 0; i + 1 < hex.size(); i += 2) {
            e.bytes.push_back(
                static_cast<unsigned char>(std::stoul(hex.substr(i, 2), nullptr, 16)));
        }
        entries[std::stoull(key, nullptr, 16)] = e;
    }
    return entries;
}

// The recording as read, and what this run's encodings were (written out when recording).
struct State {
    std::map<uint64_t, Entry> recorded = Load();
    std::map<uint64_t, Entry> seen;
    ~State() {
        if (!Recording() || seen.empty()) return;
        std::ofstream out(Path(), std::ios::trunc);
        out << "# libtirpc's encodings of the XDR tests' items, recorded on POSIX; see "
               "tirpc_recording.h.\n# items-digest length bytes-digest [bytes]\n";
        for (const auto& [key, e] : seen) {
            WriteHex(out, key);
            out << ' ' << e.length << ' ';
            WriteHex(out, e.digest);
            if (!e.bytes.empty()) out << ' ';
            for (const unsigned char b : e.bytes) {
                char buf[4];
                std::snprintf(buf, sizeof buf, "%02X", b);
                out << buf;
            }
            out << '\n';
        }
    }
};

State& TheState() {
    static State state;
    return state;
}

}  // namespace

uint64_t Digest(const unsigned char* data, size_t n) {
    return Mix(0xCBF29CE484222325ULL, data, n);
}

uint64_t KeyOf(const std::vector<tirpc_oracle::Item>& items) {
    uint64_t h = 0xCBF29CE484222325ULL;
    for (const tirpc_oracle::Item& item : items) {
        const auto kind = static_cast<unsigned char>(item.kind);
        h = Mix(h, &kind, 1);
        h = Mix(h, &item.i, sizeof item.i);
        h = Mix(h, &item.u, sizeof item.u);
        h = Mix(h, &item.f, sizeof item.f);
        h = Mix(h, &item.d, sizeof item.d);
        const uint64_t size = item.s.size();
        h = Mix(h, &size, sizeof size);
        h = Mix(h, item.s.data(), item.s.size());
    }
    return h;
}

const Entry* Find(uint64_t key) {
    const auto& recorded = TheState().recorded;
    const auto it = recorded.find(key);
    return it != recorded.end() ? &it->second : nullptr;
}

bool Recording() {
    return std::getenv("KBASE_XDR_RECORD") != nullptr;
}

bool Check(uint64_t key, const std::vector<unsigned char>& bytes) {
    Entry e;
    e.length = bytes.size();
    e.digest = Digest(bytes.data(), bytes.size());
    if (bytes.size() <= kShortBytes) e.bytes = bytes;
    TheState().seen[key] = e;
    if (Recording()) return true;
    const Entry* r = Find(key);
    if (r != nullptr && r->length == e.length && r->digest == e.digest && r->bytes == e.bytes) {
        return true;
    }
    std::fprintf(stderr, "%s: libtirpc's encoding of these items is %s; regenerate it (%s)\n",
                 Path().c_str(), r == nullptr ? "not recorded" : "another",
                 "see tests/streams/tirpc_recording.h");
    return false;
}

}  // namespace tirpc_recording
