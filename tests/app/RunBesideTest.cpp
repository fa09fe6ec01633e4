#include "core/RunBeside.h"

#include "support/GuiTest.h"
#include "support/NoThreads.h"

#include <gtest/gtest.h>

#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>
#include <thread>

namespace {

using namespace std::chrono_literals;

TEST(RunBeside, QuickWorkHandlesNoEvents)
{
    // A busy machine may be slow to start a thread, but not each time.
    bool isUndisturbed = false;
    for (int round = 0; round < 50 && !isUndisturbed; ++round) {
        int ticks = 0;
        const QObject context;
        QTimer::singleShot(0, &context, [&] { ++ticks; });
        EXPECT_EQ(orv::RunBeside([] { return 7; }), 7);
        isUndisturbed = ticks == 0;
    }
    EXPECT_TRUE(isUndisturbed) << "nothing may happen behind the caller's back while the camera answers at once";
}

TEST(RunBeside, SlowWorkLetsTheEventLoopTurn)
{
    QPushButton button;
    button.show();
    int clicks = 0;
    QObject::connect(&button, &QPushButton::clicked, [&] { ++clicks; });
    std::promise<void> seen;
    int countInside = -1;
    bool cursorInside = false;
    QTimer::singleShot(60, [&] {
        QTest::mouseClick(&button, Qt::LeftButton);
        countInside = orv::BesideCount();
        cursorInside = QApplication::overrideCursor() != nullptr;
        seen.set_value();
    });
    auto future = seen.get_future();
    EXPECT_TRUE(orv::RunBeside([&] { return future.wait_for(20s) == std::future_status::ready; }));
    EXPECT_EQ(countInside, 1);
    EXPECT_TRUE(cursorInside);
    EXPECT_EQ(clicks, 1);
    EXPECT_EQ(orv::BesideCount(), 0);
    EXPECT_EQ(QApplication::overrideCursor(), nullptr);
}

TEST(RunBeside, ExceptionsReachTheCaller)
{
    EXPECT_THROW(orv::RunBeside([]() -> int { throw std::runtime_error("no answer"); }), std::runtime_error);
    EXPECT_EQ(orv::BesideCount(), 0);
}

TEST(RunBeside, OnOtherThreadsItRunsInPlace)
{
    auto worker = std::async(std::launch::async, [] {
        return orv::RunBeside([] { return std::this_thread::get_id(); }) == std::this_thread::get_id();
    });
    EXPECT_TRUE(worker.get());
}

TEST(RunBeside, WithoutAThreadLeftItRunsInPlace)
{
    const NoThreads exhausted;
    const std::thread::id ranOn = orv::RunBeside([] { return std::this_thread::get_id(); });
    EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST(RunBeside, QuittingStillWaitsForTheWork)
{
    std::atomic<bool> done{false};
    std::promise<void> quitting;
    auto quit = quitting.get_future();
    QTimer::singleShot(60, [&] {
        QCoreApplication::exit(3);
        quitting.set_value();
    });
    QTimer::singleShot(0, [&] {
        orv::RunBeside([&] {
            quit.wait_for(20s);
            std::this_thread::yield();
            done = true;
        });
    });
    EXPECT_EQ(QCoreApplication::exec(), 3);
    EXPECT_TRUE(done);
}

TEST(RunBeside, WaitsNest)
{
    std::promise<void> innerDone;
    auto inner = innerDone.get_future();
    int depth = 0;
    QTimer::singleShot(60, [&] {
        orv::RunBeside([] { std::this_thread::sleep_for(60ms); });
        depth = orv::BesideCount();
        innerDone.set_value();
    });
    EXPECT_TRUE(orv::RunBeside([&] { return inner.wait_for(20s) == std::future_status::ready; }));
    EXPECT_EQ(depth, 1);
}

} // namespace
