#include "orvcam/Description.h"

#include <algorithm>
#include <unordered_set>

namespace orv::cam {

namespace {

constexpr std::size_t kMostWarnings = 100;

bool IsHard(const Reference &reference)
{
    return ClassOf(reference.link) != LinkClass::Loose;
}

/// Marks unusable nodes: first those that are wrong by themselves, then all that need one of them.
///
/// Without recursion throughout: the depth of the references is what a hostile description chooses.
class Checker {
public:
    explicit Checker(Description &description)
        : m_description(description), m_nodes(description.nodes), m_users(m_nodes.size()), m_parts(m_nodes.size())
    {
    }

    void Run()
    {
        Resolve();
        FindDangling();
        FindLoops();
        SpreadToUsers();
        LinkSelectors();
    }

private:
    void Refuse(int index, const std::string &problem)
    {
        NodeFacts &node = m_nodes[index];
        if (!node.Usable())
            return;
        node.problem = problem;
        m_refused.push_back(index);
        if (node.parent >= 0 && !m_nodes[node.parent].Usable())
            return; // its owner's warning says enough
        const std::string owner = node.parent >= 0 ? m_nodes[node.parent].name + "/" : std::string();
        m_description.Warn("\"" + owner + node.name + "\" was left out: " + problem);
    }

    void Resolve()
    {
        for (std::size_t i = 0; i < m_nodes.size(); ++i) {
            if (!m_nodes[i].Usable())
                m_refused.push_back(static_cast<int>(i));
            if (m_nodes[i].parent >= 0)
                m_parts[m_nodes[i].parent].push_back(static_cast<int>(i));
            for (Reference &reference : m_nodes[i].references) {
                if (reference.target < 0) {
                    const auto found = m_description.byName.find(reference.name);
                    if (found != m_description.byName.end())
                        reference.target = found->second;
                }
                if (reference.target >= 0 && IsHard(reference))
                    m_users[reference.target].push_back(static_cast<int>(i));
            }
        }
    }

    void FindDangling()
    {
        for (std::size_t i = 0; i < m_nodes.size(); ++i) {
            for (const Reference &reference : m_nodes[i].references) {
                if (reference.target < 0 && IsHard(reference)) {
                    Refuse(static_cast<int>(i), "it needs \"" + reference.name + "\", which does not exist");
                    break;
                }
            }
        }
    }

    /// Peels off nodes whose values need no value that is still there. What cannot be peeled off is in a loop or leads
    /// into one. On the way, depth and cost of each evaluation add up.
    void FindLoops()
    {
        const std::size_t count = m_nodes.size();
        std::vector<int> open(count, 0);
        std::vector<int> depth(count, 1);
        std::vector<std::uint64_t> cost(count);
        std::vector<std::vector<int>> readers(count);
        for (std::size_t i = 0; i < count; ++i) {
            cost[i] = 1 + m_nodes[i].formulaBytes / kFormulaBytesPerValue;
            for (const Reference &reference : m_nodes[i].references) {
                if (reference.target >= 0 && ClassOf(reference.link) == LinkClass::Evaluated) {
                    readers[reference.target].push_back(static_cast<int>(i));
                    ++open[i];
                }
            }
        }
        std::vector<int> ready;
        for (std::size_t i = 0; i < count; ++i) {
            if (open[i] == 0)
                ready.push_back(static_cast<int>(i));
        }
        while (!ready.empty()) {
            const int index = ready.back();
            ready.pop_back();
            if (depth[index] > kMaxEvaluationDepth || cost[index] > kMaxEvaluationCost)
                Refuse(index, "too many values stand behind its value");
            for (const int reader : readers[index]) {
                depth[reader] = std::min(std::max(depth[reader], depth[index] + 1), kMaxEvaluationDepth + 1);
                cost[reader] = std::min(cost[reader] + cost[index], kMaxEvaluationCost + 1);
                if (--open[reader] == 0)
                    ready.push_back(reader);
            }
        }
        for (std::size_t i = 0; i < count; ++i) {
            if (open[i] == 0)
                continue;
            // Each name costs a walk, and a chain into one loop may be as long as the description.
            const bool isTold = !m_description.IsFullOfWarnings();
            const std::string loop = isTold ? " (" + NameLoop(static_cast<int>(i), open) + ")" : std::string();
            Refuse(static_cast<int>(i), "its value depends on itself" + loop);
        }
    }

