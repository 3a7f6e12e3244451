#include "kbase/services/PrProtocol.h"

#include <cstring>
#include <string>

#include "basert/files.h"

PrProtocol::~PrProtocol() = default;

PrFileProtocol::~PrFileProtocol() {
    if (file_ != nullptr) UtFileClose(file_);
}

bool PrFileProtocol::Open(const char* path, bool append) {
    if (file_ != nullptr) Close();
    failed_ = false;
    file_ = UtFileOpen(path, append ? "ab" : "wb");
    return file_ != nullptr;
}

bool PrFileProtocol::Close() {
    if (file_ == nullptr) return false;
    const bool ok = UtFileClose(file_) == 0 && !failed_;
    file_ = nullptr;
    return ok;
}

void PrFileProtocol::Write(const char* data, size_t n) {
    if (file_ == nullptr || failed_) return;
    if (std::fwrite(data, 1, n, file_) != n) failed_ = true;
}

void PrFileProtocol::Text(const char* text) {
    if (text != nullptr) Write(text, std::strlen(text));
}
void PrFileProtocol::Char(char c) {
    Write(&c, 1);
}
void PrFileProtocol::Number(long value) {
    const std::string s = std::to_string(value);
    Write(s.data(), s.size());
}
void PrFileProtocol::EndLine() {
    Write("\n", 1);
}

void PrMemoryProtocol::Text(const char* text) {
    if (text != nullptr) contents_ += text;
}
void PrMemoryProtocol::Char(char c) {
    contents_ += c;
}
void PrMemoryProtocol::Number(long value) {
    contents_ += std::to_string(value);
}
void PrMemoryProtocol::EndLine() {
    contents_ += '\n';
}
