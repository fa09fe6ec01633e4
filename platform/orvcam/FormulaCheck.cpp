#include "orvcam/FormulaCheck.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>

namespace orv::cam {

namespace {

constexpr int kMaxDivisionDepth = 32; ///< of divisions in the divisor of others; each level doubles the text at least

bool IsDigit(char c)
{
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

bool IsNameStart(char c)
{
    return (static_cast<unsigned char>(c) < 0x80 && std::isalpha(static_cast<unsigned char>(c)) != 0) || c == '_';
}

bool IsNamePart(char c)
{
    return IsNameStart(c) || IsDigit(c);
}

bool IsFunction(std::string name)
{
    constexpr std::array kFunctions = {"SIN", "COS", "TAN", "ASIN", "ACOS",  "ATAN",  "SGN",   "NEG", "ABS",
                                       "EXP", "LN",  "LG",  "SQRT", "TRUNC", "ROUND", "FLOOR", "CEIL"};
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::toupper(c); });
    return std::find(kFunctions.begin(), kFunctions.end(), name) != kFunctions.end();
}

/// End of the number that begins at `at`: "0x1F", "12", "1.5", "2.5e-3".
std::size_t EndOfNumber(const std::string &text, std::size_t at)
{
    const auto digits = [&](std::size_t from) {
        return std::find_if_not(text.begin() + from, text.end(), IsDigit) - text.begin();
    };
    const auto isHex = [](unsigned char c) { return std::isxdigit(c) != 0; };
    if (text[at] == '0' && at + 2 < text.size() && (text[at + 1] | 0x20) == 'x' && isHex(text[at + 2]))
        return std::find_if_not(text.begin() + at + 2, text.end(), isHex) - text.begin();
    std::size_t end = digits(at);
    if (end < text.size() && text[end] == '.')
        end = digits(end + 1);
    if (end < text.size() && (text[end] | 0x20) == 'e') {
        std::size_t exponent = end + 1;
        if (exponent < text.size() && (text[exponent] == '+' || text[exponent] == '-'))
            ++exponent;
        if (exponent < text.size() && IsDigit(text[exponent]))
            end = digits(exponent);
    }
    return end;
}

struct Token {
    enum class Kind { Number, Name, Operator, Open, Close, Question, Colon };
    Kind kind;
    std::string text;
    std::size_t match = 0; ///< of Open: index of the Close
};

bool Is(const Token &token, const char *text)
{
    return token.kind == Token::Kind::Operator && token.text == text;
}

bool MaySign(const Token &token)
{
    return Is(token, "+") || Is(token, "-") || Is(token, "~");
}

/// \return false for a text with other characters.
bool Split(const std::string &text, std::vector<Token> *tokens)
{
    constexpr std::array kLongOperators = {"**", "&&", "||", "<<", ">>", "<>", "<=", ">="};
    using Kind = Token::Kind;
    for (std::size_t at = 0; at < text.size();) {
        const char c = text[at];
        std::size_t end = at + 1;
        Kind kind = Kind::Operator;
        if (std::strchr(" \t\r\n", c) != nullptr && c != '\0') {
            ++at;
            continue;
        }
        if (IsDigit(c)) {
            kind = Kind::Number;
            end = EndOfNumber(text, at);
        } else if (IsNameStart(c)) {
            kind = Kind::Name;
            end = std::find_if_not(text.begin() + at, text.end(), IsNamePart) - text.begin();
        } else if (c == '(' || c == ')') {
            kind = c == '(' ? Kind::Open : Kind::Close;
        } else if (c == '?' || c == ':') {
            kind = c == '?' ? Kind::Question : Kind::Colon;
        } else if (std::find(kLongOperators.begin(), kLongOperators.end(), text.substr(at, 2)) !=
                   kLongOperators.end()) {
            end = at + 2;
        } else if (c == '\0' || std::strchr("+-*/%&|^~<>=", c) == nullptr) {
            return false;
        }
        tokens->push_back({kind, text.substr(at, end - at)});
        at = end;
    }
    return true;
}

/// Whether operands and operators take turns, and parentheses and conditions match. Fills Token::match.
bool IsPlain(std::vector<Token> *tokens)
{
    using Kind = Token::Kind;
    struct Level {
        std::size_t open;
        int questions;
    };
    std::vector<Level> levels = {{0, 0}};
    bool wantsOperand = true;
    for (std::size_t i = 0; i < tokens->size(); ++i) {
        const Token &token = (*tokens)[i];
        if (wantsOperand) {
            const bool isFunction = token.kind == Kind::Name && IsFunction(token.text);
            if (isFunction && (i + 1 == tokens->size() || (*tokens)[i + 1].kind != Kind::Open))
                return false;
            if (token.kind == Kind::Open)
                levels.push_back({i, 0});
            else if (token.kind == Kind::Number || token.kind == Kind::Name)
                wantsOperand = isFunction;
            else if (!MaySign(token))
                return false;
        } else if (token.kind == Kind::Close) {
            if (levels.size() == 1 || levels.back().questions != 0)
                return false;
            (*tokens)[levels.back().open].match = i;
            levels.pop_back();
        } else if (token.kind == Kind::Question || token.kind == Kind::Colon) {
            levels.back().questions += token.kind == Kind::Question ? 1 : -1;
            if (levels.back().questions < 0)
                return false;
            wantsOperand = true;
        } else if (token.kind == Kind::Operator && token.text != "~") {
            wantsOperand = true;
        } else {
            return false; // two operands side by side
        }
    }
    return !wantsOperand && levels.size() == 1 && levels.back().questions == 0;
}

bool HasDangerousDivision(FormulaNumbers numbers, const std::string &text)
{
    return text.find_first_of(numbers == FormulaNumbers::Integers ? "%/" : "%") != std::string::npos;
}

/// Writes a plain formula anew, with its dangerous divisions guarded.
class Rewriter {
public:
    Rewriter(FormulaNumbers numbers, const std::vector<Token> &tokens) : m_numbers(numbers), m_tokens(tokens) {}

