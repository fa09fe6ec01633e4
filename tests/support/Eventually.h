#pragma once

#include <chrono>
#include <thread>

/// Polls until the condition holds; false when it does not for so long that it never will.
template <class Condition> bool Eventually(Condition holds)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!holds()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}
