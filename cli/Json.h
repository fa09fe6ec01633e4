#pragma once

#include <cstdint>
#include <string>

namespace orvcli {

/// Shortest text that reads back as the same number; a decimal point under every locale. No digits for what is no
/// number: "nan", "inf".
std::string NumberText(double number);

/// Writes JSON from front to back, in one line; what is opened must be closed by whoever opened it.
class Json {
public:
    Json &Open(char bracket); ///< '{' or '['
    Json &Close(char bracket);
    Json &Key(const std::string &key);
    Json &Value(const std::string &text); ///< what is no UTF-8 becomes U+FFFD
    Json &Value(const char *text) { return Value(std::string(text)); }
    Json &Value(bool value);
    Json &Value(double number); ///< null for what JSON has no number for
    Json &Value(std::uint64_t number) { return Raw(std::to_string(number)); }
    Json &Value(std::int64_t number) { return Raw(std::to_string(number)); }
    Json &Null() { return Raw("null"); }
    /// Text that is JSON already.
    Json &Raw(const std::string &json);
    template <class T> Json &Member(const std::string &key, T value) { return Key(key).Value(value); }

    const std::string &Text() const { return m_text; }

private:
    void Separate();

    std::string m_text;
    bool m_isFirst = true; ///< of its object or array, or behind a key
};

} // namespace orvcli
