#include "acquisition/DisplayView.h"

#include "acquisition/FrameSink.h"
#include "acquisition/GrabbingFifo.h"
#include "base/Mutex.h"
#include "support/GuiTest.h"
#include "support/ScriptedCamera.h"

#include <gtest/gtest.h>

#include <QMainWindow>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <atomic>

namespace {

class CountingSink final : public FrameSink {
public:
    void DisplayImage(const _OrvImage *image) override
    {
        lastId = image->frameId;
        ++frames;
    }
    void StopDisplaying() override { ++restarts; }

    std::atomic<int> frames{0};
    std::atomic<int> restarts{0};
    std::atomic<std::uint64_t> lastId{0};
};

/// Holds the display thread up, after it has drawn a frame and before it has copied it.
class HoldingSink final : public FrameSink {
public:
    void DisplayImage(const _OrvImage *) override
    {
        const orv::MutexLock lock(m_mutex);
        isHolding = true;
        while (!m_letGo)
            m_condition.Wait(m_mutex);
    }
    void StopDisplaying() override {}
    void LetGo()
    {
        const orv::MutexLock lock(m_mutex);
        m_letGo = true;
        m_condition.NotifyAll();
    }

    std::atomic<bool> isHolding{false};

private:
    orv::Mutex m_mutex;
    orv::ConditionVariable m_condition;
    bool m_letGo GUARDED_BY(m_mutex) = false;
};

class PaintCounter final : public QObject {
public:
    bool eventFilter(QObject *, QEvent *event) override
    {
        count += event->type() == QEvent::Paint ? 1 : 0;
        return false;
    }

    int count = 0;
};

/// A live view over a scripted camera in a shown window, its threads running.
class DisplayViewTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        device.stream.format = {64, 48, orv::kMono8};
        fifo = std::make_unique<GrabbingFifo>(nullptr, &device);
        view = new DisplayView(&window, fifo.get());
        window.setCentralWidget(view);
        window.resize(400, 300);
        window.show();
        view->AddInspectionView(&sink);
        ASSERT_EQ(view->SetParamFloat(const_cast<char *>("DisplayRate"), 120.0), 0u);
        Start();
    }
    void TearDown() override
    {
        if (view->IsDisplaying())
            Stop();
        view->RemoveInspectionView(&sink);
        delete view;
        fifo.reset();
    }
    void Start()
    {
        ASSERT_EQ(fifo->CreateBuffers(), 0);
        fifo->SetState(Acquisition);
        ASSERT_TRUE(fifo->StartGrabbing());
        ASSERT_TRUE(view->StartDisplaying());
    }
    void Stop()
    {
        ASSERT_TRUE(view->StopDisplaying());
        ASSERT_TRUE(fifo->StopGrabbing());
        ASSERT_EQ(fifo->ReleaseBuffers(), 0);
    }
    bool Show(const scripted::Frame &frame)
    {
        const int before = sink.frames;
        return device.stream.Deliver(frame) && WaitFor([&] { return sink.frames == before + 1; });
    }
    QColor CentreColor() { return QColor(view->viewport()->grab().toImage().pixel(view->viewport()->rect().center())); }
    bool IsActualSize(const QColor &colour)
    {
        const QImage shown = view->viewport()->grab().toImage();
        const QPoint c = view->viewport()->rect().center();
        // 64 x 48 pixels of picture in the middle, background outside
        return QColor(shown.pixel(c)) == colour && QColor(shown.pixel(c.x() - 40, c.y())) != colour;
    }

    scripted::Device device;
    std::unique_ptr<GrabbingFifo> fifo;
    QMainWindow window;
    CountingSink sink;
    DisplayView *view = nullptr;
};

