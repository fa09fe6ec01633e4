#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

/// What the GenApi library would do with a formula, found out before it gets it.
///
/// The library divides as the processor does: the lowest 64-bit number divided by -1 ends the process. It also writes
/// each named expression out wherever the formula names it, so that a short text can become an endless one.
namespace orv::cam {

/// Texts longer than this, alone or written out, are not evaluated. Real ones stay below 2 KiB.
constexpr std::size_t kMaxFormulaBytes = 64u << 10;

/// How the library computes: an IntSwissKnife in 64-bit integers, all other nodes in doubles but for the remainder.
enum class FormulaNumbers { Integers, Doubles };

/// Rewrites the divisions of a formula that could end the process, so that they have the same result and do not.
///
/// \return false when the text is no formula that every reader understands the same way (operands and operators in
///         turn, matching parentheses, no comma), or becomes longer than kMaxFormulaBytes. It is then unchanged.
bool GuardDivisions(FormulaNumbers numbers, std::string *formula);

/// The texts of one node with formulas, as they are read one by one.
class FormulaSet {
public:
    explicit FormulaSet(FormulaNumbers numbers) : m_numbers(numbers) {}

    /// Takes a formula and puts its divisions right.
    void AddFormula(std::string *text);
    /// Takes a named expression, which formulas may use but no other expression, and puts its divisions right.
    void AddExpression(const std::string &name, std::string *text);
    void AddConstant(const std::string &text);

    /// Length of the formulas with all expressions written out; at most a little more than kMaxFormulaBytes.
    std::size_t WrittenOutBytes() const;
    /// Why the node cannot be evaluated; "" when it can.
    std::string Problem() const;

private:
    void Guard(std::string *text);

    const FormulaNumbers m_numbers;
    std::vector<std::string> m_formulas;
    std::unordered_map<std::string, std::size_t> m_expressionBytes; ///< the longest of a name
    bool m_isPlain = true;
    bool m_divides = false; ///< in a way that could end the process
    bool m_isTooLong = false;
};

} // namespace orv::cam
