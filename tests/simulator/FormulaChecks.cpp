#include "tests/simulator/FormulaChecks.h"

#include "simulator/features/NumberText.h"

#include <algorithm>
#include <cctype>
#include <vector>

namespace orvsim {

namespace {

const std::set<std::string> kFunctions = {"SGN", "NEG", "ROUND", "TRUNC", "FLOOR", "CEIL", "ABS", "SQRT", "SIN",
                                          "COS", "TAN", "ASIN",  "ACOS",  "ATAN",  "EXP",  "LN",  "LG"};
const std::set<std::string> kConstants = {"E", "PI"};
const std::set<std::string> kOperators = {"+", "-", "*",  "/",  "%",  "**", "&",  "|",  "^", "=",
                                          "<", ">", "<>", "<=", ">=", "<<", ">>", "&&", "||"};

bool IsLetter(char c)
{
    return std::isalpha(static_cast<unsigned char>(c)) != 0;
}
bool IsDigit(char c)
{
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

bool IsNumber(const std::string &token)
{
    return IntegerFrom(token).has_value() || FloatFrom(token).has_value();
}

/// Of the number, name or sign that begins at that place.
std::size_t TokenLength(const std::string &formula, std::size_t at)
{
    std::size_t end = at + 1;
    if (IsLetter(formula[at]) || IsDigit(formula[at])) {
        const bool isDecimal = IsDigit(formula[at]) && formula.compare(at, 2, "0x") != 0;
        const auto continues = [&](char c) {
            const bool isExponentSign = isDecimal && (c == '-' || c == '+') && std::toupper(formula[end - 1]) == 'E';
            return IsLetter(c) || IsDigit(c) || c == '_' || c == '.' || isExponentSign;
        };
        while (end < formula.size() && continues(formula[end]))
            ++end;
        return end - at;
    }
    const std::string two = formula.substr(at, 2);
    return kOperators.count(two) != 0 || two == "==" || two == "!=" ? two.size() : 1;
}

/// Reads operand [operator operand] or operand ? operand : operand. A problem, once found, stays.
class FormulaReader {
public:
    FormulaReader(const std::string &formula, const std::set<std::string> &names, bool isInteger)
        : m_names(names), m_isInteger(isInteger)
    {
        for (std::size_t at = 0; at < formula.size();) {
            const std::size_t length = TokenLength(formula, at);
            if (formula[at] != ' ')
                m_tokens.push_back(formula.substr(at, length));
            at += length;
        }
    }

    std::string Problem()
    {
        Expression();
        if (m_problem.empty() && m_position < m_tokens.size())
            Fail("'" + Next() + "' follows an operation that is not in parentheses");
        return m_problem;
    }

private:
    std::string Next() const { return m_position < m_tokens.size() ? m_tokens[m_position] : std::string(); }
    bool Take(const std::string &token)
    {
        if (Next() != token)
            return false;
        ++m_position;
        return true;
    }
    void Fail(const std::string &problem)
    {
        if (m_problem.empty())
            m_problem = problem;
    }
    void Expect(const std::string &token)
    {
        if (!Take(token))
            Fail("'" + Next() + "' stands where '" + token + "' must");
    }

    void Expression()
    {
        Operand();
        if (kOperators.count(Next()) != 0) {
            ++m_position;
            Operand();
        } else if (Take("?")) {
            Operand();
            Expect(":");
            Operand();
        }
    }

    void Operand()
    {
        const std::string token = Next();
        ++m_position;
        if (!m_problem.empty())
            return;
        if (token == "(") {
            Expression();
            Expect(")");
        } else if (token == "-" || token == "~") {
            Operand();
        } else if (kFunctions.count(token) != 0) {
            Arguments();
        } else if (std::isdigit(static_cast<unsigned char>(token[0])) != 0) {
            if (!(m_isInteger ? IntegerFrom(token).has_value() : IsNumber(token)))
                Fail("'" + token + (m_isInteger ? "' is no integer" : "' is no number"));
        } else if (m_names.count(token) == 0 && kConstants.count(token) == 0) {
            Fail("'" + token + "' is no operand");
        }
    }

    void Arguments()
    {
        Expect("(");
        Expression();
        while (Take(","))
            Expression();
        Expect(")");
    }

    const std::set<std::string> &m_names;
    const bool m_isInteger;
    std::vector<std::string> m_tokens;
    std::size_t m_position = 0;
    std::string m_problem;
};

} // namespace

std::string FormulaProblem(const std::string &formula, const std::set<std::string> &names, bool isInteger)
{
    return FormulaReader(formula, names, isInteger).Problem();
}

bool IsVariableName(const std::string &name)
{
    const bool isPlain = !name.empty() && IsLetter(name[0]) && std::all_of(name.begin(), name.end(), [](char c) {
        return IsLetter(c) || IsDigit(c) || c == '_';
    });
    return isPlain && kFunctions.count(name) == 0 && kConstants.count(name) == 0;
}

} // namespace orvsim
