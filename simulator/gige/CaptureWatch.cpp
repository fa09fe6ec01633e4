#include "simulator/gige/CaptureWatch.h"

#include <fstream>

namespace orvsim {

bool CaptureWatch::SomebodyReads(bool now)
{
    constexpr std::chrono::milliseconds kPause(20);
    const auto time = std::chrono::steady_clock::now();
    if (!now && time < m_nextLook)
        return m_somebody;
    m_nextLook = time + kPause;
    std::ifstream list(m_list);
    std::string line;
    m_somebody = std::getline(list, line) && std::getline(list, line);
    return m_somebody;
}

} // namespace orvsim