TEST_F(DisplayViewTest, ShowsFramesOnceAndSkipsDamagedOnes)
{
    ASSERT_TRUE(Show({1, 100, false, 200}));
    ASSERT_TRUE(WaitFor([&] { return CentreColor() == QColor(200, 200, 200); }));

    ASSERT_TRUE(device.stream.Deliver({1, 100, false, 90})); // the same number again
    ASSERT_TRUE(device.stream.Deliver({2, 200, true, 90}));  // incomplete
    ASSERT_TRUE(Show({3, 300, false, 50}));
    EXPECT_EQ(sink.frames, 2);
    EXPECT_TRUE(WaitFor([&] { return CentreColor() == QColor(50, 50, 50); }));
    EXPECT_TRUE(WaitFor([&] { return device.stream.FreeBuffers() == 16; })) << "every buffer went back";
}

TEST_F(DisplayViewTest, PixelUnderTheMouseIsReported)
{
    ASSERT_TRUE(Show({1, 100, false, 77}));
    QSignalSpy spy(view, &DisplayView::mouseMoved);
    view->sendMouseMoved(64, 0); // just outside
    EXPECT_EQ(spy.count(), 0);
    view->sendMouseMoved(63, 47);
    ASSERT_TRUE(WaitFor([&] { return spy.count() >= 1; }));
    EXPECT_EQ(spy.front(), (QVariantList{63, 47, -1, 77, -1}));

    spy.clear();
    QTest::mouseMove(view->viewport(), view->viewport()->rect().center());
    ASSERT_TRUE(WaitFor([&] { return spy.count() >= 1; }));
    EXPECT_NEAR(spy.back().at(0).toInt(), 32, 1);
    EXPECT_NEAR(spy.back().at(1).toInt(), 24, 1);
}

TEST_F(DisplayViewTest, AStoppedViewKeepsItsPictureAndCanStart)
{
    ASSERT_TRUE(Show({5, 100, false, 120}));
    Stop();
    _OrvImage *image = nullptr;
    EXPECT_FALSE(view->GetDisplayedImageRaw(&image));
    EXPECT_TRUE(view->ZoomSpreadToWnd());
    EXPECT_TRUE(WaitFor([&] { return CentreColor() == QColor(120, 120, 120); })) << "redrawn at the new zoom";
    EXPECT_FALSE(view->StopDisplaying()) << "refused while stopped";

    Start();
    ASSERT_TRUE(Show({5, 100, false, 30})) << "the same number is new after a start";
    EXPECT_TRUE(view->GetDisplayedImageRaw(&image));
    EXPECT_TRUE(WaitFor([&] { return CentreColor() == QColor(30, 30, 30); }));
}

TEST_F(DisplayViewTest, AnotherFormatAfterARestartSetsUpTheDisplayAnew)
{
    ASSERT_TRUE(Show({1, 100, false, 10}));
    const int before = sink.restarts;
    Stop();
    device.stream.format = {32, 32, orv::kRGB8};
    Start();
    ASSERT_TRUE(Show({2, 200, false, 99}));
    EXPECT_EQ(sink.restarts, before + 1);
    QSignalSpy spy(view, &DisplayView::mouseMoved);
    view->sendMouseMoved(31, 31);
    EXPECT_EQ(spy.front(), (QVariantList{31, 31, 99, 99, 99}));
}

TEST_F(DisplayViewTest, AFormatThatChangesWhilePlayingSilencesTheReadOut)
{
    ASSERT_TRUE(Show({1, 100, false, 10}));
    device.stream.format = {32, 32, orv::kMono8};
    ASSERT_TRUE(Show({2, 200, false, 99}));
    EXPECT_TRUE(WaitFor([&] { return CentreColor() == QColor(99, 99, 99); })) << "the picture goes on";
    ASSERT_TRUE(Show({3, 300, false, 98})); // by now the frame before was through
    QSignalSpy spy(view, &DisplayView::mouseMoved);
    view->sendMouseMoved(1, 1);
    EXPECT_EQ(spy.count(), 0) << "not a pixel of the picture before";
}

