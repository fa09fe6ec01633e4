#include "DisplayFixture.h"

#include "orvdisplay/FormatNotice.h"

#include <QGraphicsView>

using orvtest::DisplayFixture;
using orvtest::DisplayPointer;
using orvtest::kSurround;
using orvtest::PatternImage;

ORV_GUI_TEST_MAIN

namespace {

class Display : public DisplayFixture {
protected:
    /// Every window pixel against the reference conversion with the view that the parameters tell.
    void ExpectPicture(const PatternImage &image, const char *rule)
    {
        const QImage seen = Seen();
        int x = 0;
        int y = 0;
        ASSERT_EQ(m_display->Translate(&x, &y, 0), 0);
        const double scale = GetFloat("display.view.scale");
        std::vector<std::uint32_t> expected(static_cast<std::size_t>(seen.width() * seen.height()));
        // The corner from the first window position whose middle lies inside: at these scales the corner itself.
        ASSERT_EQ(orv::plain::ConvertView(image.get(), {scale, x, y},
                                          {expected.data(), seen.width(), seen.height(), seen.width(), kSurround}),
                  0);
        for (int line = 0; line < seen.height(); ++line) {
            const auto *const pixels = reinterpret_cast<const std::uint32_t *>(seen.constScanLine(line));
            ASSERT_TRUE(std::equal(pixels, pixels + seen.width(), expected.data() + line * seen.width()))
                << rule << ", line " << line;
        }
    }

