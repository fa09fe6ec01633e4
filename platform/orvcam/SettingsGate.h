#pragma once

#include "base/Mutex.h"

namespace orv::cam {

/// Keeps a device's streams and the loading of its settings apart: either streams run, or settings are loaded.
/// Threads: any. Nothing waits.
class SettingsGate {
public:
    /// The loading of settings, for as long as it lives. False while a stream runs, or somebody else loads settings.
    class Loading {
    public:
        explicit Loading(SettingsGate &gate) : m_gate(gate), m_isOn(gate.BeginLoading()) {}
        ~Loading()
        {
            if (m_isOn)
                m_gate.EndLoading();
        }
        Loading(const Loading &) = delete;
        Loading &operator=(const Loading &) = delete;
        operator bool() const { return m_isOn; }

    private:
        SettingsGate &m_gate;
        const bool m_isOn;
    };

    /// \return false while settings are loaded.
    bool BeginStream() EXCLUDES(m_mutex)
    {
        MutexLock lock(m_mutex);
        m_streams += m_isLoading ? 0 : 1;
        return !m_isLoading;
    }
    void EndStream() EXCLUDES(m_mutex)
    {
        MutexLock lock(m_mutex);
        --m_streams;
    }

private:
    bool BeginLoading() EXCLUDES(m_mutex)
    {
        MutexLock lock(m_mutex);
        if (m_streams > 0 || m_isLoading)
            return false;
        m_isLoading = true;
        return true;
    }
    void EndLoading() EXCLUDES(m_mutex)
    {
        MutexLock lock(m_mutex);
        m_isLoading = false;
    }

    Mutex m_mutex;
    int m_streams GUARDED_BY(m_mutex) = 0;
    bool m_isLoading GUARDED_BY(m_mutex) = false;
};

} // namespace orv::cam
