#include "DisplayFixture.h"

#include "orvdisplay/DisplayParams.h"

#include <atomic>
#include <chrono>
#include <thread>

using orvtest::DisplayFixture;
using orvtest::PatternImage;

namespace {

class DisplayThreads : public DisplayFixture {
protected:
    /// Shows images in turn on a thread of its own until told to stop.
    class Player {
    public:
        Player(OrvDisplay &display, std::vector<const PatternImage *> images)
            : m_thread([this, &display, images = std::move(images)] {
                  for (std::size_t frame = 0; !m_isStopping; ++frame) {
                      if (display.DisplayVideo(images[frame % images.size()]->get()) == 0)
                          ++m_shown;
                  }
              })
        {
        }
        ~Player() { Stop(); }
        void Stop()
        {
            m_isStopping = true;
            if (m_thread.joinable())
                m_thread.join();
        }
        int Shown() const { return m_shown; }

    private:
        std::atomic<bool> m_isStopping{false};
        std::atomic<int> m_shown{0};
        std::thread m_thread;
    };
};

TEST_F(DisplayThreads, UserActsWhileFramesCome)
{
    ShowWidget(160, 120);
    PatternImage large(320, 240);
    PatternImage deep(320, 240, 0x01100306); // Mono12
    PatternImage bayer(100, 80, orv::kBayerGR8);
    m_display->SetRedrawRequest([&] { return m_display->DisplayVideo(large.get()) == 0; });
    const int paintsBefore = m_paints.Count();
    Player player(*m_display, {&large, &deep, &bayer});
    for (int round = 0; round < 60; ++round) {
        m_widget->resize(100 + round, 80 + round % 17);
        Wheel(50, 40, round % 3 == 0 ? -120 : 120, Qt::ControlModifier);
        Mouse(QEvent::MouseButtonPress, 50, 40, Qt::LeftButton);
        Mouse(QEvent::MouseMove, 50 + round % 7, 45, Qt::LeftButton);
        Mouse(QEvent::MouseButtonRelease, 50, 45, Qt::LeftButton);
        Set("display.fit", round % 4);
        Set("dump.x", round);
        Run(round % 2 == 0 ? "display.dump.on" : "display.dump.off");
        SetText("filter.name", "cmap.base");
        Set("filter.channels", 1);
        SetText("filter.channel.0", "0,0,0;1,1,1");
        Run(round % 2 == 0 ? "filter.add" : "filter.del");
        int x = 3;
        int y = 4;
        m_display->Translate(&x, &y, 1);
        if (round % 20 == 19)
            m_display->Clear();
        QCoreApplication::processEvents();
    }
    EXPECT_TRUE(WaitFor([&] { return player.Shown() > 30 && m_paints.Count() > paintsBefore + 5; }));
    player.Stop();

    // What is left is whole: the last image for the last view.
    Show(large);
    Set("display.fit", 3);
    Run("filter.del");
    Run("display.dump.off");
    m_widget->resize(60, 50);
    Settle();
    Show(large);
    Run("display.atcenter");
    EXPECT_EQ(SeenAt(0, 0), PatternImage::Colour(130, 95));
    EXPECT_EQ(SeenAt(59, 49), PatternImage::Colour(130 + 59, 95 + 49));
}

TEST_F(DisplayThreads, WidgetDestroyedWhileFramesCome)
{
    for (int round = 0; round < 5; ++round) {
        ShowWidget(100, 80);
        PatternImage image(200, 160);
        Player player(*m_display, {&image});
        ASSERT_TRUE(WaitFor([&] { return player.Shown() > 3; }));
        m_widget.reset();
        QCoreApplication::processEvents();
        player.Stop();
        m_display.reset();
    }
}

TEST_F(DisplayThreads, DeletionWaitsForTheRunningCall)
{
    PatternImage image(4000, 3000, 0x05100185); // YCbCr422_8: takes a while
    for (int round = 0; round < 5; ++round) {
        ShowWidget(1600, 1200);
        std::atomic<bool> hasReturned{false};
        std::thread caller([&, display = m_display.get()] {
            EXPECT_EQ(display->DisplayVideo(image.get()), 0);
            hasReturned = true;
        });
        // There is something to translate from the moment that the call has taken the image's size.
        int x = 0;
        int y = 0;
        EXPECT_TRUE(WaitFor([&] { return m_display->Translate(&x, &y, 1) == 0; }));
        m_display.reset();
        caller.join();
        EXPECT_TRUE(hasReturned);
    }
}

/// Takes what the parameters ask for, but the first time only when another call has come past, or a while is over.
class SlowControl final : public orv::DisplayControl {
public:
    void SetFit(orv::Fit) override {}
    void SetScale(double) override {}
    void ZoomIn() override {}
    void ZoomOut() override {}
    void CentreImage() override {}
    void Mark(const orv::MarkedArea &area) override { Take(area.isOn); }
    void SetColours(std::shared_ptr<const orv::LevelColours> colours) override { Take(colours != nullptr); }

    void HoldTheNext()
    {
        m_mustHold = true;
        m_isHolding = false;
    }
    bool IsHolding() const { return m_isHolding; }
    bool IsOn() const { return m_isOn; }

private:
    void Take(bool isOn)
    {
        if (m_mustHold.exchange(false)) {
            const int before = m_taken;
            const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
            m_isHolding = true;
            while (m_taken == before && std::chrono::steady_clock::now() < limit)
                std::this_thread::yield();
        }
        m_isOn = isOn;
        ++m_taken;
    }

    std::atomic<bool> m_mustHold{false};
    std::atomic<bool> m_isHolding{false};
    std::atomic<int> m_taken{0};
    std::atomic<bool> m_isOn{false};
};

TEST(DisplayParams, SwitchingOffWinsOverAnEarlierChangeOnAnotherThread)
{
    SlowControl control;
    orv::DisplayParams params(control);
    const auto name = [](const char *text) { return const_cast<char *>(text); };
    const auto run = [&](const char *command) { EXPECT_EQ(params.RunCommand(name(command)), 0U) << command; };
    params.SetParamString(name("filter.name"), name("cmap.base"));
    params.SetParamString(name("filter.channel.0"), name("0,0,0;1,1,1"));
    params.SetParamInt(name("filter.channels"), 1);
    const struct {
        const char *on, *change, *off;
    } kCases[] = {{"display.dump.on", "dump.x", "display.dump.off"}, {"filter.add", "filter.state", "filter.del"}};
    for (const auto &row : kCases) {
        run(row.on);
        control.HoldTheNext();
        std::thread other([&] { params.SetParamInt(name(row.change), 1); });
        while (!control.IsHolding())
            std::this_thread::yield();
        run(row.off);
        other.join();
        EXPECT_FALSE(control.IsOn()) << row.off;
    }
}

TEST_F(DisplayThreads, ParametersFromTheFramesThread)
{
    ShowWidget(100, 100);
    PatternImage image(400, 200);
    Show(image);
    std::thread other([&] {
        Set("display.fit", 2);
        Run("display.zoom.in");
        Set("dump.w", 5);
        Set("dump.h", 5);
        Run("display.dump.on");
        int x = 0;
        int y = 0;
        EXPECT_EQ(m_display->Translate(&x, &y, 1), 0);
    });
    other.join();
    Settle();
    EXPECT_DOUBLE_EQ(GetFloat("display.view.scale"), 2.0 / 3);
    EXPECT_EQ(Get("display.fit"), 0);
}

} // namespace
