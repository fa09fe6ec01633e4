#include "simulator/imaging/FrameStore.h"

#include "simulator/ImagingFixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <future>
#include <set>
#include <thread>

namespace orvsim {

namespace {

SensorTraits SmallSensor()
{
    SensorTraits sensor;
    sensor.width = 96;
    sensor.height = 64;
    return sensor;
}

FrameSettings Settings(TestPattern pattern = TestPattern::Off)
{
    FrameSettings settings = FullFrame(SmallSensor(), "BayerRG8");
    settings.testPattern = pattern;
    return settings;
}

constexpr std::size_t kFrameBytes = 96 * 64;

/// What the renderer gives for that phase, stamped.
std::vector<std::uint8_t> Expected(FrameRenderer &renderer, const FrameSettings &settings, int phase,
                                   std::uint64_t number)
{
    std::vector<std::uint8_t> payload = Rendered(renderer, settings, phase);
    renderer.Stamp(settings, number, number * 1000, payload.data());
    return payload;
}

bool IsCounter(const Frame &frame)
{
    for (std::size_t i = 0; i < frame.imageBytes; ++i) {
        const std::size_t x = i % static_cast<std::size_t>(frame.settings.width);
        const std::size_t y = i / static_cast<std::size_t>(frame.settings.width);
        if (frame.payload[i] != static_cast<std::uint8_t>(x + y + frame.number))
            return false;
    }
    return true;
}

/// Takes frames until each phase of the loop has shown its own picture.
void ExpectAllPhases(FrameStore &store, FrameRenderer &renderer)
{
    std::set<std::uint64_t> shown;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    for (std::uint64_t number = 0; shown.size() < kScenePhases && std::chrono::steady_clock::now() < deadline;
         ++number) {
        const auto frame = store.Take(Settings(), number, number * 1000);
        const auto phase = number % kScenePhases;
        if (frame->payload == Expected(renderer, Settings(), static_cast<int>(phase), number))
            shown.insert(phase);
    }
    EXPECT_EQ(shown.size(), static_cast<std::size_t>(kScenePhases));
}

} // namespace

TEST(FrameStore, StepsThroughThePhasesEvenlyAsFarAsMemoryGoes)
{
    FrameRenderer renderer(SmallSensor(), 3);
    const struct {
        std::size_t memory;
        std::uint64_t frames;
    } rows[] = {{0, 4}, {16 * kFrameBytes, 16}, {1000 * kFrameBytes, 64}};
    for (const auto &row : rows) {
        FrameStore store(SmallSensor(), 3, row.memory);
        for (std::uint64_t number = 0; number < 2 * row.frames; ++number) {
            const auto frame = store.Take(Settings(), number, number * 1000);
            const int phase = static_cast<int>(number % row.frames * kScenePhases / row.frames);
            ASSERT_EQ(frame->payload, Expected(renderer, Settings(), phase, number)) << row.frames << ": " << number;
            EXPECT_EQ(frame->number, number);
            EXPECT_EQ(frame->timestampNs, number * 1000);
        }
    }
}

TEST(FrameStore, HeldFramesAreLeftAloneAndReturnedMemoryIsUsedAgain)
{
    constexpr std::size_t kHeld = 10;
    FrameStore store(SmallSensor(), 1, 4 * kFrameBytes); // fewer in the loop than are held
    store.Start();
    std::deque<std::shared_ptr<Frame>> held;
    std::set<const std::uint8_t *> memory;
    for (std::uint64_t number = 0; number < 300; ++number) {
        held.push_back(store.Take(Settings(TestPattern::FrameCounter), number, 0));
        memory.insert(held.back()->payload.data());
        for (const auto &frame : held)
            ASSERT_TRUE(IsCounter(*frame)) << frame->number << " at " << number;
        if (held.size() > kHeld)
            held.pop_front();
    }
    EXPECT_LE(memory.size(), kHeld + 8);
}

TEST(FrameStore, ChunksOfTheLastUseAreGone)
{
    FrameStore store(SmallSensor(), 1, 0);
    for (std::uint64_t number = 0; number < 12; ++number) {
        const auto frame = store.Take(Settings(), number, 0);
        ASSERT_FALSE(frame->hasChunks);
        ASSERT_EQ(frame->payload.size(), kFrameBytes);
        frame->payload.resize(kFrameBytes + 100);
        frame->hasChunks = true;
    }
}

// Who keeps sent frames for a while must not make each new one wait for its rendering, nor get old settings.
TEST(FrameStore, WhileTheLoopIsFilledHeldFramesAreCopied)
{
    FrameRenderer renderer(SmallSensor(), 3);
    FrameStore store(SmallSensor(), 3, 1 << 20);
    store.Start();
    std::deque<std::shared_ptr<Frame>> held;
    for (std::uint64_t number = 0; number < 60; ++number) {
        FrameSettings settings = Settings();
        settings.gainDb = static_cast<double>(number / 3 % 4);
        settings.width = number / 6 % 2 == 0 ? 96 : 50;
        held.push_back(store.Take(settings, number, number * 1000));
        if (held.size() > 5)
            held.pop_front();
        const Frame &frame = *held.back();
        ASSERT_EQ(frame.settings, settings);
        bool isOne = false; // of the pictures of these settings, with this number
        for (int phase = 0; !isOne && phase < kScenePhases; ++phase)
            isOne = frame.payload == Expected(renderer, settings, phase, number);
        ASSERT_TRUE(isOne) << number;
    }
    // Copies are no frames of the loop: each place shows its own picture at last.
    held.clear();
    ExpectAllPhases(store, renderer);
}

TEST(FrameStore, ReleasedFramesAreFreedAndPreparedAnew)
{
    FrameRenderer renderer(SmallSensor(), 3);
    FrameStore store(SmallSensor(), 3, 1 << 20);
    for (std::uint64_t round = 0; round < 3; ++round) {
        store.Start();
        auto held = store.Take(Settings(), round, round * 1000);
        const std::vector<std::uint8_t> payload = held->payload;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (store.PreparedBytes() < (kScenePhases - 1) * kFrameBytes && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        EXPECT_GE(store.PreparedBytes(), (kScenePhases - 1) * kFrameBytes);
        store.Release();
        EXPECT_EQ(store.PreparedBytes(), 0U);
        EXPECT_EQ(held->payload, payload) << "is somebody's";
        held = store.Take(Settings(), 40, 40000); // the last of the acquisition
        EXPECT_EQ(held->payload, Expected(renderer, Settings(), 40, 40));
        if (round == 1)
            store.Start(); // while the frame is out
        held.reset();
        EXPECT_TRUE(round == 1 || store.PreparedBytes() == 0);
    }
}

TEST(FrameStore, FramesMayBeReadAndReleasedElsewhereAndOutliveTheStore)
{
    std::vector<std::future<bool>> readers;
    auto store = std::make_unique<FrameStore>(SmallSensor(), 1, 8 * kFrameBytes);
    store->Start();
    for (std::uint64_t number = 0; number < 400; ++number) {
        auto frame = store->Take(Settings(TestPattern::FrameCounter), number, 0);
        readers.push_back(std::async(std::launch::async, [frame = std::move(frame)]() mutable {
            const bool isWhole = IsCounter(*frame);
            frame.reset();
            return isWhole;
        }));
    }
    const auto last = store->Take(Settings(TestPattern::FrameCounter), 400, 0);
    store.reset();
    EXPECT_TRUE(IsCounter(*last));
    for (std::future<bool> &reader : readers)
        EXPECT_TRUE(reader.get());
}

} // namespace orvsim
