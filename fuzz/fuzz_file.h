// A temporary file holding the fuzz input, for readers that take a path.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

class FuzzFile {
public:
    FuzzFile(const uint8_t* data, size_t size) {
        const char* dir = std::getenv("TMPDIR");
        path_ = std::string(dir != nullptr ? dir : "/tmp") + "/kbase_fuzz_" + std::to_string(getpid()) + ".csv";
        FILE* f = std::fopen(path_.c_str(), "wb");
        if (f == nullptr) std::abort();
        if (size != 0 && std::fwrite(data, 1, size, f) != size) std::abort();
        std::fclose(f);
    }
    ~FuzzFile() { std::remove(path_.c_str()); }
    const std::string& path() const { return path_; }

private:
    std::string path_;
};
