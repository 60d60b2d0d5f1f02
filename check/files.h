// The few file operations of the check: its report folder and its scratch
// folders (the program's documents, log and browser data for each run).
#pragma once

#include <string>

bool writeFileBytes(const std::wstring& path, const std::string& bytes);
bool readFileBytes(const std::wstring& path, std::string& bytes);
// Creates the folder and any missing parents; true when it exists afterwards.
bool makeFolders(const std::wstring& path);
// Removes a folder and everything in it; a browser that still holds a file
// may keep a part of it, which is not worth failing for.
void removeFolderTree(const std::wstring& path);
// Deletes the files of a folder whose names match a pattern ("*.png").
void deleteFilesMatching(const std::wstring& folder, const std::wstring& pattern);
std::wstring folderOf(const std::wstring& path);
std::wstring fullPath(const std::wstring& path);
