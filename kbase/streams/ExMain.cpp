#include "kbase/streams/ExMain.h"

#include <utility>

namespace kbase {

ExMain::ExMain(std::string message, int code) : message_(std::move(message)), code_(code) {}

ExMain::ExMain(const char* module, int line, const char* text, int code)
    : message_(LocationPrefix(module, line) + (text != nullptr ? text : "")), code_(code) {}

// Out of line so that the type information lives in this library only.
ExMain::~ExMain() = default;
ExRead::~ExRead() = default;
ExWrite::~ExWrite() = default;
ExOpen::~ExOpen() = default;
ExMem::~ExMem() = default;

std::string ExMain::LocationPrefix(const char* module, int line) {
    return "in file \"" + std::string(module != nullptr ? module : "") + "\" at line " +
           std::to_string(line) + ": ";
}

}  // namespace kbase
