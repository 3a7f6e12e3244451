// Helpers of the program's tests: running the recode job on text in memory, and a scratch folder.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include "recode.h"

namespace kbase_tool_test {

namespace fs = std::filesystem;

struct RecodeRun {
    int rc;
    std::string out, err;
};

// Runs the job with "-" bound to the text and to a string.
inline RecodeRun RunRecode(const kbase_tool::RecodeOptions& o, const std::string& input = "") {
    std::istringstream in(input);
    std::ostringstream out, err;
    const int rc = kbase_tool::Recode(o, in, out, err);
    return RecodeRun{rc, out.str(), err.str()};
}

inline kbase_tool::RecodeOptions Pipe(int from, int to, int64_t blockSize = int64_t{1} << 20) {
    kbase_tool::RecodeOptions o;
    o.from = from;
    o.to = to;
    o.blockSize = blockSize;
    return o;
}

inline std::string ReadFile(const fs::path& p) {
    std::ifstream f(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

inline void WriteFile(const fs::path& p, const std::string& bytes) {
    std::ofstream(p, std::ios::binary | std::ios::trunc) << bytes;
}

// An empty folder of its own for one test, removed afterwards.
class ScratchDir {
public:
    ScratchDir() {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        path_ = fs::temp_directory_path() /
                ("kbase_" + std::string(info->test_suite_name()) + "_" + info->name());
        fs::remove_all(path_);
        fs::create_directories(path_);
    }
    ~ScratchDir() {
        std::error_code ec;
        fs::remove_all(path_, ec);
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    fs::path operator/(const std::string& name) const { return path_ / name; }
    const fs::path& path() const { return path_; }
    // The number of entries in the folder (a temporary file left behind shows up here).
    long Entries() const {
        return std::distance(fs::directory_iterator(path_), fs::directory_iterator());
    }

private:
    fs::path path_;
};

}  // namespace kbase_tool_test
