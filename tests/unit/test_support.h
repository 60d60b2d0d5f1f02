// Helpers shared by the unit tests: scratch files and folders, a scratch log
// file that the program's logLine writes to, and reading them back.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace test_support {

// A fresh path in the temporary folder (the file does not exist yet).
std::wstring scratchPath(const std::wstring& name);

// The whole file as bytes; empty when it does not exist.
std::string readBytes(const std::wstring& path);
bool fileExists(const std::wstring& path);
void writeBytes(const std::wstring& path, const std::string& bytes);

// The log's message texts (prefix and CR LF removed), in order.
std::vector<std::string> logMessages(const std::wstring& path);

// A fresh folder in the temporary folder, removed with everything in it.
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    std::wstring file(const std::wstring& name) const { return path + L"\\" + name; }
    std::wstring path;
};

// Points host.logPath at a fresh scratch file for the life of the object.
class ScratchLog {
public:
    ScratchLog();
    ~ScratchLog();
    std::vector<std::string> messages() const { return logMessages(path); }
    std::string bytes() const { return readBytes(path); }
    std::wstring path;

private:
    std::wstring previous;
};

}  // namespace test_support
