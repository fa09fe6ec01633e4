#include "orvdisplay/ViewGeometry.h"

#include <gtest/gtest.h>

using orv::Fit;
using orv::ViewGeometry;
using orv::ViewPoint;

namespace orv {

void PrintTo(const ViewPoint &point, std::ostream *stream)
{
    *stream << point.x << ", " << point.y;
}

} // namespace orv

namespace {

ViewGeometry MakeView(int windowWidth, int windowHeight, int imageWidth, int imageHeight, Fit fit)
{
    ViewGeometry view;
    view.SetWindow(windowWidth, windowHeight);
    view.SetImage(imageWidth, imageHeight);
    view.Start(fit, 0.5, 0.5);
    return view;
}

TEST(ViewGeometry, Fits)
{
    const struct {
        const char *rule;
        int windowWidth, windowHeight, imageWidth, imageHeight;
        Fit fit;
        double scale;
        int offsetX, offsetY;
    } kCases[] = {
        {"wide image in a square window", 100, 100, 400, 200, Fit::Window, 0.25, 0, 25},
        {"high image", 100, 100, 200, 400, Fit::Window, 0.25, 25, 0},
        {"small image is enlarged", 100, 100, 20, 10, Fit::Window, 5, 0, 25},
        {"spread fills and hides both ends", 100, 100, 400, 200, Fit::Spread, 0.5, -50, 0},
        {"spread of a small image", 100, 100, 20, 10, Fit::Spread, 10, -50, 0},
        {"100 %, larger than the window", 100, 100, 400, 200, Fit::Actual, 1, -150, -50},
        {"100 %, smaller: centred", 100, 100, 40, 20, Fit::Actual, 1, 30, 40},
        {"a fit may go below the zoom range", 10, 10, 6400, 10, Fit::Window, 10.0 / 6400, 0, 5},
    };
    for (const auto &row : kCases) {
        const ViewGeometry view = MakeView(row.windowWidth, row.windowHeight, row.imageWidth, row.imageHeight, row.fit);
        EXPECT_DOUBLE_EQ(view.Scale(), row.scale) << row.rule;
        EXPECT_EQ(view.Transform().offsetX, row.offsetX) << row.rule;
        EXPECT_EQ(view.Transform().offsetY, row.offsetY) << row.rule;
        EXPECT_EQ(view.CurrentFit(), row.fit) << row.rule;
    }
}

TEST(ViewGeometry, FitsFollowTheWindowAndFreeViewsKeepTheirCentre)
{
    ViewGeometry fitted = MakeView(100, 100, 400, 200, Fit::Window);
    fitted.SetWindow(200, 200);
    EXPECT_DOUBLE_EQ(fitted.Scale(), 0.5);
    EXPECT_EQ(fitted.CurrentFit(), Fit::Window);

    ViewGeometry free = MakeView(100, 100, 400, 400, Fit::Actual);
    free.Pan(40, -10);
    const auto pixelAtCentre = [&] { return free.ToImage({free.WindowWidth() / 2, free.WindowHeight() / 2}); };
    const ViewPoint centre = pixelAtCentre();
    for (const int size : {101, 102, 150, 151, 77, 0, 100}) { // 0: hidden in between
        free.SetWindow(size, size);
        if (size > 0) {
            EXPECT_EQ(pixelAtCentre(), centre) << size;
        }
    }
    EXPECT_EQ(free.CurrentFit(), Fit::Free);
}

TEST(ViewGeometry, StartPoint)
{
    const struct {
        double atX, atY;
        int offsetX, offsetY;
    } kCases[] = {{0.5, 0.5, -150, -50}, {0, 0, 0, 0}, {1, 1, -300, -100}, {0.25, 0.5, -50, -50}};
    for (const auto &row : kCases) {
        ViewGeometry view;
        view.Start(Fit::Actual, row.atX, row.atY); // before window and image are known
        view.SetImage(400, 200);
        view.SetWindow(100, 100);
        EXPECT_EQ(view.Transform().offsetX, row.offsetX) << row.atX;
        EXPECT_EQ(view.Transform().offsetY, row.offsetY) << row.atY;
    }
}

TEST(ViewGeometry, ZoomStepsMeetRoundScalesAndEnd)
{
    ViewGeometry view = MakeView(100, 100, 1000, 1000, Fit::Window); // 10 %
    std::vector<double> scales;
    for (int step = 0; step < 40; ++step) {
        view.ZoomIn({50, 50});
        scales.push_back(view.Scale());
        ASSERT_TRUE(step == 0 || scales[scales.size() - 2] < view.Scale() || view.Scale() == ViewGeometry::kMaxScale);
    }
    for (const double wanted : {0.25, 0.5, 1.0, 2.0, 4.0, 64.0})
        EXPECT_NE(std::find(scales.begin(), scales.end(), wanted), scales.end()) << wanted;
    EXPECT_EQ(view.Scale(), 64);
    for (int step = 0; step < 60; ++step)
        view.ZoomOut({50, 50});
    EXPECT_EQ(view.Scale(), 1.0 / 64);
    EXPECT_EQ(view.CurrentFit(), Fit::Free);
    view.SetScale(1000);
    EXPECT_EQ(view.Scale(), 64);
    view.SetScale(0);
    EXPECT_EQ(view.Scale(), 1.0 / 64);
}

TEST(ViewGeometry, BeyondTheZoomRangeTheStepsStillGoTheirWay)
{
    ViewGeometry tiny = MakeView(720, 720, 8, 8, Fit::Window); // 9000 %
    tiny.ZoomIn({360, 360});
    EXPECT_EQ(tiny.Scale(), 90);
    tiny.ZoomOut({360, 360});
    EXPECT_EQ(tiny.Scale(), 64);

    ViewGeometry huge = MakeView(100, 100, 25600, 25600, Fit::Window);
    huge.ZoomOut({50, 50});
    EXPECT_EQ(huge.Scale(), 1.0 / 256);
    huge.ZoomIn({50, 50});
    EXPECT_EQ(huge.Scale(), 1.0 / 64);
}

TEST(ViewGeometry, ActualSizeWhileHidden)
{
    ViewGeometry view = MakeView(100, 100, 400, 200, Fit::Window);
    view.SetWindow(0, 0);
    view.SetFit(Fit::Actual);
    view.SetWindow(100, 100);
    EXPECT_EQ(view.Scale(), 1);
    EXPECT_EQ(view.CurrentFit(), Fit::Actual);
    EXPECT_EQ(view.ToImage({50, 50}), (ViewPoint{200, 100})) << "the centre stays";

    view.SetWindow(0, 0);
    view.SetFit(Fit::Actual);
    view.SetFit(Fit::Window);
    view.SetWindow(100, 100);
    EXPECT_DOUBLE_EQ(view.Scale(), 0.25) << "the last one counts";
}

TEST(ViewGeometry, ZoomKeepsThePixelUnderTheMouse)
{
    for (const ViewPoint mouse : {ViewPoint{50, 50}, ViewPoint{3, 90}, ViewPoint{99, 0}}) {
        ViewGeometry view = MakeView(100, 100, 4000, 4000, Fit::Actual);
        const ViewPoint pixel = view.ToImage(mouse);
        for (int step = 0; step < 8; ++step) {
            view.ZoomIn({mouse.x + 0.5, mouse.y + 0.5});
            EXPECT_EQ(view.ToImage(mouse), pixel) << view.Scale();
        }
        for (int step = 0; step < 8; ++step)
            view.ZoomOut({mouse.x + 0.5, mouse.y + 0.5});
        EXPECT_EQ(view.Scale(), 1);
        EXPECT_EQ(view.ToImage(mouse), pixel);
    }
}

TEST(ViewGeometry, PanStopsAtTheEdges)
{
    ViewGeometry view = MakeView(100, 100, 400, 200, Fit::Actual);
    view.Pan(10, 20);
    EXPECT_EQ(view.ToImage({0, 0}), (ViewPoint{140, 30}));
    EXPECT_EQ(view.CurrentFit(), Fit::Free);
    view.Pan(100000, 100000);
    EXPECT_EQ(view.ToImage({0, 0}), (ViewPoint{0, 0}));
    view.Pan(-100000, -100000);
    EXPECT_EQ(view.ToImage({99, 99}), (ViewPoint{399, 199}));
    view.CentreImage();
    EXPECT_EQ(view.ToImage({0, 0}), (ViewPoint{150, 50}));

    ViewGeometry fitted = MakeView(100, 100, 400, 200, Fit::Window);
    fitted.Pan(10, 10);
    EXPECT_EQ(fitted.CurrentFit(), Fit::Window) << "nothing to pan: the fit stays on";
}

TEST(ViewGeometry, PositionsTranslateBothWays)
{
    for (const Fit fit : {Fit::Window, Fit::Spread, Fit::Actual}) {
        for (const int image : {16, 50, 100, 333}) {
            ViewGeometry view = MakeView(120, 90, image, image, fit);
            for (int zoom = 0; zoom < 6; ++zoom, view.ZoomIn({10, 20})) {
                if (view.Scale() < 1)
                    continue;
                for (int x = 0; x < image; ++x)
                    ASSERT_EQ(view.ToImage(view.ToWindow({x, x / 2})), (ViewPoint{x, x / 2})) << view.Scale();
            }
        }
    }
    const ViewGeometry centred = MakeView(100, 100, 40, 20, Fit::Actual);
    EXPECT_EQ(centred.ToImage({29, 39}), (ViewPoint{-1, -1}));
    EXPECT_EQ(centred.ToImage({70, 60}), (ViewPoint{40, 20}));
}

TEST(ViewGeometry, NothingHappensWithoutAnImage)
{
    ViewGeometry view;
    view.ZoomIn({0, 0});
    view.Pan(5, 5);
    view.CentreImage();
    view.SetFit(Fit::Spread);
    view.SetWindow(100, 50);
    EXPECT_FALSE(view.IsComplete());
    view.SetImage(50, 50);
    EXPECT_DOUBLE_EQ(view.Scale(), 2); // the fit asked for before
}

} // namespace