    /// \return false when the text becomes too long.
    bool Write(std::size_t begin, std::size_t end, int depth, std::string *out) const
    {
        if (depth > kMaxDivisionDepth)
            return false;
        for (std::size_t i = begin; i < end;) {
            const Token &token = m_tokens[i++];
            const std::size_t divisorEnd = IsDangerous(token) ? EndOfDivisor(i) : i;
            if (divisorEnd == i || IsSmallNumber(i, divisorEnd)) {
                *out += token.text + " ";
            } else {
                std::string divisor;
                if (!Write(i, divisorEnd, depth + 1, &divisor))
                    return false;
                *out += Guarded(token, "(" + divisor + ")");
                i = divisorEnd;
            }
            if (out->size() > kMaxFormulaBytes)
                return false;
        }
        return true;
    }

private:
    bool IsDangerous(const Token &token) const
    {
        return token.kind == Token::Kind::Operator && HasDangerousDivision(m_numbers, token.text);
    }

    /// A divisor reaches over signs and powers.
    std::size_t EndOfDivisor(std::size_t at) const
    {
        for (;; ++at) {
            while (MaySign(m_tokens[at]))
                ++at;
            if (m_tokens[at].kind == Token::Kind::Name && IsFunction(m_tokens[at].text))
                ++at;
            at = m_tokens[at].kind == Token::Kind::Open ? m_tokens[at].match + 1 : at + 1;
            if (at >= m_tokens.size() || !Is(m_tokens[at], "**"))
                return at;
        }
    }

    /// A literal too short to be anything but a positive number.
    bool IsSmallNumber(std::size_t begin, std::size_t end) const
    {
        return end == begin + 1 && m_tokens[begin].kind == Token::Kind::Number && m_tokens[begin].text.size() <= 15;
    }

    /// The library evaluates both sides of a condition, so it is the divisor that has to change.
    static std::string Guarded(const Token &token, const std::string &divisor)
    {
        // The remainder's operands lose their fraction first, and the remainder by 1 is that by -1.
        if (token.text == "%")
            return "% (((" + divisor + " <= (0 - 1)) && (" + divisor + " > (0 - 2))) ? 1 : " + divisor + ") ";
        const std::string isMinusOne = "(" + divisor + " = (0 - 1))";
        return "* (" + isMinusOne + " ? (0 - 1) : 1) / (" + isMinusOne + " ? 1 : " + divisor + ") ";
    }

    const FormulaNumbers m_numbers;
    const std::vector<Token> &m_tokens;
};

} // namespace

bool GuardDivisions(FormulaNumbers numbers, std::string *formula)
{
    std::vector<Token> tokens;
    if (formula->size() > kMaxFormulaBytes || !Split(*formula, &tokens) || !IsPlain(&tokens))
        return false;
    std::string guarded;
    if (!Rewriter(numbers, tokens).Write(0, tokens.size(), 0, &guarded))
        return false;
    if (HasDangerousDivision(numbers, *formula))
        *formula = guarded;
    return true;
}

void FormulaSet::Guard(std::string *text)
{
    m_isTooLong |= text->size() > kMaxFormulaBytes;
    m_divides |= HasDangerousDivision(m_numbers, *text);
    m_isPlain &= GuardDivisions(m_numbers, text);
}

void FormulaSet::AddFormula(std::string *text)
{
    Guard(text);
    m_formulas.push_back(*text);
}

void FormulaSet::AddExpression(const std::string &name, std::string *text)
{
    Guard(text);
    std::size_t &bytes = m_expressionBytes[name];
    bytes = std::max(bytes, text->size() + 2); // it is put in parentheses
}

void FormulaSet::AddConstant(const std::string &text)
{
    // The library takes the first thing in the text, be it an operator.
    m_isPlain &= !text.empty() && IsDigit(text[0]);
    m_divides |= HasDangerousDivision(m_numbers, text);
}

std::size_t FormulaSet::WrittenOutBytes() const
{
    std::size_t bytes = 0;
    for (const std::string &formula : m_formulas) {
        bytes += formula.size();
        for (auto at = formula.begin(); at != formula.end() && bytes <= kMaxFormulaBytes;) {
            const auto end = std::find_if_not(at, formula.end(), IsNamePart);
            const auto expression = m_expressionBytes.find(std::string(at, end));
            bytes += expression != m_expressionBytes.end() ? expression->second : 0;
            at = end == at ? at + 1 : end;
        }
    }
    return bytes;
}

std::string FormulaSet::Problem() const
{
    if (m_isTooLong || WrittenOutBytes() > kMaxFormulaBytes)
        return "its formula is too long";
    return m_divides && !m_isPlain ? "its formula divides in a way that cannot be checked" : std::string();
}

} // namespace orv::cam
