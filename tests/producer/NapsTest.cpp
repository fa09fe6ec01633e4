#include "producer/gige/Naps.h"

#include <gtest/gtest.h>

using namespace nuvark::gige;
using namespace std::chrono_literals;

namespace {

constexpr std::size_t kLarge = 64 << 20;

struct Look {
    std::chrono::microseconds at;
    std::optional<FrameProgress> progress;
    std::chrono::microseconds nap; ///< expected
};

} // namespace

TEST(Naps, LastNoLongerThanFrameAndSocketAllow)
{
    const struct {
        const char *name;
        std::size_t receiveBuffer;
        std::vector<Look> looks;
    } kRows[] = {
        {"a steady frame: of the rest an eighth is left",
         kLarge,
         {{0ms, {{1, 1000}}, 0us}, {1ms, {{1, 990}}, 0us}, {2ms, {{1, 890}}, 7787us}, {10ms, {{1, 90}}, 787us}}},
        {"near the end", kLarge, {{0ms, {{1, 100}}, 0us}, {1ms, {{1, 90}}, 0us}, {9ms, {{1, 5}}, 0us}}},
        {"long frames, in pieces",
         kLarge,
         {{0ms, {{1, 1000}}, 0us}, {1ms, {{1, 999}}, 0us}, {11ms, {{1, 989}}, 8ms}, {19ms, {{1, 981}}, 8ms}}},
        {"the next frame begins at the pace of the one before",
         kLarge,
         {{0ms, {{1, 100}}, 0us}, {1ms, {{1, 99}}, 0us}, {9ms, {{1, 19}}, 1662us}, {20ms, {{2, 40}}, 3500us}}},
        {"what the socket's buffer holds, twice, at 10 Gbit/s",
         5000000,
         {{0ms, {{1, 1000}}, 0us}, {1ms, {{1, 990}}, 0us}, {2ms, {{1, 980}}, 2ms}}},
        {"a small socket buffer", 212992, {{0ms, {{1, 1000}}, 0us}, {1ms, {{1, 990}}, 0us}, {2ms, {{1, 980}}, 0us}}},
        {"a pause before the first data tells no pace",
         kLarge,
         {{0ms, {{1, 100}}, 0us}, {500ms, {{1, 93}}, 0us}, {501ms, {{1, 73}}, 3193us}}},
        {"a burst is over before anything is known",
         kLarge,
         {{0ms, {{1, 100}}, 0us}, {100us, {{1, 80}}, 0us}, {200us, {{1, 60}}, 0us}, {500us, {{1, 20}}, 0us}}},
        {"nothing has come",
         kLarge,
         {{0ms, {{1, 100}}, 0us}, {1ms, {{1, 90}}, 0us}, {2ms, {{1, 80}}, 7ms}, {9ms, {{1, 80}}, 0us}}},
        {"no frame, or nobody knows how long",
         kLarge,
         {{0ms, {{1, 100}}, 0us}, {1ms, {{1, 90}}, 0us}, {2ms, std::nullopt, 0us}}},
        {"packets of the frame are missing again",
         kLarge,
         {{0ms, {{1, 100}}, 0us}, {1ms, {{1, 90}}, 0us}, {2ms, {{1, 80}}, 7ms}, {9ms, {{1, 95}}, 8ms}}},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.name);
        Naps naps(row.receiveBuffer);
        for (const Look &look : row.looks) {
            const auto nap = naps.Next(look.progress, TimePoint(1h) + look.at);
            EXPECT_EQ(std::chrono::floor<std::chrono::microseconds>(nap).count(), look.nap.count())
                << "at " << look.at.count() << " us";
        }
    }
}
