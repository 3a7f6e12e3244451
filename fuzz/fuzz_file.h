// A temporary file holding the fuzz input, for readers that take a path.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

class FuzzFile {
  public:
    FuzzFile(const uint8_t* data, size_t size) {
        const char* dir = std::getenv("TMPDIR");
        path_ = std::string(dir != nullptr ? dir : "/tmp") + "/kbase_fuzz_" +
                std::to_string(getpid()) + ".csv";
        // A plain descriptor: a stream would allocate (and the sanitizer fill) a buffer each time.
        const int fd = open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (fd < 0) std::abort();
        if (size != 0 && write(fd, data, size) != static_cast<ssize_t>(size)) std::abort();
        close(fd);
    }
    ~FuzzFile() { std::remove(path_.c_str()); }
    const std::string& path() const { return path_; }

  private:
    std::string path_;
};