    void AddFilter(const char *map)
    {
        Set("filter.id", 1000);
        SetText("filter.name", "cmap.base");
        Set("filter.channels", 1);
        SetText("filter.channel.0", map);
        Set("filter.state", 1);
    }
};

TEST_F(Display, GreyUntilTheFirstImage)
{
    ShowWidget(60, 40);
    EXPECT_EQ(SeenAt(0, 0), kSurround);
    EXPECT_EQ(SeenAt(59, 39), kSurround);
    int x = 1;
    int y = 1;
    EXPECT_NE(m_display->Translate(&x, &y, 1), 0);
}

TEST_F(Display, FitSpreadAndActualSize)
{
    ShowWidget(100, 100);
    PatternImage image(400, 200);
    ASSERT_EQ(Show(image), 0);
    EXPECT_EQ(Get("display.fit"), 1);
    EXPECT_DOUBLE_EQ(GetFloat("display.view.scale"), 0.25);
    EXPECT_EQ(SeenAt(50, 24), kSurround);
    EXPECT_NE(SeenAt(50, 25), kSurround);
    ExpectPicture(image, "fit");

    Set("display.fit", 2);
    EXPECT_DOUBLE_EQ(GetFloat("display.view.scale"), 0.5);
    Show(image);
    ExpectPicture(image, "spread");

    Set("display.fit", 3);
    EXPECT_EQ(GetFloat("display.view.scale"), 1);
    Show(image);
    EXPECT_EQ(SeenAt(0, 0), PatternImage::Colour(150, 50));
    EXPECT_EQ(SeenAt(99, 99), PatternImage::Colour(249, 149));

    Set("display.fit", 1);
    m_widget->resize(200, 100);
    Show(image);
    EXPECT_DOUBLE_EQ(GetFloat("display.view.scale"), 0.5);
    EXPECT_EQ(Get("display.fit"), 1);
    ExpectPicture(image, "fit after resizing");
}

TEST_F(Display, WheelZoomsAroundTheMouseOnlyWithControl)
{
    ShowWidget(100, 100);
    PatternImage image(400, 400);
    Show(image);
    Set("display.fit", 3);
    int x = 30;
    int y = 70;
    ASSERT_EQ(m_display->Translate(&x, &y, 1), 0);

    Wheel(30, 70, 120, Qt::NoModifier);
    EXPECT_EQ(GetFloat("display.view.scale"), 1);
    Wheel(30, 70, 60, Qt::ControlModifier);
    EXPECT_EQ(GetFloat("display.view.scale"), 1) << "half a step";
    Wheel(30, 70, 60, Qt::ControlModifier);
    EXPECT_EQ(GetFloat("display.view.scale"), 1.5);
    Wheel(30, 70, 3 * 120, Qt::ControlModifier);
    EXPECT_EQ(GetFloat("display.view.scale"), 4);
    EXPECT_EQ(Get("display.fit"), 0);
    Show(image);
    EXPECT_EQ(SeenAt(30, 70), PatternImage::Colour(x, y));
    ExpectPicture(image, "400 %");
    Wheel(30, 70, -120, Qt::ControlModifier);
    EXPECT_EQ(GetFloat("display.view.scale"), 3);
}

TEST_F(Display, DraggingPansAndCommandsWork)
{
    ShowWidget(100, 100);
    PatternImage image(400, 400);
    Show(image);
    Set("display.fit", 3);
    Mouse(QEvent::MouseButtonPress, 50, 50, Qt::LeftButton);
    Mouse(QEvent::MouseMove, 60, 45, Qt::LeftButton);
    Mouse(QEvent::MouseMove, 70, 20, Qt::LeftButton);
    Mouse(QEvent::MouseButtonRelease, 70, 20, Qt::LeftButton);
    Mouse(QEvent::MouseMove, 0, 0, Qt::NoButton);
    Show(image);
    EXPECT_EQ(SeenAt(0, 0), PatternImage::Colour(150 - 20, 150 + 30));
    EXPECT_EQ(Get("display.fit"), 0);

    Mouse(QEvent::MouseButtonPress, 50, 50, Qt::LeftButton);
    Mouse(QEvent::MouseButtonRelease, 50, 50, Qt::LeftButton);
    Mouse(QEvent::MouseButtonDblClick, 50, 50, Qt::LeftButton);
    Mouse(QEvent::MouseMove, 45, 50, Qt::LeftButton);
    Mouse(QEvent::MouseButtonRelease, 45, 50, Qt::LeftButton);
    Show(image);
    EXPECT_EQ(SeenAt(0, 0), PatternImage::Colour(150 - 20 + 5, 150 + 30)) << "a drag after a quick click";

    Mouse(QEvent::MouseButtonPress, 50, 50, Qt::RightButton);
    Mouse(QEvent::MouseMove, 60, 45, Qt::RightButton);
    EXPECT_EQ(Run("display.atcenter"), 0U);
    Show(image);
    EXPECT_EQ(SeenAt(0, 0), PatternImage::Colour(150, 150));

    EXPECT_EQ(Run("display.zoom.in"), 0U);
    EXPECT_EQ(GetFloat("display.view.scale"), 1.5);
    EXPECT_EQ(Run("display.zoom.out"), 0U);
    EXPECT_EQ(Run("display.zoom.out"), 0U);
    EXPECT_DOUBLE_EQ(GetFloat("display.view.scale"), 2.0 / 3);
    SetFloat("display.view.scale", 1000);
    EXPECT_EQ(GetFloat("display.view.scale"), 64);
}

TEST_F(Display, FirstImageOfAFormatTakesTheInitialView)
{
    ShowWidget(100, 100);
    Set("display.init.fit", 3);
    SetFloat("display.init.at.x", 0.25);
    SetFloat("display.init.at.y", 1);
    PatternImage image(400, 400);
    Show(image);
    EXPECT_EQ(SeenAt(0, 0), PatternImage::Colour(50, 300));
    EXPECT_EQ(Get("display.fit"), 3);
    Run("display.zoom.in");
    Show(image);
    EXPECT_EQ(GetFloat("display.view.scale"), 1.5) << "further images keep the view";
    ASSERT_EQ(m_display->SetFormat(image.get(), "auto"), 0);
    EXPECT_EQ(GetFloat("display.view.scale"), 1.5) << "not before the next image";
    Show(image);
    EXPECT_EQ(GetFloat("display.view.scale"), 1);
    PatternImage smaller(200, 100);
    Run("display.zoom.in");
    Show(smaller);
    EXPECT_EQ(SeenAt(0, 0), PatternImage::Colour(0, 0)) << "another size is another format";
}

TEST_F(Display, TranslateBothWays)
{
    ShowWidget(100, 100);
    PatternImage image(40, 20);
    Show(image);
    Set("display.fit", 3);
    const struct {
        int mode, x, y, toX, toY;
    } kCases[] = {{1, 30, 40, 0, 0},   {1, 69, 59, 39, 19}, {1, 70, 60, 40, 20},
                  {1, 0, 0, -30, -40}, {0, 0, 0, 30, 40},   {0, 40, 20, 70, 60}};
    for (const auto &row : kCases) {
        int x = row.x;
        int y = row.y;
        EXPECT_EQ(m_display->Translate(&x, &y, row.mode), 0);
        EXPECT_EQ(x, row.toX) << row.mode << ' ' << row.x;
        EXPECT_EQ(y, row.toY) << row.mode << ' ' << row.y;
    }
    int x = 0;
    EXPECT_NE(m_display->Translate(&x, nullptr, 1), 0);
    EXPECT_NE(m_display->Translate(&x, &x, 2), 0);
}

TEST_F(Display, FalseColours)
{
    ShowWidget(40, 40);
    PatternImage image(40, 40);
    Show(image);
    AddFilter("0,0,1;1,0,0"); // dark levels blue, bright ones red
    EXPECT_EQ(Run("filter.add"), 0U);
    Show(image);
    EXPECT_EQ(SeenAt(1, 0), 0xff0000ffU);
    EXPECT_EQ(SeenAt(19, 0), 0xffff0000U); // 133

    Set("filter.state", 0);
    Show(image);
    EXPECT_EQ(SeenAt(19, 0), PatternImage::Colour(19, 0));
    Set("filter.state", 1);
    Show(image);
    EXPECT_EQ(SeenAt(19, 0), 0xffff0000U);

    PatternImage colour(40, 40, orv::kBGRa8);
    Show(colour);
    EXPECT_NE(SeenAt(19, 0), 0xffff0000U) << "only mono images are filtered";

    SetText("filter.channel.0", "1,0");
    EXPECT_EQ(Run("filter.add"), 0x806E0004U);
    Show(image);
    EXPECT_EQ(SeenAt(19, 0), PatternImage::Colour(19, 0)) << "a bad map leaves no filter";

    SetText("filter.channel.0", "0,1,0");
    EXPECT_EQ(Run("filter.add"), 0U);
    Set("filter.id", 5);
    EXPECT_EQ(Run("filter.del"), 0U);
    Show(image);
    EXPECT_EQ(SeenAt(19, 0), 0xff00ff00U) << "another filter's id";
    Set("filter.id", 1000);
    EXPECT_EQ(Run("filter.del"), 0U);
    Show(image);
    EXPECT_EQ(SeenAt(19, 0), PatternImage::Colour(19, 0));
    SetText("filter.name", "blur");
    EXPECT_NE(Run("filter.add"), 0U);
}

TEST_F(Display, MarkedRectangleIsAnOutlineInScreenSpace)
{
    ShowWidget(100, 100);
    PatternImage image(50, 50);
    Show(image); // 200 %
    Set("dump.x", 10);
    Set("dump.y", 20);
    Set("dump.w", 5);
    Set("dump.h", 4);
    EXPECT_EQ(SeenAt(19, 40), PatternImage::Colour(9, 20)) << "off";
    EXPECT_EQ(Run("display.dump.on"), 0U);
    const QImage seen = Seen();
    constexpr std::uint32_t kMark = 0xffffdc00;
    constexpr std::uint32_t kEdge = 0xff000000;
    for (const QPoint point : {QPoint(19, 39), QPoint(19, 47), QPoint(30, 48), QPoint(25, 39)})
        EXPECT_EQ(seen.pixel(point), kMark) << point.x() << ',' << point.y();
    for (const QPoint point : {QPoint(18, 38), QPoint(31, 49), QPoint(18, 44)})
        EXPECT_EQ(seen.pixel(point), kEdge) << point.x() << ',' << point.y();
    EXPECT_EQ(seen.pixel(20, 40), PatternImage::Colour(10, 20)) << "the marked pixels stay visible";
    EXPECT_EQ(seen.pixel(29, 47), PatternImage::Colour(14, 23));
    EXPECT_EQ(seen.pixel(17, 40), PatternImage::Colour(8, 20));

    Set("dump.w", 1000000000000);
    EXPECT_EQ(SeenAt(60, 39), kMark);
    EXPECT_EQ(SeenAt(99, 43), PatternImage::Colour(49, 21));
    Set("dump.w", -1);
    EXPECT_EQ(SeenAt(19, 40), PatternImage::Colour(9, 20)) << "an empty rectangle";
    Set("dump.w", 5);
    Run("display.dump.off");
    EXPECT_EQ(SeenAt(19, 40), PatternImage::Colour(9, 20));
}

TEST_F(Display, RefusedImages)
{
    ShowWidget(300, 100);
    PatternImage image(300, 100);
    Show(image);
    const std::uint32_t before = SeenAt(120, 50);

    PatternImage shortImage(300, 100);
    shortImage->dataSize -= 1;
    EXPECT_EQ(Show(shortImage), ORV_IMAGE_ERR_TOO_SHORT);
    EXPECT_EQ(SeenAt(120, 50), before) << "the picture before stays";
    EXPECT_EQ(m_display->DisplayVideo(nullptr), ORV_IMAGE_ERR_INVALID_ARGUMENT);

    PatternImage unknown(300, 100);
    unknown->pixelType = 0x01080099;
    EXPECT_EQ(Show(unknown), ORV_IMAGE_ERR_UNKNOWN_FORMAT);
    const QImage notice = Seen();
    EXPECT_EQ(notice.pixel(5, 5), kSurround);
    int written = 0;
    for (int x = 0; x < 300; ++x) {
        for (int y = 35; y < 65; ++y)
            written += notice.pixel(x, y) != kSurround ? 1 : 0;
    }
    EXPECT_GT(written, 100) << "the notice stands in the middle";
    EXPECT_EQ(Show(image), 0);
    EXPECT_EQ(SeenAt(120, 50), before);
    m_display->Clear();
    EXPECT_EQ(SeenAt(120, 50), kSurround);
}

TEST_F(Display, FormatsThatCannotBeShownAreNamed)
{
    const struct {
        const char *rule;
        std::uint32_t pixelType, wireFormat;
        const char *notice;
    } kCases[] = {
        {"a standard format without a row", 0, 0x0220001D, "Pixel format RGB10p32 (0x0220001D) cannot be displayed"},
        {"a maker's own", 0, 0x40000001, "Pixel format 0x40000001 cannot be displayed"},
        {"four-colour sensor, as the camera calls it", orv::FindColorModel("TrueSense_GBRG_WGGW_0_8")->pixelType,
         0x81080001, "Pixel format 0x81080001 cannot be displayed"},
        {"four-colour sensor, not from a camera", orv::FindColorModel("TrueSense_GBRG_WGGW_0_8")->pixelType, 0,
         "Pixel format TrueSense_GBRG_WGGW_0_8 cannot be displayed"},
        {"no such type of ours", 0x01080099, 0, "Pixel format 0x01080099 cannot be displayed"},
        {"nothing known", 0, 0, "The camera's pixel format cannot be displayed"},
    };
    ShowWidget(400, 100);
    for (const auto &row : kCases) {
        // As the camera library makes it: sides and bytes, but neither pixel type nor pitch.
        std::vector<std::uint8_t> bytes(64);
        _OrvImage image{};
        image.pixelType = row.pixelType;
        image.wireFormat = row.wireFormat;
        image.width = 4;
        image.height = 2;
        image.data = bytes.data();
        image.dataSize = bytes.size();
        EXPECT_EQ(orv::FormatNotice(image), row.notice) << row.rule;
        m_display->Clear();
        EXPECT_EQ(m_display->DisplayVideo(&image), ORV_IMAGE_ERR_UNKNOWN_FORMAT) << row.rule;
        const QImage seen = Seen();
        QImage blank(seen.size(), seen.format());
        blank.fill(kSurround);
        EXPECT_NE(seen, blank) << row.rule;
    }
}

TEST_F(Display, NoRepaintWhenNothingChanged)
{
    ShowWidget(100, 100);
    PatternImage image(400, 200);
    Show(image);
    int requests = 0;
    m_display->SetRedrawRequest([&] {
        ++requests;
        return m_display->DisplayVideo(image.get()) == 0;
    });
    Seen();
    const int paints = m_paints.Count();
    Set("display.fit", 1);
    Run("display.atcenter");
    Set("dump.x", 17);
    Run("display.dump.off");
    Run("filter.del");
    Set("filter.state", 1);
    Mouse(QEvent::MouseButtonPress, 50, 50, Qt::LeftButton);
    Mouse(QEvent::MouseMove, 60, 60, Qt::LeftButton); // the whole image is visible
    Settle();
    EXPECT_EQ(m_paints.Count(), paints);
    EXPECT_EQ(requests, 0);

    for (int step = 0; step < 5; ++step)
        Run("display.zoom.in");
    Settle();
    EXPECT_EQ(requests, 1) << "changes before the event loop runs are answered by one conversion";
    EXPECT_EQ(m_paints.Count(), paints + 1);
    for (int frame = 0; frame < 5; ++frame)
        m_display->DisplayVideo(image.get());
    Settle();
    EXPECT_EQ(m_paints.Count(), paints + 2) << "frames before the event loop runs are painted once";
}

TEST_F(Display, StoppedPictureIsRedrawnForTheNewView)
{
    ShowWidget(100, 100);
    PatternImage image(400, 200);
    Show(image);
    ASSERT_EQ(m_display->RetainImage(image.get()), 0);
    m_widget->resize(200, 200);
    ExpectPicture(image, "resized, from the retained copy");
    Wheel(20, 20, 240, Qt::ControlModifier);
    ExpectPicture(image, "zoomed, from the retained copy");

    m_widget->hide();
    Settle();
    Set("display.fit", 3);
    m_widget->resize(150, 150);
    m_widget->show();
    ExpectPicture(image, "shown again");

    Run("display.atcenter");
    Settle();
    m_display->RetainImage(nullptr);
    Set("display.fit", 1);
    m_widget->resize(300, 300);
    const QImage stale = Seen();
    EXPECT_EQ(stale.pixel(149, 149), PatternImage::Colour(125 + 149, 25 + 149)) << "without a copy: not stretched";
    EXPECT_EQ(stale.pixel(151, 20), kSurround);
}

TEST_F(Display, NoStalePictureIsPaintedAfterResizing)
{
    ShowWidget(100, 100);
    PatternImage image(400, 200);
    Show(image);
    int requests = 0;
    const auto paintedAtOnce = [&] { // as a window system does it, before anything queued is served
        return m_widget->grab().toImage().convertToFormat(QImage::Format_RGB32);
    };
    m_display->SetRedrawRequest([&] {
        ++requests;
        return m_display->DisplayVideo(image.get()) == 0;
    });
    m_widget->resize(200, 100);
    const QImage first = paintedAtOnce();
    EXPECT_EQ(first, Seen());
    EXPECT_EQ(requests, 1) << "one conversion for both";
    ExpectPicture(image, "resized");

    m_display->SetRedrawRequest([&] {
        ++requests;
        return false;
    });
    m_widget->resize(300, 100);
    Seen();
    const int paints = m_paints.Count();
    Settle();
    EXPECT_EQ(m_paints.Count(), paints) << "without a copy painting comes to an end";
}

TEST_F(Display, HiddenWidgetIsNotConvertedFor)
{
    ShowWidget(100, 100);
    m_widget->hide();
    Settle();
    PatternImage image(100, 100);
    EXPECT_EQ(Show(image), 0);
    m_widget->show();
    EXPECT_EQ(SeenAt(50, 50), kSurround) << "nothing was made while hidden";
    Show(image);
    EXPECT_EQ(SeenAt(50, 50), PatternImage::Colour(50, 50));
}

TEST_F(Display, ScrollAreaDrawsInItsViewport)
{
    QGraphicsView view;
    view.setFrameShape(QFrame::NoFrame);
    view.resize(80, 60);
    m_display.reset(OrvDisplay::CreateComponent());
    ASSERT_EQ(m_display->Initialize(&view, "OpenGL", 0), 0);
    EXPECT_NE(m_display->Initialize(&view, "GDI", 0), 0) << "has a widget already";
    view.show();
    Settle();
    PatternImage image(80, 60);
    ASSERT_EQ(Show(image), 0);
    EXPECT_EQ(view.viewport()->grab().toImage().pixel(33, 44), PatternImage::Colour(33, 44));
    m_display.reset();
}

TEST_F(Display, WidgetMayGoFirst)
{
    ShowWidget(100, 100);
    PatternImage image(100, 100);
    Show(image);
    m_widget.reset();
    EXPECT_NE(Show(image), 0);
    Run("display.zoom.in");
    Set("display.fit", 2);
    Settle();
    OrvDisplay::DeleteComponent(nullptr);
    DisplayPointer unused(OrvDisplay::CreateComponent());
    EXPECT_NE(unused->Initialize(nullptr, "auto", 0), 0);
    EXPECT_NE(unused->DisplayVideo(image.get()), 0);
}

} // namespace
