#pragma once

#include <utility>

namespace nuvark {

/// Undoes, when its scope is left by whatever way, what had been done so far; unless dismissed, since all went well.
template <class Undo> class Rollback {
public:
    explicit Rollback(Undo undo) : m_undo(std::move(undo)) {}
    ~Rollback()
    {
        if (m_armed)
            m_undo();
    }
    Rollback(const Rollback &) = delete;
    Rollback &operator=(const Rollback &) = delete;

    void Dismiss() { m_armed = false; }

private:
    Undo m_undo;
    bool m_armed = true;
};

} // namespace nuvark
