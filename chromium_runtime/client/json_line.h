// The small JSON of the bridge's wire: flat objects whose values are strings,
// numbers or booleans, one object per line. Writing escapes strings; reading
// gives every value as text (strings unescaped to UTF-8, others as written).
#pragma once

#include <map>
#include <string>

namespace chromium_runtime {

// Builds one object: JsonLine().text("op", "post").number("seq", 3).line()
class JsonLine {
public:
    JsonLine& text(const char* name, const std::string& utf8Value);
    JsonLine& number(const char* name, double value);
    JsonLine& flag(const char* name, bool value);
    // The object followed by a line feed.
    std::string line() const;

private:
    void key(const char* name);
    std::string body_;
};

// The fields of one flat object; an empty map when the text is not one.
std::map<std::string, std::string> readJsonLine(const std::string& line);

// The value of a JSON string literal ("..."), unescaped, in UTF-8; false when
// the text is not exactly one string literal.
bool readJsonString(const std::string& text, std::string& value);

}  // namespace chromium_runtime
