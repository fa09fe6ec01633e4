#include "resources/GridFit.h"
#include "resources/Icons.h"
#include "resources/IconSizes.h"
#include "support/GuiTest.h"
#include "ui_OrvPlayer.h"

#include <QBitmap>
#include <QDir>
#include <QImageReader>
#include <QMainWindow>
#include <QRegion>
#include <QRegularExpression>

#include <cmath>
#include <set>

namespace {

/// Relative luminance and contrast as web accessibility guidelines define them.
double Luminance(QRgb colour)
{
    const auto linear = [](int channel) {
        const double c = channel / 255.0;
        return c <= 0.03928 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(qRed(colour)) + 0.7152 * linear(qGreen(colour)) + 0.0722 * linear(qBlue(colour));
}

double Contrast(QRgb a, QRgb b)
{
    const double la = Luminance(a) + 0.05, lb = Luminance(b) + 0.05;
    return la > lb ? la / lb : lb / la;
}

/// Pixels of a row (or column) that are neither empty nor full: blur, unless a slope or a rounding passes there.
int BlurredPixels(const QImage &image, int line, bool row)
{
    int blurred = 0;
    for (int i = 0; i < image.width(); ++i) {
        const int alpha = qAlpha(row ? image.pixel(i, line) : image.pixel(line, i));
        blurred += alpha > 2 && alpha < 253;
    }
    return blurred;
}

QString BakedPath(int sizePx, const QString &name)
{
    return QStringLiteral("%1%2/%3.png").arg(orv::kIconFolder).arg(sizePx).arg(name);
}

TEST(Icons, KeepTheirContrastOnWhiteAndOnDark)
{
    const QStringList names = QDir(BakedPath(16, "x").section('/', 0, -2)).entryList({"*.png"});
    ASSERT_EQ(names.size(), 25);
    for (const QString &file : names) {
        if (file == "OrvPlayer.png")
            continue; // brings its own background
        const QImage image(BakedPath(48, file.chopped(4)));
        ASSERT_FALSE(image.isNull()) << file.toStdString();
        int opaque = 0;
        for (int i = 0; i < image.width() * image.height(); ++i) {
            const QRgb pixel = image.pixel(i % image.width(), i / image.width());
            if (qAlpha(pixel) < 255)
                continue;
            ++opaque;
            ASSERT_GE(Contrast(pixel, qRgb(255, 255, 255)), 3.0) << file.toStdString() << " pixel " << i;
            ASSERT_GE(Contrast(pixel, qRgb(0x2b, 0x2b, 0x2b)), 3.0) << file.toStdString() << " pixel " << i;
        }
        EXPECT_GT(opaque, 48 * 48 / 20) << file.toStdString();
    }
}

/// In a menu the entry under the mouse lies on the theme's highlight colour, which may be the icon's own.
TEST(Icons, StandOutOnTheHighlightUnderTheMouse)
{
    const QImage marked = OrvIcon(":/OrvPlayer/save_config.png").pixmap(QSize(24, 24), QIcon::Active).toImage();
    const QImage normal = OrvIcon(":/OrvPlayer/save_config.png").pixmap(QSize(24, 24), QIcon::Normal).toImage();
    ASSERT_EQ(marked.size(), normal.size());
    int rim = 0, covered = 0;
    for (int i = 0; i < normal.width() * normal.height(); ++i) {
        const QRgb before = normal.pixel(i % normal.width(), i / normal.width());
        const QRgb after = marked.pixel(i % normal.width(), i / normal.width());
        rim += qAlpha(before) == 0 && after == qRgba(255, 255, 255, 255);
        covered += qAlpha(before) == 255 && after != before;
    }
    EXPECT_GT(rim, 24);
    EXPECT_EQ(covered, 0);
}

TEST(Icons, HaveSharpEdgesInEverySize)
{
    struct Case {
        const char *name;
        double x, y; // of the icon's size: a column and a row that cross straight edges only
    };
    const Case cases[] = {{"stop", 0.5, 0.5},        {"zoom_fit_window", 0.5, 0.5}, {"full_screen", 0.25, 0.25},
                          {"save_config", 0.2, 0.4}, {"histogram", 0.5, 0.65},      {"GenICamTree_32", 0.75, 0.65}};
    for (const Case &icon : cases) {
        for (int sizePx : orv::kIconSizesPx) {
            const QImage image(BakedPath(sizePx, icon.name));
            ASSERT_EQ(image.size(), QSize(sizePx, sizePx)) << icon.name << ' ' << sizePx;
            EXPECT_EQ(BlurredPixels(image, int(icon.x * sizePx), false), 0) << icon.name << " column, " << sizePx;
            EXPECT_EQ(BlurredPixels(image, int(icon.y * sizePx), true), 0) << icon.name << " row, " << sizePx;
        }
    }
}

TEST(Icons, SymmetricDrawingsStayInTheMiddle)
{
    for (const char *name : {"stop", "full_screen", "zoom_fit_window"}) {
        for (int sizePx : orv::kIconSizesPx) {
            const QImage image(BakedPath(sizePx, name));
            const QRect drawn = QRegion(QBitmap::fromImage(image.createAlphaMask())).boundingRect();
            EXPECT_EQ(drawn.left(), sizePx - 1 - drawn.right()) << name << ' ' << sizePx;
            EXPECT_EQ(drawn.top(), sizePx - 1 - drawn.bottom()) << name << ' ' << sizePx;
            EXPECT_GT(drawn.width(), sizePx / 2) << name << ' ' << sizePx;
        }
    }
}

TEST(Icons, AToolBarGetsThePictureMadeForItsPixels)
{
    const QIcon icon = OrvIcon(":/OrvPlayer/zoom+.png");
    for (int sizePx : orv::kIconSizesPx) {
        const QImage shown = icon.pixmap(sizePx).toImage();
        EXPECT_EQ(shown, QImage(BakedPath(sizePx, "zoom+")).convertToFormat(shown.format())) << sizePx;
    }
    EXPECT_TRUE(OrvIcon(":/OrvPlayer/nothing.png").isNull());
}

TEST(Icons, TheApplicationIconHoldsSmallAndLargePictures)
{
    QImageReader ico(":/OrvPlayer/OrvPlayer.ico");
    std::set<int> widths;
    for (int i = 0; i < ico.imageCount() && ico.jumpToImage(i); ++i)
        widths.insert(ico.read().width());
    EXPECT_EQ(widths, (std::set<int>{16, 24, 32, 48, 64, 256})) << ico.errorString().toStdString();
}

class Form : public testing::Test {
protected:
    void SetUp() override { m_form.setupUi(&m_window); }

    QMainWindow m_window;
    Ui_OrvPlayerClass m_form;
};

TEST_F(Form, EveryActionStandsInAMenuOfTheMenuBar)
{
    QSet<QAction *> inMenus;
    for (const QAction *title : m_form.menuBar->actions()) {
        for (QAction *action : title->menu()->actions())
            inMenus.insert(action);
    }
    int count = 0;
    for (QAction *action : m_window.findChildren<QAction *>(QRegularExpression("^action"))) {
        ++count;
        EXPECT_TRUE(inMenus.contains(action)) << action->objectName().toStdString();
        EXPECT_TRUE(action->shortcut().isEmpty()) << action->objectName().toStdString();
    }
    EXPECT_EQ(count, 42);
}

TEST_F(Form, EveryIconOfTheFormHasAllItsSizesOnceApplied)
{
    const auto actions = m_window.findChildren<QAction *>(QRegularExpression("^action"));
    QHash<QAction *, QImage> before;
    for (QAction *action : actions)
        before[action] = action->icon().pixmap(24).toImage();
    ApplyIcons(&m_window);
    int withIcon = 0;
    for (QAction *action : actions) {
        EXPECT_EQ(action->icon().pixmap(24).toImage(), before[action]) << action->objectName().toStdString();
        if (before[action].isNull())
            continue;
        ++withIcon;
        EXPECT_EQ(action->icon().availableSizes().size(), int(std::size(orv::kIconSizesPx)))
            << action->objectName().toStdString();
    }
    EXPECT_EQ(withIcon, 24);
    EXPECT_FALSE(m_window.windowIcon().pixmap(64).isNull());
}

TEST(FitToPixels, RefusesWhatItCannotFit)
{
    struct Case {
        const char *name, *body;
    };
    const Case cases[] = {{"text", "<text>1</text>"},
                          {"transform", "<g transform=\"scale(2)\"/>"},
                          {"missing number", "<circle cx=\"1\" cy=\"2\"/>"},
                          {"half a point", "<polygon points=\"1,2 3\"/>"},
                          {"broken XML", "<g>"}};
    for (const Case &icon : cases) {
        QString error;
        const QByteArray svg = QByteArray("<svg stroke-width=\"2\">") + icon.body + "</svg>";
        EXPECT_TRUE(orv::FitToPixels(svg, 16, &error).isEmpty()) << icon.name;
        EXPECT_TRUE(error.startsWith("line 1: ")) << icon.name << ": " << error.toStdString();
    }
}

} // namespace

ORV_GUI_TEST_MAIN_WITH(OrvInitResources())