TEST_F(DisplayViewTest, AFormatTheTableLacksIsToldAndPlayingGoesOn)
{
    device.stream.format = {64, 48, 0x01080099};
    ASSERT_TRUE(Show({1, 100, false, 10}));
    device.stream.format = {64, 48, orv::kMono8};
    ASSERT_TRUE(Show({2, 200, false, 60}));
    EXPECT_TRUE(WaitFor([&] { return CentreColor() == QColor(60, 60, 60); }));
}

TEST_F(DisplayViewTest, ZoomWorksBetweenFrames)
{
    ASSERT_TRUE(Show({1, 100, false, 140}));
    EXPECT_TRUE(view->Zoom100());
    EXPECT_TRUE(WaitFor([&] { return IsActualSize(QColor(140, 140, 140)); }));
    EXPECT_TRUE(view->ZoomIn());
    EXPECT_TRUE(view->ZoomOut());
    EXPECT_TRUE(view->CenterImage());
    EXPECT_TRUE(view->ZoomFitToWnd());
}

TEST_F(DisplayViewTest, AZoomWhileAFrameIsBeingCopiedIsNotLost)
{
    HoldingSink holder;
    view->AddInspectionView(&holder);
    ASSERT_TRUE(device.stream.Deliver({1, 100, false, 140}));
    ASSERT_TRUE(WaitFor([&] { return holder.isHolding.load(); }));
    ASSERT_TRUE(WaitFor([&] { return CentreColor() == QColor(140, 140, 140); }));
    EXPECT_TRUE(view->Zoom100());
    EXPECT_FALSE(IsActualSize(QColor(140, 140, 140))) << "there is no copy to draw from yet";
    for (int round = 0; round < 5; ++round)
        QCoreApplication::processEvents();
    PaintCounter paints;
    view->viewport()->installEventFilter(&paints);
    holder.LetGo();
    EXPECT_TRUE(WaitFor([&] { return paints.count > 0; })) << "no further frame comes";
    EXPECT_TRUE(IsActualSize(QColor(140, 140, 140)));
    view->RemoveInspectionView(&holder);
}

TEST_F(DisplayViewTest, FalseColourMarksBothEnds)
{
    const auto run = [&](long type) {
        EXPECT_EQ(view->SetParamInt(const_cast<char *>("ColorationType"), type), 0u);
        EXPECT_EQ(view->RunCommand(const_cast<char *>("ApplyColoration")), 0u);
    };
    ASSERT_TRUE(Show({1, 100, false, 255}));
    run(1);
    ASSERT_TRUE(Show({2, 200, false, 255}));
    EXPECT_TRUE(WaitFor([&] { return CentreColor() == QColor(255, 0, 0); }));
    ASSERT_TRUE(Show({3, 300, false, 0}));
    EXPECT_TRUE(WaitFor([&] { return CentreColor() == QColor(0, 0, 255); }));
    ASSERT_TRUE(Show({4, 400, false, 128}));
    EXPECT_TRUE(WaitFor([&] { return CentreColor() == QColor(128, 128, 128); }));
    run(0);
    ASSERT_TRUE(Show({5, 500, false, 255}));
    EXPECT_TRUE(WaitFor([&] { return CentreColor() == QColor(255, 255, 255); }));
    EXPECT_FALSE(view->Colorize(true, 0, 0, 1, false)) << "one level is no map";
}

TEST_F(DisplayViewTest, MarkedRectangleIncludesBothEnds)
{
    EXPECT_FALSE(view->isInRectangle(0, 0));
    view->drawHexPixelDumpRectangle(10, 20, 5, 3);
    EXPECT_TRUE(view->isInRectangle(10, 20));
    EXPECT_TRUE(view->isInRectangle(15, 23));
    EXPECT_FALSE(view->isInRectangle(16, 23));
    EXPECT_FALSE(view->isInRectangle(9, 20));
    view->onSizeChanged(0, 3);
    EXPECT_FALSE(view->isInRectangle(10, 20));
}

} // namespace
