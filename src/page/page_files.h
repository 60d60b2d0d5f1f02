// The page's two files in the documents folder: which names are allowed, where
// they lie, and whole-file reads and replacing writes (a ".tmp" file moved
// over the target, so a reader never sees a half-written page file).
#pragma once

#include <cstdio>
#include <string>

bool isPageFileName(const std::wstring& name);
std::wstring pageFilePath(const std::wstring& name);

// True when the file could be opened and read to its end; bytes is then its
// whole content. Otherwise bytes is left as it was.
bool readWholeFile(const std::wstring& path, std::string& bytes);

// The rest of an open stream; false, with bytes left as they were, when a
// read fails before its end.
bool readWholeStream(FILE* file, std::string& bytes);

// True exactly when the ".tmp" file was moved over path.
bool writeFileReplacing(const std::wstring& path, const std::string& bytes);