    /// The loop that a node is in or leads into: "A -> B -> A". Every node left over has a target left over.
    std::string NameLoop(int from, const std::vector<int> &open) const
    {
        std::vector<int> path;
        std::unordered_set<int> seen;
        int at = from;
        while (seen.insert(at).second) {
            path.push_back(at);
            for (const Reference &reference : m_nodes[at].references) {
                if (reference.target >= 0 && open[reference.target] > 0 &&
                    ClassOf(reference.link) == LinkClass::Evaluated) {
                    at = reference.target;
                    break;
                }
            }
        }
        const auto start = std::find(path.begin(), path.end(), at);
        constexpr std::ptrdiff_t kMostNamed = 8;
        std::string text;
        for (auto node = start; node != path.end(); ++node) {
            if (node - start == kMostNamed) {
                text += "... -> ";
                break;
            }
            text += m_nodes[*node].name + " -> ";
        }
        return text + m_nodes[at].name;
    }

    void SpreadToUsers()
    {
        while (!m_refused.empty()) {
            const int index = m_refused.back();
            m_refused.pop_back();
            // A second node of a name was never the one that others mean.
            for (const int user : m_users[index])
                Refuse(user, "it needs \"" + m_nodes[index].name + "\", which was left out");
            for (const int part : m_parts[index])
                Refuse(part, "it is part of \"" + m_nodes[index].name + "\", which was left out");
        }
    }

    void LinkSelectors()
    {
        for (std::size_t i = 0; i < m_nodes.size(); ++i) {
            for (const Reference &reference : m_nodes[i].references) {
                if (reference.link != Link::Selected || reference.target < 0 || !m_nodes[i].Usable())
                    continue;
                auto &selectedBy = m_nodes[reference.target].selectedBy;
                if (selectedBy.empty() || selectedBy.back() != static_cast<int>(i))
                    selectedBy.push_back(static_cast<int>(i));
            }
        }
    }

    Description &m_description;
    std::vector<NodeFacts> &m_nodes;
    std::vector<std::vector<int>> m_users; ///< by node: who cannot do without it
    std::vector<std::vector<int>> m_parts; ///< by node: what is nested in it
    std::vector<int> m_refused;            ///< not yet spread to their users
};

} // namespace

void Description::Warn(const std::string &text)
{
    if (warnings.size() < kMostWarnings) {
        warnings.push_back(text);
        for (char &c : warnings.back()) // names may hold line ends, and a warning is one line of the log
            c = static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
    } else if (warnings.size() == kMostWarnings) {
        warnings.push_back("there are more problems than are listed");
    }
}

bool Description::IsFullOfWarnings() const
{
    return warnings.size() >= kMostWarnings;
}

void CheckReferences(Description *description)
{
    Checker(*description).Run();
}

const Reference *NodeFacts::Find(Link link) const
{
    for (const Reference &reference : references) {
        if (reference.link == link)
            return &reference;
    }
    return nullptr;
}

const NodeFacts *Description::Find(const std::string &name) const
{
    const auto found = byName.find(name);
    if (found == byName.end() || !nodes[found->second].Usable())
        return nullptr;
    return &nodes[found->second];
}

std::vector<Description::Listed> Description::Tree() const
{
    std::vector<Listed> tree;
    const auto root = byName.find("Root");
    if (root == byName.end())
        return tree;
    struct Pending {
        int index;
        int level;
    };
    std::vector<bool> seen(nodes.size(), false);
    std::vector<Pending> pending = {{root->second, -1}};
    while (!pending.empty()) {
        const Pending at = pending.back();
        pending.pop_back();
        const NodeFacts &node = nodes[at.index];
        if (seen[at.index] || !node.Usable())
            continue;
        seen[at.index] = true;
        if (at.level >= 0)
            tree.push_back({&node, at.level});
        if (node.kind != NodeKind::Category)
            continue;
        for (auto reference = node.references.rbegin(); reference != node.references.rend(); ++reference) {
            if (reference->link == Link::Feature && reference->target >= 0)
                pending.push_back({reference->target, at.level + 1});
        }
    }
    return tree;
}

std::vector<std::string> Description::FeatureNames() const
{
    std::vector<std::string> names;
    for (const Listed &listed : Tree()) {
        if (listed.node->kind != NodeKind::Category)
            names.push_back(listed.node->name);
    }
    return names;
}

} // namespace orv::cam
