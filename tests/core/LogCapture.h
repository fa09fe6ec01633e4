#pragma once

#include "core/DiagnosticLog.h"

#include <log4cpp/Category.hh>
#include <log4cpp/PatternLayout.hh>
#include <log4cpp/StringQueueAppender.hh>

#include <string>
#include <vector>

/// Collects what is logged under the application's category, as "PRIORITY text", while it lives.
class LogCapture {
public:
    explicit LogCapture(log4cpp::Priority::Value lowest = log4cpp::Priority::DEBUG) : m_appender("capture")
    {
        auto *const layout = new log4cpp::PatternLayout; // the appender's from here on
        layout->setConversionPattern("%p %m");
        m_appender.setLayout(layout);
        m_category.addAppender(m_appender);
        m_category.setPriority(lowest);
        m_category.setAdditivity(false);
    }
    ~LogCapture()
    {
        m_category.removeAppender(&m_appender);
        m_category.setPriority(log4cpp::Priority::NOTSET);
    }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    /// What came since the last call; nothing may be logging meanwhile.
    std::vector<std::string> Take()
    {
        std::vector<std::string> lines;
        for (auto &queue = m_appender.getQueue(); !queue.empty(); queue.pop())
            lines.push_back(queue.front());
        return lines;
    }

private:
    log4cpp::StringQueueAppender m_appender;
    log4cpp::Category &m_category = log4cpp::Category::getInstance(kLogCategory);
};
