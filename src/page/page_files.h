// The page's two files in the documents folder: which names are allowed, where
// they lie, and whole-file reads and replacing writes (a ".tmp" file moved
// over the target, so a reader never sees a half-written page file).
#pragma once

#include <string>

bool isPageFileName(const std::wstring& name);
std::wstring pageFilePath(const std::wstring& name);

// True when the file could be opened; bytes is then its whole content.
bool readWholeFile(const std::wstring& path, std::string& bytes);

// True exactly when the ".tmp" file was moved over path.
bool writeFileReplacing(const std::wstring& path, const std::string& bytes);
