// The two JSON text routines of the page bridge. Messages to the page are
// built as text with every variable string put through jsonEscape; fields of
// the page's messages are read with jsonField, a small scanner that is
// deliberately not a parser. Both work on UTF-16 text and are portable C++.
#pragma once

#include <string>

// Escapes text for use inside a JSON string; adds no quotation marks.
std::wstring jsonEscape(const std::wstring& text);

// The value of the first "key" found anywhere in the message: a string value
// decoded and without its quotation marks, any other value as raw text.
// Missing or unreadable: the empty string.
std::wstring jsonField(const std::wstring& message, const std::wstring& key);
