#include "json_line.h"

#include <cstdio>

namespace chromium_runtime {
namespace {

void appendEscaped(std::string& out, const std::string& value) {
    out += '"';
    for (unsigned char c : value) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (c < 0x20) {
                char escaped[8];
                std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
                out += escaped;
            } else {
                out += static_cast<char>(c);
            }
        }
    }
    out += '"';
}

void appendUtf8(std::string& out, unsigned long code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xc0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3f));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xe0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3f));
        out += static_cast<char>(0x80 | (code & 0x3f));
    } else {
        out += static_cast<char>(0xf0 | (code >> 18));
        out += static_cast<char>(0x80 | ((code >> 12) & 0x3f));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3f));
        out += static_cast<char>(0x80 | (code & 0x3f));
    }
}

bool readHex4(const std::string& text, size_t at, unsigned long& value) {
    if (at + 4 > text.size()) {
        return false;
    }
    value = 0;
    for (size_t i = at; i < at + 4; ++i) {
        const char c = text[i];
        value <<= 4;
        if (c >= '0' && c <= '9') value |= static_cast<unsigned long>(c - '0');
        else if (c >= 'a' && c <= 'f') value |= static_cast<unsigned long>(c - 'a' + 10);
        else if (c >= 'A' && c <= 'F') value |= static_cast<unsigned long>(c - 'A' + 10);
        else return false;
    }
    return true;
}

// Reads the string literal starting at text[at] (a quotation mark); on
// success at is just past its closing quotation mark.
bool readString(const std::string& text, size_t& at, std::string& value) {
    if (at >= text.size() || text[at] != '"') {
        return false;
    }
    value.clear();
    for (size_t i = at + 1; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '"') {
            at = i + 1;
            return true;
        }
        if (c != '\\') {
            value += c;
            continue;
        }
        if (++i >= text.size()) {
            return false;
        }
        switch (text[i]) {
        case 'n': value += '\n'; break;
        case 'r': value += '\r'; break;
        case 't': value += '\t'; break;
        case 'b': value += '\b'; break;
        case 'f': value += '\f'; break;
        case 'u': {
            unsigned long code = 0;
            if (!readHex4(text, i + 1, code)) {
                return false;
            }
            i += 4;
            unsigned long low = 0;
            if (code >= 0xd800 && code < 0xdc00 && i + 2 < text.size() && text[i + 1] == '\\' &&
                text[i + 2] == 'u' && readHex4(text, i + 3, low) && low >= 0xdc00 && low < 0xe000) {
                code = 0x10000 + ((code - 0xd800) << 10) + (low - 0xdc00);
                i += 6;
            }
            appendUtf8(value, code);
            break;
        }
        default: value += text[i];
        }
    }
    return false;
}

void skipSpace(const std::string& text, size_t& at) {
    while (at < text.size() && (text[at] == ' ' || text[at] == '\t' || text[at] == '\r' || text[at] == '\n')) {
        ++at;
    }
}

}  // namespace

void JsonLine::key(const char* name) {
    body_ += body_.empty() ? "" : ",";
    appendEscaped(body_, name);
    body_ += ':';
}

JsonLine& JsonLine::text(const char* name, const std::string& utf8Value) {
    key(name);
    appendEscaped(body_, utf8Value);
    return *this;
}

JsonLine& JsonLine::number(const char* name, double value) {
    key(name);
    char text[40];
    std::snprintf(text, sizeof text, "%.17g", value);
    body_ += text;
    return *this;
}

JsonLine& JsonLine::flag(const char* name, bool value) {
    key(name);
    body_ += value ? "true" : "false";
    return *this;
}

std::string JsonLine::line() const { return "{" + body_ + "}\n"; }

std::map<std::string, std::string> readJsonLine(const std::string& line) {
    std::map<std::string, std::string> fields;
    size_t at = 0;
    skipSpace(line, at);
    if (at >= line.size() || line[at] != '{') {
        return {};
    }
    ++at;
    for (;;) {
        skipSpace(line, at);
        if (at < line.size() && line[at] == '}') {
            return fields;
        }
        std::string name;
        if (!readString(line, at, name)) {
            return {};
        }
        skipSpace(line, at);
        if (at >= line.size() || line[at] != ':') {
            return {};
        }
        ++at;
        skipSpace(line, at);
        std::string value;
        if (at < line.size() && line[at] == '"') {
            if (!readString(line, at, value)) {
                return {};
            }
        } else {
            // A number, true, false or null: one token up to a separator.
            const size_t start = at;
            while (at < line.size() &&
                   std::string(",} \t\r\n").find(line[at]) == std::string::npos) {
                ++at;
            }
            value = line.substr(start, at - start);
            if (value.empty()) {
                return {};
            }
        }
        fields[name] = value;
        skipSpace(line, at);
        if (at < line.size() && line[at] == ',') {
            ++at;
        } else if (at < line.size() && line[at] == '}') {
            return fields;
        } else {
            return {};
        }
    }
}

bool readJsonString(const std::string& text, std::string& value) {
    size_t at = 0;
    skipSpace(text, at);
    if (!readString(text, at, value)) {
        return false;
    }
    skipSpace(text, at);
    return at == text.size();
}

}  // namespace chromium_runtime
