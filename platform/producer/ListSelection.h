#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace nuvark {

/// Which entry of a list its selector stands at. An update may move entries, so that the one that was selected is
/// remembered by its identifier. Threads: guarded by its owner.
class ListSelection {
public:
    /// \param ids  of the list as it is now, as below.
    void Select(const std::vector<std::string> &ids, std::size_t index)
    {
        m_index = index;
        m_id = index < ids.size() ? ids[index] : "";
    }

    /// \return ids.size() when the entry has gone, or there never was one.
    std::size_t Find(const std::vector<std::string> &ids) const
    {
        if (m_id.empty())
            return std::min(m_index, ids.size());
        return static_cast<std::size_t>(std::find(ids.begin(), ids.end(), m_id) - ids.begin());
    }

    /// What the selector reads: where its entry stands now, or stood before it went.
    std::size_t Index(const std::vector<std::string> &ids) const
    {
        const std::size_t found = Find(ids);
        return found < ids.size() ? found : m_index;
    }

private:
    std::size_t m_index = 0;
    std::string m_id; ///< "" as long as nothing was selected
};

} // namespace nuvark
