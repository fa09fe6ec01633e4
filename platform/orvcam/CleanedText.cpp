#include "orvcam/CleanedText.h"

namespace orv::cam {

std::size_t CleanedText::BeginCut(std::size_t begin, int node, int reference)
{
    m_cuts.push_back({begin, begin, node, reference});
    return m_cuts.size() - 1;
}

void CleanedText::EndCut(std::size_t cut)
{
    if (cut != kNoCut)
        m_cuts[cut].end = m_text.size();
}

std::string CleanedText::Without(const std::vector<NodeFacts> &nodes) const
{
    const auto mustGo = [&nodes](const Cut &cut) {
        const NodeFacts &node = nodes[cut.node];
        if (cut.reference < 0)
            return !node.Usable();
        const int target = node.references[cut.reference].target;
        return target < 0 || !nodes[target].Usable();
    };
    std::string cleaned;
    cleaned.reserve(m_text.size());
    std::size_t at = 0;
    for (const Cut &cut : m_cuts) {
        if (cut.begin < at || !mustGo(cut))
            continue; // inside a piece that is already gone, or good
        cleaned.append(m_text, at, cut.begin - at);
        at = cut.end;
    }
    return cleaned.append(m_text, at, std::string::npos);
}

} // namespace orv::cam
