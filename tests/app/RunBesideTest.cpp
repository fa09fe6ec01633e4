#include "core/RunBeside.h"

#include "support/GuiTest.h"

#include <gtest/gtest.h>

#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <atomic>
#include <chrono>
#include <future>
#include <limits>
#include <pthread.h>
#include <stdexcept>
#include <thread>

namespace {

using namespace std::chrono_literals;

TEST(RunBeside, QuickWorkHandlesNoEvents)
{
    int ticks = 0;
    const QObject context;
    QTimer::singleShot(0, &context, [&] { ++ticks; });
    EXPECT_EQ(orv::RunBeside([] { return 7; }), 7);
    EXPECT_EQ(ticks, 0) << "nothing may happen behind the caller's back while the camera answers at once";
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
    EXPECT_TRUE(orv::RunBeside([&] { return future.wait_for(5s) == std::future_status::ready; }));
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
    pthread_attr_t before, unaffordable;
    ASSERT_EQ(pthread_getattr_default_np(&before), 0);
    ASSERT_EQ(pthread_getattr_default_np(&unaffordable), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&unaffordable, std::numeric_limits<std::size_t>::max() / 4), 0);
    ASSERT_EQ(pthread_setattr_default_np(&unaffordable), 0);
    const std::thread::id ranOn = orv::RunBeside([] { return std::this_thread::get_id(); });
    EXPECT_EQ(pthread_setattr_default_np(&before), 0);
    pthread_attr_destroy(&unaffordable);
    pthread_attr_destroy(&before);
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
            quit.wait_for(5s);
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
    EXPECT_TRUE(orv::RunBeside([&] { return inner.wait_for(5s) == std::future_status::ready; }));
    EXPECT_EQ(depth, 1);
}

} // namespace
