// The two shared text conversions between UTF-8 (log, datagrams, files) and
// UTF-16 (paths, window texts, page messages). Invalid UTF-8 becomes U+FFFD,
// an unpaired surrogate the UTF-8 form of U+FFFD.
#pragma once

#include <cstddef>
#include <string>

// The platform's conversions take lengths as 32-bit signed numbers.
bool fitsPlatformLength(size_t length);

// The whole text converted; false, with an empty result, when its length is
// more than the platform's conversions can take or the conversion fails.
bool utf8ToWideWhole(const char* text, size_t length, std::wstring& wide);
bool wideToUtf8Whole(const wchar_t* text, size_t length, std::string& narrow);

// The short forms give an empty text where the whole forms refuse.
std::wstring utf8ToWide(const std::string& text);
std::string wideToUtf8(const std::wstring& text);
