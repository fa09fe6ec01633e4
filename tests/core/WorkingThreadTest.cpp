#include "core/WorkingThread.h"

#include "LogCapture.h"
#include "support/Eventually.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <future>
#include <set>
#include <stdexcept>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

constexpr auto kLimit = 20s; // generous: sanitizers and a loaded machine

/// Runs what may hang on a thread of its own; a hang ends the test program instead of blocking it.
template <class Operation> void WithinLimit(Operation operation)
{
    auto done = std::async(std::launch::async, operation);
    if (done.wait_for(kLimit) != std::future_status::ready) {
        std::fputs("the worker hangs\n", stderr);
        std::abort();
    }
    done.get();
}

class CountingWorker : public WorkingThread {
public:
    CountingWorker() : WorkingThread("CountingWorker") {}
    ~CountingWorker() override { Terminate(); }

    void Work() override
    {
        m_inWork = true;
        thread = std::this_thread::get_id();
        ++count;
        std::this_thread::yield();
        m_inWork = false;
    }
    bool IsInWork() const { return m_inWork; }

    std::atomic<int> count{0};
    std::atomic<std::thread::id> thread{};

private:
    std::atomic<bool> m_inWork{false};
};

TEST(WorkingThread, RunsOnOneThreadBetweenStartAndStop)
{
    WithinLimit([] {
        CountingWorker worker;
        std::set<std::thread::id> threads;
        for (int run = 0; run < 3; ++run) {
            const int before = worker.count;
            ASSERT_TRUE(worker.Start());
            ASSERT_TRUE(Eventually([&] { return worker.count > before + 2; }));
            ASSERT_TRUE(worker.Stop());
            const int stopped = worker.count;
            EXPECT_FALSE(worker.IsInWork()) << "Stop() waits for the unit in progress";
            threads.insert(worker.thread);
            std::this_thread::yield();
            EXPECT_EQ(worker.count, stopped);
        }
        EXPECT_EQ(threads.size(), 1u);
        EXPECT_EQ(threads.count(std::this_thread::get_id()), 0u);
    });
}

TEST(WorkingThread, StopRightBehindStartReturns)
{
    WithinLimit([] {
        CountingWorker worker;
        for (int round = 0; round < 3000; ++round) {
            ASSERT_TRUE(worker.Start());
            ASSERT_TRUE(worker.Stop());
            ASSERT_FALSE(worker.IsInWork());
        }
    });
}

TEST(WorkingThread, CallsInTheWrongStateAreRefusedAndLogged)
{
    LogCapture log;
    CountingWorker worker;
    EXPECT_FALSE(worker.Stop());
    EXPECT_TRUE(worker.Start());
    EXPECT_FALSE(worker.Start());
    EXPECT_TRUE(worker.Stop());
    EXPECT_FALSE(worker.Stop());
    EXPECT_THAT(log.Take(), ElementsAre("ERROR WorkingThread::Start: Invalid state: m_bStart==false, code=0",
                                        "ERROR WorkingThread::Start: Invalid state: m_bStart==true, code=0",
                                        "ERROR WorkingThread::Start: Invalid state: m_bStart==false, code=0"));
}

