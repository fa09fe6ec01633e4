#pragma once

#include "support/ScriptedCamera.h"

#include <QTimer>

/// Sees whether the event loop turns while the camera lets it wait.
class LoopWatch {
public:
    explicit LoopWatch(scripted::Delay &delay) : m_delay(delay)
    {
        m_delay.Watch(true);
        QObject::connect(&m_ticker, &QTimer::timeout, [this] { m_delay.Turn(); });
        m_ticker.start(2);
    }
    ~LoopWatch() { m_delay.Watch(false); }

private:
    scripted::Delay &m_delay;
    QTimer m_ticker;
};
