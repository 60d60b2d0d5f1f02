// Replaces one function that the test program imports from a system DLL, for
// the lifetime of an ImportPatch. The program's own code calls system
// functions through the import table of this executable, so a test can make a
// call fail that the system will not fail on request (GetClientRect on a
// window that still exists, for instance). Restored on destruction.
#pragma once

#include <windows.h>

class ImportPatch {
public:
    ImportPatch(const char* dll, const char* function, void* replacement);
    ~ImportPatch();
    ImportPatch(const ImportPatch&) = delete;
    ImportPatch& operator=(const ImportPatch&) = delete;

    // Whether the import was found and replaced.
    bool applied() const { return slot_ != nullptr; }
    // The function that was there before.
    void* original() const { return original_; }

private:
    void** slot_ = nullptr;
    void* original_ = nullptr;
};
