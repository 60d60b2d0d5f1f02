// The two shared text conversions between UTF-8 (log, datagrams, files) and
// UTF-16 (paths, window texts, page messages). Invalid UTF-8 becomes U+FFFD,
// an unpaired surrogate the UTF-8 form of U+FFFD.
#pragma once

#include <string>

std::wstring utf8ToWide(const std::string& text);
std::string wideToUtf8(const std::wstring& text);
