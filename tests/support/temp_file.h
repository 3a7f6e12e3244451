// A file in the temporary folder for one test, removed when the object goes: what the tests use
// where POSIX would offer a memory stream (the Windows C runtime has none). Header only.
#pragma once

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "basert/files.h"
#include "test_support.h"

namespace kbase_test {

class TempFile {
  public:
    // The name is made unique per process and object; its last part is name.
    explicit TempFile(const std::string& name) {
        static int count = 0;
        char dir[512];
        UtGetTempDir(dir, sizeof dir);
        path_ = std::string(dir) + "kbase_" + std::to_string(ProcessId()) + "_" +
                std::to_string(++count) + "_" + name;
    }
    ~TempFile() { std::remove(path_.c_str()); }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    const std::string& path() const { return path_; }
    const char* c_str() const { return path_.c_str(); }

    std::string Text() const {
        std::ifstream in(path_, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    std::vector<unsigned char> Bytes() const {
        const std::string text = Text();
        return std::vector<unsigned char>(text.begin(), text.end());
    }
    void Write(const void* data, size_t n) const {
        std::ofstream out(path_, std::ios::binary | std::ios::trunc);
        out.write(static_cast<const char*>(data), static_cast<std::streamsize>(n));
    }
    void WriteText(const std::string& text) const { Write(text.data(), text.size()); }
    void Write(const std::vector<unsigned char>& bytes) const { Write(bytes.data(), bytes.size()); }

  private:
    std::string path_;
};

}  // namespace kbase_test
