#pragma once

#include <cstddef>
#include <pthread.h>

/// Makes every new thread fail while it lives: its stack is larger than the address space.
class NoThreads {
public:
    NoThreads()
    {
        pthread_getattr_default_np(&m_before);
        pthread_attr_t huge;
        pthread_getattr_default_np(&huge);
        pthread_attr_setstacksize(&huge, std::size_t{1} << 47);
        pthread_setattr_default_np(&huge);
        pthread_attr_destroy(&huge);
    }
    ~NoThreads()
    {
        pthread_setattr_default_np(&m_before);
        pthread_attr_destroy(&m_before);
    }
    NoThreads(const NoThreads &) = delete;
    NoThreads &operator=(const NoThreads &) = delete;

private:
    pthread_attr_t m_before;
};
