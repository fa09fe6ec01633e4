#pragma once

#include <set>
#include <string>

namespace orvsim {

/// What is wrong with a formula; empty when every consumer reads it alike: each operand that is an operation stands in
/// parentheses, all operators, functions and numbers are the standard's, all names are among `names`.
/// \param isInteger  the formula computes in integers, so its numbers must be integers.
std::string FormulaProblem(const std::string &formula, const std::set<std::string> &names, bool isInteger);

/// Whether a variable may have that name: a letter, then letters, digits, underscores; no function or constant.
bool IsVariableName(const std::string &name);

} // namespace orvsim
