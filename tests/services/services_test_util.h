// Helpers of the services tests: a fixed clock and files in a folder of their own.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "basert/files.h"
#include "kbase/services/UtClock.h"

namespace services_test {

// 2024-05-17 14:03:59 UTC.
constexpr int64_t kFixedTime = 1715954639;

// Sets the clock to a time the test chooses while it lives.
class FixedClock {
  public:
    explicit FixedClock(int64_t t = kFixedTime) {
        now_ = t;
        previous_ = UtSetClock(&Now);
    }
    ~FixedClock() { UtSetClock(previous_); }
    FixedClock(const FixedClock&) = delete;
    FixedClock& operator=(const FixedClock&) = delete;
    static void Set(int64_t t) { now_ = t; }

  private:
    static int64_t Now() { return now_; }
    static inline int64_t now_ = 0;
    UtClockFunction previous_;
};

// A fresh folder in the temporary folder, removed with everything in it when the object goes.
class TempDir {
  public:
    explicit TempDir(const std::string& name) {
        char dir[512];
        UtGetTempDir(dir, sizeof dir);
        path_ = std::filesystem::path(dir) /
                ("kbase_services_" + std::to_string(::getpid()) + "_" + name);
        std::filesystem::remove_all(path_);
        std::filesystem::create_directories(path_);
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::permissions(path_, std::filesystem::perms::owner_all, ec);
        std::filesystem::remove_all(path_, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    std::string File(const std::string& name) const { return (path_ / name).string(); }
    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
};

inline std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace services_test
