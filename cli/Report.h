#pragma once

#include "cli/Json.h"
#include "cli/Outcome.h"

#include <string>

namespace orvcli {

/// What a command prints for scripts, value by value. Whatever happens to the command, the last value is whole, and a
/// failure stands in it. One thread.
class Report {
public:
    /// Prints a value of its own, at once. \param problem  what it tells of a failure itself: is not told again.
    void Print(const Json &value, const std::string &problem = {});
    /// The object that the command ends with, open for members.
    Json &Members();
    /// Prints that object where there is one; to a failure's it adds "problem" and "exitCode".
    void End(const Outcome &outcome);

private:
    Json m_members;
    std::string m_toldProblem;
};

} // namespace orvcli
