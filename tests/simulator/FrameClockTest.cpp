#include "simulator/core/FrameClock.h"
#include "simulator/core/SensorTiming.h"

#include <gtest/gtest.h>

namespace orvsim {
namespace {

constexpr std::uint64_t kMs = 1'000'000;

FrameClock::Pace FreeRunning(double periodMs, double exposureMs)
{
    FrameClock::Pace pace;
    pace.periodNs = periodMs * kMs;
    pace.exposureNs = exposureMs * kMs;
    return pace;
}

TEST(FrameClock, FreeRunningFramesKeepTheirPeriod)
{
    FrameClock clock;
    const FrameClock::Pace pace = FreeRunning(10, 4);
    EXPECT_FALSE(clock.NextDue(0, pace).has_value());
    clock.Start(100 * kMs);
    for (std::uint64_t i = 0; i < 5; ++i) {
        const std::uint64_t due = clock.NextDue(100 * kMs, pace).value();
        EXPECT_EQ(due, (104 + 10 * i) * kMs);
        // Taken a little late: the next one does not shift.
        const FrameClock::Taken taken = clock.Take(due + kMs, pace);
        EXPECT_EQ(taken.number, i);
        EXPECT_EQ(taken.startNs, (100 + 10 * i) * kMs);
        EXPECT_EQ(taken.skipped, 0U);
    }
    clock.Stop();
    EXPECT_FALSE(clock.NextDue(200 * kMs, pace).has_value());
}

TEST(FrameClock, AFrameThatCameMuchTooLateLeavesOthersOut)
{
    FrameClock clock;
    const FrameClock::Pace pace = FreeRunning(10, 4);
    clock.Start(0);
    clock.Take(4 * kMs, pace);
    const FrameClock::Taken late = clock.Take(95 * kMs, pace);
    EXPECT_EQ(late.number, 1U);
    EXPECT_EQ(late.startNs, 90 * kMs);
    EXPECT_EQ(late.skipped, 8U);
    EXPECT_EQ(clock.NextDue(95 * kMs, pace).value(), 104 * kMs);
}

TEST(FrameClock, TriggersMakeOneFrameEachAndAreLostWhenTooEarly)
{
    FrameClock clock;
    FrameClock::Pace pace = FreeRunning(10, 4);
    pace.isTriggered = true;
    pace.delayNs = 2 * kMs;
    EXPECT_FALSE(clock.Trigger(0, pace)) << "not acquiring";
    clock.Start(0);
    EXPECT_FALSE(clock.NextDue(50 * kMs, pace).has_value());
    EXPECT_TRUE(clock.Trigger(60 * kMs, pace));
    EXPECT_FALSE(clock.Trigger(61 * kMs, pace)) << "one is waiting already";
    EXPECT_EQ(clock.NextDue(61 * kMs, pace).value(), 66 * kMs);
    EXPECT_EQ(clock.Take(66 * kMs, pace).startNs, 62 * kMs);
    EXPECT_FALSE(clock.NextDue(67 * kMs, pace).has_value());
    EXPECT_FALSE(clock.Trigger(67 * kMs, pace)) << "the sensor is still busy";
    EXPECT_TRUE(clock.Trigger(71 * kMs, pace));
}

TEST(FrameClock, TheTimerTriggersAgainAndAgain)
{
    FrameClock clock;
    FrameClock::Pace pace = FreeRunning(10, 4);
    pace.isTriggered = true;
    pace.isTimer = true;
    pace.timerNs = 25 * kMs;
    clock.Start(0);
    for (std::uint64_t i = 0; i < 3; ++i)
        EXPECT_EQ(clock.Take(clock.NextDue(25 * i * kMs, pace).value(), pace).startNs, 25 * i * kMs);
    // A timer that is faster than the sensor: every other pulse is lost.
    pace.timerNs = 6 * kMs;
    const std::uint64_t first = clock.Take(clock.NextDue(80 * kMs, pace).value(), pace).startNs;
    const std::uint64_t second = clock.Take(clock.NextDue(80 * kMs, pace).value(), pace).startNs;
    EXPECT_EQ(second - first, 12 * kMs);
}

TEST(SensorTiming, AWantedRateIsReachedWhereTheSensorCan)
{
    for (const TimingFamily family : {TimingFamily::PixelClock, TimingFamily::LineTime}) {
        CameraOptions options;
        options.family = family;
        options.frameRate = 100;
        const CameraState fast(options);
        EXPECT_GE(TimingOf(fast, family, 0).MaximumRateHz(), 100);
        EXPECT_LT(TimingOf(fast, family, 0).MaximumRateHz(), 115) << "no faster than needed";
        options.frameRate = 1e6;
        const CameraState fastest(options);
        EXPECT_EQ(family == TimingFamily::PixelClock ? fastest.pixelClockMHz : fastest.lineClocks,
                  family == TimingFamily::PixelClock ? options.maxPixelClockMHz : kShortestLineClocks);
        options.frameRate = 5;
        EXPECT_EQ(CameraState(options).pixelClockMHz, 40);
        EXPECT_EQ(CameraState(options).frame.exposureUs, 10000);
    }
}

TEST(SensorTiming, WhatSetsTheShortestPeriod)
{
    struct Case {
        const char *name;
        void (*change)(CameraState &);
        double periodMs;
    };
    // 1280 x 1024 at 40 MHz: 35.2 us per line, 36.608 ms per frame.
    const Case cases[] = {
        {"readout", [](CameraState &) {}, 36.608},
        {"half the lines", [](CameraState &s) { s.frame.height = 512; }, 18.5856},
        {"binned lines are all read",
         [](CameraState &s) {
             s.frame.height = 512;
             s.frame.binningY = 2;
         },
         36.608},
        {"lines left out are not",
         [](CameraState &s) {
             s.frame.height = 512;
             s.frame.decimationY = 2;
         },
         18.5856},
        {"a long exposure", [](CameraState &s) { s.frame.exposureUs = 50000; }, 50.0352},
        {"the link's limit",
         [](CameraState &s) {
             s.isThroughputLimited = true;
             s.throughputLimit = 10'000'000;
         },
         140},
    };
    for (const Case &row : cases) {
        CameraState state{CameraOptions()};
        row.change(state);
        EXPECT_NEAR(TimingOf(state, TimingFamily::PixelClock, 1'400'000).periodNs / kMs, row.periodMs, 1e-6)
            << row.name;
    }
    CameraState byLine{CameraOptions()};
    byLine.lineClocks = 3000; // 40 us
    EXPECT_NEAR(TimingOf(byLine, TimingFamily::LineTime, 0).periodNs / kMs, 41.6, 1e-6);
}

} // namespace
} // namespace orvsim
