#include "cli/Report.h"

#include "cli/Terminal.h"

namespace orvcli {

void Report::Print(const Json &value, const std::string &problem)
{
    PrintLine(value.Text());
    m_toldProblem = problem;
}

Json &Report::Members()
{
    return m_members.Text().empty() ? m_members.Open('{') : m_members;
}

void Report::End(const Outcome &outcome)
{
    if (!outcome.problem.empty() && outcome.problem != m_toldProblem)
        Members().Member("problem", outcome.problem).Member("exitCode", static_cast<std::int64_t>(outcome.code));
    if (!m_members.Text().empty())
        PrintLine(m_members.Close('}').Text());
}

} // namespace orvcli
