// Runs a pandas snippet in /usr/bin/python3 and returns the seconds it reports for the timed
// part (the interpreter's start and the imports are not timed).
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

inline double RunPythonTimed(const std::string& script) {
    const std::string cmd = "/usr/bin/python3 - <<'KBASE_PY'\n" + script + "\nKBASE_PY\n";
    FILE* p = popen(cmd.c_str(), "r");
    if (p == nullptr) return -1.0;
    char buf[128] = {0};
    std::string out;
    while (std::fgets(buf, sizeof buf, p) != nullptr) out = buf;  // the last line holds the time
    const int rc = pclose(p);
    return rc == 0 ? std::atof(out.c_str()) : -1.0;
}

inline std::string TempPath(const char* name) {
    const char* dir = std::getenv("TMPDIR");
    return std::string(dir != nullptr ? dir : "/tmp") + "/" + name;
}