TEST(WorkingThread, AWorkerThatWasNeverStartedEndsWithoutWorking)
{
    static std::atomic<int> s_calls{0};
    class Idle : public WorkingThread {
        void Work() override { ++s_calls; }
    };
    LogCapture log;
    WithinLimit([] {
        for (int round = 0; round < 200; ++round) {
            const Idle worker; // ended by the base class, after Idle is gone
            EXPECT_EQ(worker.GetName(), "Nameless");
        }
    });
    EXPECT_EQ(s_calls, 0);
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST(WorkingThread, TerminateEndsItFromEitherStateAndMayBeRepeated)
{
    for (const bool isRunning : {false, true})
        WithinLimit([isRunning] {
            CountingWorker worker;
            if (isRunning) {
                worker.Start();
                ASSERT_TRUE(Eventually([&] { return worker.count > 0; }));
            }
            worker.Terminate();
            worker.Terminate();
            const int ended = worker.count;
            EXPECT_FALSE(worker.Start()) << "there is no thread left to start";
            EXPECT_FALSE(worker.Stop());
            EXPECT_EQ(worker.count, ended);
        });
}

/// Waits in Work() until its Stop() wakes it, as a worker waiting for a camera does.
class BlockedWorker : public WorkingThread {
public:
    ~BlockedWorker() override { Terminate(); }

    bool Stop() override
    {
        ++stops;
        if (!IsStarted())
            return false;
        RequestPark();
        {
            const orv::MutexLock lock(m_wakeMutex);
            m_wake = true;
        }
        m_wakeCondition.NotifyAll();
        WaitUntilParked();
        return true;
    }

    void Work() override
    {
        const orv::MutexLock lock(m_wakeMutex);
        waiting = true;
        while (!m_wake)
            m_wakeCondition.Wait(m_wakeMutex);
        m_wake = false;
    }

    std::atomic<int> stops{0};
    std::atomic<bool> waiting{false};

private:
    orv::Mutex m_wakeMutex;
    orv::ConditionVariable m_wakeCondition;
    bool m_wake GUARDED_BY(m_wakeMutex) = false;
};

TEST(WorkingThread, ASubclassWakesItsBlockedWorkWhenStoppedAndWhenTerminated)
{
    WithinLimit([] {
        BlockedWorker worker;
        for (int run = 1; run <= 3; ++run) {
            worker.waiting = false;
            worker.Start();
            ASSERT_TRUE(Eventually([&] { return worker.waiting.load(); }));
            if (run < 3)
                ASSERT_TRUE(worker.Stop());
            else
                worker.Terminate();
            EXPECT_EQ(worker.stops, run);
        }
    });
}

/// Ends its run by itself after one unit, unless told to go on.
class SelfParkingWorker : public WorkingThread {
public:
    ~SelfParkingWorker() override { Terminate(); }

    void Work() override
    {
        m_inWork = true;
        ++count;
        std::this_thread::sleep_for(100us);
        m_inWork = false;
        if (!goOn)
            RequestPark();
    }
    bool IsInWork() const { return m_inWork; }

    std::atomic<int> count{0};
    std::atomic<bool> goOn{false};

private:
    std::atomic<bool> m_inWork{false};
};

TEST(WorkingThread, AnEarlierRunThatParkedItselfDoesNotFoolALaterStop)
{
    WithinLimit([] {
        SelfParkingWorker worker;
        for (int round = 0; round < 200; ++round) {
            worker.goOn = false;
            worker.Start();
            ASSERT_TRUE(Eventually([&] { return !worker.IsStarted(); }));
            worker.goOn = true;
            const int before = worker.count;
            ASSERT_TRUE(worker.Start());
            ASSERT_TRUE(Eventually([&] { return worker.count > before; }));
            if (worker.Stop()) {
                ASSERT_FALSE(worker.IsInWork());
            }
        }
    });
}

TEST(WorkingThread, AnExceptionCostsOneUnitNotTheWorker)
{
    class Failing : public WorkingThread {
    public:
        Failing() : WorkingThread("Failing") {}
        ~Failing() override { Terminate(); }
        void Work() override
        {
            const int unit = count++;
            if (unit == 0)
                throw std::runtime_error("no memory for a frame");
            if (unit == 1)
                throw 42;
            std::this_thread::yield();
        }
        std::atomic<int> count{0};
    };
    LogCapture log;
    WithinLimit([] {
        Failing worker;
        worker.Start();
        ASSERT_TRUE(Eventually([&] { return worker.count > 4; }));
        EXPECT_TRUE(worker.Stop());
    });
    EXPECT_THAT(log.Take(),
                ElementsAre("ERROR WorkingThread::DoWork: Failing: Work() failed: no memory for a frame, code=0",
                            "ERROR WorkingThread::DoWork: Failing: Work() failed, code=0"));
}

} // namespace
