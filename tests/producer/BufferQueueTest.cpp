#include "producer/BufferQueue.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace nuvark;

namespace {

/// Three buffers in a queue that grabs, moved about by words.
class QueueBench {
public:
    QueueBench()
    {
        for (int i = 0; i < 3; ++i) {
            buffers.push_back(std::make_shared<Buffer>(this, orv::AllocateFrame(16), 16, nullptr));
            EXPECT_TRUE(queue.Announce(buffers.back()).Ok());
        }
        queue.Begin(GENTL_INFINITE);
    }
    ~QueueBench() { queue.RevokeAll(); }

    /// "q0" queue buffer 0, "take" begin a frame, "fill" end the oldest one, "harm" end it with holes, "back" give it
    /// back, "get" fetch a filled buffer, "f0" to "f4" the flush operations; as the stream does it, those that include
    /// frames being filled come after giving these back.
    void Run(const std::string &script)
    {
        std::istringstream words(script);
        for (std::string word; words >> word;) {
            FrameTarget target;
            if (word[0] == 'q')
                (void)queue.Queue(buffers[word[1] - '0']);
            else if (word == "take" && queue.TakeBuffer(target))
                m_filling.push_back(target);
            else if (word == "fill" || word == "harm")
                Deliver(word == "harm");
            else if (word == "back")
                queue.GiveBack(TakeFilling());
            else if (word == "get")
                (void)queue.TakeOutput();
            else if (word[0] == 'f')
                (void)queue.Flush(word[1] - '0');
        }
    }
    /// State of each buffer: - idle, I input pool, F being filled, O output queue.
    std::string States() const
    {
        std::string states;
        for (const auto &buffer : buffers)
            states += "-IFO"[static_cast<int>(buffer->GetState())];
        return states;
    }

    int notified = 0;
    BufferQueue queue{[this] { ++notified; }, [](GC_ERROR, const std::string &) {}};
    std::vector<std::shared_ptr<Buffer>> buffers;

private:
    void Deliver(bool isIncomplete)
    {
        FrameInfo info;
        info.isIncomplete = isIncomplete;
        queue.Deliver(TakeFilling(), info);
    }
    FrameTarget TakeFilling()
    {
        const FrameTarget target = m_filling.front();
        m_filling.erase(m_filling.begin());
        return target;
    }
    std::vector<FrameTarget> m_filling;
};

} // namespace

TEST(BufferQueue, BuffersMoveAsTheStandardSays)
{
    const struct {
        const char *name;
        const char *script;
        const char *states;
    } kRows[] = {
        {"queued", "q1 q0", "II-"},
        {"a frame begins in the one queued last", "q1 q0 take", "FI-"},
        {"it ends", "q1 q0 take fill", "OI-"},
        {"it is fetched", "q1 q0 take fill get", "-I-"},
        {"given back it is filled next", "q1 q0 take back take", "FI-"},
        {"input to output", "q1 q0 take f0", "FO-"},
        {"output discarded", "q1 q0 take fill f1", "-I-"},
        {"all to input", "q1 q0 take fill f2", "II-"},
        {"unqueued to input", "q0 take f3", "FII"},
        {"all discarded", "q1 q0 q2 take fill f4", "---"},
        {"an unknown operation", "q1 q0 take f9", "FI-"},
    };
    for (const auto &row : kRows) {
        QueueBench bench;
        bench.Run(row.script);
        EXPECT_EQ(bench.States(), row.states) << row.name;
    }
}

TEST(BufferQueue, RefusesWhatDoesNotFitTheState)
{
    QueueBench bench;
    bench.Run("q1 q0 take");
    EXPECT_EQ(bench.queue.Queue(bench.buffers[0]).Code(), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(bench.queue.Queue(bench.buffers[1]).Code(), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(bench.queue.Revoke(bench.buffers[0]).Code(), GC_ERR_BUSY);
    EXPECT_EQ(bench.queue.Revoke(bench.buffers[1]).Code(), GC_ERR_BUSY);
    EXPECT_EQ(bench.queue.Revoke(bench.buffers[2]).Code(), GC_ERR_SUCCESS);
    EXPECT_EQ(bench.queue.Revoke(bench.buffers[2]).Code(), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(bench.queue.Queue(bench.buffers[2]).Code(), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(bench.queue.At(0), bench.buffers[0]);
    EXPECT_EQ(bench.queue.At(2), nullptr);
    bench.Run("fill");
    EXPECT_EQ(bench.queue.Revoke(bench.buffers[0]).Code(), GC_ERR_BUSY) << "not fetched yet";
}

TEST(BufferQueue, OnceClosedItTakesNothingAnyMore)
{
    QueueBench bench;
    bench.queue.RevokeAll();
    const auto late = std::make_shared<Buffer>(&bench, orv::AllocateFrame(16), 16, nullptr);
    EXPECT_EQ(bench.queue.Announce(late).Code(), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(late->Handle(), nullptr) << "no handle is left that nobody can end";
    EXPECT_EQ(bench.queue.Queue(bench.buffers[0]).Code(), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(bench.queue.GetCounts().announced, 0U);
}

TEST(BufferQueue, ACountLimitsWhatIsBegun)
{
    QueueBench bench;
    bench.queue.Begin(2);
    bench.Run("q1 q0 q2 take take take");
    EXPECT_EQ(bench.States(), "FIF") << "two are enough";
    bench.Run("fill fill take");
    EXPECT_EQ(bench.States(), "OIO");
    const BufferQueue::Counts counts = bench.queue.GetCounts();
    EXPECT_FALSE(counts.isGrabbing);
    EXPECT_EQ(counts.underruns, 0U);
    EXPECT_EQ(counts.started, 2U);
    EXPECT_EQ(bench.notified, 2);
}

TEST(BufferQueue, CountsWhatIsLost)
{
    QueueBench bench;
    bench.Run("q0 take take fill take q0");
    EXPECT_EQ(bench.queue.GetCounts().underruns, 2U);
    EXPECT_EQ(bench.queue.GetCounts().started, 3U);
    bench.Run("get q1 q0 take harm");
    EXPECT_EQ(bench.queue.GetCounts().incomplete, 0U) << "not fetched yet, and so not delivered either";
    bench.Run("get");
    EXPECT_EQ(bench.queue.GetCounts().incomplete, 1U);
    EXPECT_EQ(bench.queue.GetCounts().delivered, 2U);
    bench.queue.Pause(true);
    bench.Run("take");
    EXPECT_EQ(bench.States(), "-I-") << "paused";
    EXPECT_EQ(bench.queue.GetCounts().underruns, 2U) << "there was a buffer";
    EXPECT_EQ(bench.queue.GetCounts().discarded, 1U);
    bench.queue.Pause(false);
    bench.Run("take");
    EXPECT_EQ(bench.States(), "-F-");
    bench.Run("q0 f0 get");
    EXPECT_EQ(bench.queue.GetCounts().delivered, 2U) << "an empty buffer is no frame";
    bench.queue.Begin(1);
    EXPECT_EQ(bench.queue.GetCounts().delivered, 0U);
    bench.queue.TakeBackBegin();
    EXPECT_EQ(bench.queue.GetCounts().delivered, 2U) << "a start that failed has changed nothing";
}
