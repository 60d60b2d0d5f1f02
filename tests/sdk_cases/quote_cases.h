// Hard cases for quoting one command-line argument for CommandLineToArgvW:
// each argument and the exact text gra_link_quote_argument makes of it.
// Shared by the native tests (the text) and the Windows tests (the round
// trip through the system's own CommandLineToArgvW).
#pragma once

struct QuoteCase {
    const char* argument;
    const char* quoted;
};

static const QuoteCase quoteCases[] = {
    {"plain", "plain"},
    {"", "\"\""},
    {"two words", "\"two words\""},
    {"  ", "\"  \""},
    {"tab\there", "\"tab\there\""},
    {"line\nfeed", "\"line\nfeed\""},
    {"vertical\vtab", "\"vertical\vtab\""},
    {"say \"hi\"", "\"say \\\"hi\\\"\""},
    {"\"", "\"\\\"\""},
    {"\"\"", "\"\\\"\\\"\""},
    {"a\\\"b", "\"a\\\\\\\"b\""},
    {"a\\\\\"b", "\"a\\\\\\\\\\\"b\""},
    {"C:\\dir\\", "C:\\dir\\"},
    {"C:\\Program Files\\", "\"C:\\Program Files\\\\\""},
    {"C:\\Program Files\\\\", "\"C:\\Program Files\\\\\\\\\""},
    {"\\\\server\\share", "\\\\server\\share"},
    {"\\", "\\"},
    {"\\ ", "\"\\ \""},
    {"end with \\", "\"end with \\\\\""},
    {"a\\b c", "\"a\\b c\""},
    {"--show", "--show"},
    {"Gravos \"Arena\" \\ 2\\", "\"Gravos \\\"Arena\\\" \\ 2\\\\\""},
    {"\xC3\x84rger \xE2\x9C\x93 Spiel", "\"\xC3\x84rger \xE2\x9C\x93 Spiel\""},
    {"'single'", "'single'"},
    {"^&|<>%", "^&|<>%"},
};
