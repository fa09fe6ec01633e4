#pragma once

#include "orvimage/Convert.h"

#include <cstdint>
#include <vector>

namespace orv {

/// What one conversion made: the window's pixels and the view they were made for.
struct Picture {
    std::vector<std::uint32_t> pixels; ///< 0xffRRGGBB, width * height
    int width = 0;
    int height = 0;
    ViewTransform view{1, 0, 0};
    std::uint64_t viewNumber = 0; ///< which state of the view
};

/// Three pictures, so that one can be shown and painted from while the next is made, without copies or waiting.
///
/// The bookkeeping is guarded by the owner's mutex. The picture from Back() belongs to its one maker until Show(); the
/// one from BeginPaint() stays as it is until EndPaint().
class Pictures {
public:
    /// A picture that is neither shown nor being painted.
    Picture &Back()
    {
        int index = 0;
        while (index == m_shown || index == m_painted)
            ++index;
        return m_pictures[index];
    }

    void Show(const Picture &picture) { m_shown = static_cast<int>(&picture - m_pictures); }
    void Hide() { m_shown = -1; }

    /// The shown picture, null when there is none.
    const Picture *Shown() const { return m_shown < 0 ? nullptr : &m_pictures[m_shown]; }

    const Picture *BeginPaint()
    {
        m_painted = m_shown;
        return Shown();
    }
    void EndPaint() { m_painted = -1; }

private:
    Picture m_pictures[3];
    int m_shown = -1;
    int m_painted = -1;
};

} // namespace orv
