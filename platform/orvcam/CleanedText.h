#pragma once

#include "orvcam/Description.h"

#include <string>
#include <vector>

namespace orv::cam {

/// A description written anew, with places that can still go.
///
/// What will have to go is known only when all references are: so each node and each loose reference is marked as it is
/// written, and Without() copies around those that did not pass.
class CleanedText {
public:
    static constexpr std::size_t kNoCut = ~std::size_t{0};

    void Append(const std::string &text) { m_text += text; }
    std::size_t Bytes() const { return m_text.size(); }

    /// Marks a piece that goes with its node, or with one reference of it. An outer one before those inside it.
    /// \param begin      where the piece begins, at most Bytes().
    /// \param reference  index into the node's references; -1 for the whole node.
    /// \return its number for EndCut().
    std::size_t BeginCut(std::size_t begin, int node, int reference = -1);
    /// The piece ends here. \param cut  kNoCut: nothing happens.
    void EndCut(std::size_t cut);

    /// The text without what turned out unusable.
    std::string Without(const std::vector<NodeFacts> &nodes) const;

private:
    struct Cut {
        std::size_t begin = 0;
        std::size_t end = 0;
        int node = -1;
        int reference = -1;
    };

    std::string m_text;
    std::vector<Cut> m_cuts;
};

} // namespace orv::cam
