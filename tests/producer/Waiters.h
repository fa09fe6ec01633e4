#pragma once

#include "ProducerFixture.h"

/// Threads that wait for one event; how each wait ended is counted by code.
class Waiters {
public:
    Waiters(const orv::gentl::Functions &gc, EVENT_HANDLE event, int count)
    {
        for (int i = 0; i < count; ++i) {
            m_threads.emplace_back([this, &gc, event] {
                char data[2048];
                size_t size = sizeof data;
                ++m_waiting;
                const GC_ERROR code = gc.EventGetData(event, data, &size, GENTL_INFINITE);
                ++(code == GC_ERR_ABORT ? m_aborted : code == GC_ERR_SUCCESS ? m_served : m_other);
            });
        }
        Becomes([&] { return m_waiting == count; });
    }
    ~Waiters()
    {
        for (std::thread &thread : m_threads)
            thread.join();
    }
    int Aborted() const { return m_aborted; }
    int Served() const { return m_served; }
    int Ended() const { return m_aborted + m_served + m_other; }

private:
    std::atomic<int> m_waiting{0};
    std::atomic<int> m_aborted{0};
    std::atomic<int> m_served{0};
    std::atomic<int> m_other{0};
    std::vector<std::thread> m_threads;
};
