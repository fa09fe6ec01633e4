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
        std::chrono::milliseconds until = 1h;
    } kRows[] = {
        {"a steady frame: to its end and a little longer",
         kLarge,
         {{0ms, {{1, 1000}}, 0us}, {1ms, {{1, 990}}, 0us}, {2ms, {{1, 890}}, 8ms}, {10ms, {{1, 90}}, 956us}}},
        {"a pause within the frame",
         kLarge,
         {{0ms, {{1, 1500}}, 0us},
          {1ms, {{1, 1490}}, 0us},
          {2ms, {{1, 1390}}, 8ms},
          {10ms, {{1, 590}}, 6150us},
          {16150us, {{1, 375}}, 5345us}}},
        {"near the end", kLarge, {{0ms, {{1, 100}}, 0us}, {1ms, {{1, 90}}, 0us}, {9ms, {{1, 4}}, 0us}}},
        {"long frames, in pieces",
         kLarge,
         {{0ms, {{1, 1000}}, 0us}, {1ms, {{1, 999}}, 0us}, {11ms, {{1, 989}}, 8ms}, {19ms, {{1, 981}}, 8ms}}},
        {"the next frame begins at the pace of the one before",
         kLarge,
         {{0ms, {{1, 100}}, 0us}, {1ms, {{1, 99}}, 0us}, {9ms, {{1, 19}}, 2018us}, {20ms, {{2, 40}}, 4183us}}},
        {"what the socket's buffer holds, twice, at 10 Gbit/s",
         5000000,
         {{0ms, {{1, 1000}}, 0us}, {1ms, {{1, 990}}, 0us}, {2ms, {{1, 980}}, 2ms}}},
        {"a small socket buffer", 212992, {{0ms, {{1, 1000}}, 0us}, {1ms, {{1, 990}}, 0us}, {2ms, {{1, 980}}, 0us}}},
        {"a pause before the first data tells no pace",
         kLarge,
         {{0ms, {{1, 100}}, 0us}, {500ms, {{1, 93}}, 0us}, {501ms, {{1, 73}}, 3878us}}},
        {"a burst is over before anything is known",
         kLarge,
         {{0ms, {{1, 100}}, 0us}, {100us, {{1, 80}}, 0us}, {200us, {{1, 60}}, 0us}, {500us, {{1, 20}}, 0us}}},
        {"nothing has come",
         kLarge,
         {{0ms, {{1, 100}}, 0us}, {1ms, {{1, 90}}, 0us}, {2ms, {{1, 80}}, 8ms}, {9ms, {{1, 80}}, 0us}}},
        {"no frame, or nobody knows how long",
         kLarge,
         {{0ms, {{1, 100}}, 0us}, {1ms, {{1, 90}}, 0us}, {2ms, std::nullopt, 0us}}},
        {"something else is due before its end",
         kLarge,
         {{0ms, {{1, 100}}, 0us}, {1ms, {{1, 90}}, 0us}, {2ms, {{1, 80}}, 0us}},
         9ms},
        {"packets of the frame are missing again",
         kLarge,
         {{0ms, {{1, 100}}, 0us}, {1ms, {{1, 90}}, 0us}, {2ms, {{1, 80}}, 8ms}, {9ms, {{1, 95}}, 8ms}}},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.name);
        Naps naps(row.receiveBuffer);
        for (const Look &look : row.looks) {
            const auto nap = naps.Next(look.progress, TimePoint(1h) + look.at, TimePoint(1h) + row.until);
            EXPECT_EQ(std::chrono::floor<std::chrono::microseconds>(nap).count(), look.nap.count())
                << "at " << look.at.count() << " us";
        }
    }
}

namespace {

/// A camera that sends frames of 200 packets at one packet each 25 us, as many as a portion of data holds at once.
struct SteadyCamera {
    static constexpr std::uint32_t kPackets = 200;
    static constexpr std::uint32_t kPortion = 7;
    static constexpr std::chrono::nanoseconds kPace = 25us;
    static constexpr std::chrono::nanoseconds kFrame = kPace * kPackets;

    /// \return of a frame's packets, how many have come by then
    std::uint32_t Come(std::chrono::nanoseconds sinceBegin) const
    {
        const auto paused = std::min(std::max(sinceBegin - Length() / 2, 0ns), pause);
        const auto sent = static_cast<std::uint32_t>((sinceBegin - paused) / kPace / slowness);
        return sent >= kPackets ? kPackets : sent / kPortion * kPortion;
    }

    std::chrono::nanoseconds Length() const { return kFrame * slowness; } ///< without the pause

    std::chrono::nanoseconds pause = 0ns; ///< in the middle of the frame
    int slowness = 1;
};

struct FrameResult {
    int wakes = 0;
    std::chrono::nanoseconds late{0}; ///< after the last packet
};

/// The receiving thread's life while one frame comes.
FrameResult ReceiveFrame(Naps &naps, const SteadyCamera &camera, std::uint64_t id, TimePoint begin)
{
    FrameResult result;
    std::uint32_t come = 0;
    std::chrono::nanoseconds now{0};
    do {
        ++result.wakes;
        const FrameProgress progress{id, SteadyCamera::kPackets - come};
        const auto nap = naps.Next(progress, begin + now, TimePoint::max());
        const std::uint32_t before = come;
        now += nap;
        while ((come = camera.Come(now)) == before) // waits for packets
            now += SteadyCamera::kPace;
    } while (come < SteadyCamera::kPackets);
    result.late = now - camera.Length() - camera.pause;
    return result;
}

} // namespace

TEST(Naps, EndAboutWhenFramesDoAlsoAfterADisturbance)
{
    constexpr int kFrames = 80;
    constexpr int kDisturbed = 10;
    for (const SteadyCamera &odd : {SteadyCamera{20ms, 1}, SteadyCamera{0ms, 4}, SteadyCamera{0ms, 20}}) {
        Naps naps(kLarge);
        int wakes = 0;
        for (int i = 0; i < kFrames; ++i) {
            const SteadyCamera camera = i == kDisturbed ? odd : SteadyCamera{};
            const FrameResult frame = ReceiveFrame(naps, camera, std::uint64_t(i) + 1, TimePoint(1h) + i * 200ms);
            if (i == kDisturbed)
                continue;
            EXPECT_LE(frame.late.count(), (SteadyCamera::kFrame / 8).count()) << "frame " << i;
            wakes += frame.wakes;
        }
        EXPECT_LE(wakes, kFrames * 3) << "and few of them, but for the first frame's";
    }
}
