#include "PanelFixture.h"
#include "support/GuiTest.h"

#include <QAction>
#include <QLineEdit>
#include <QMenuBar>
#include <QSettings>
#include <QTemporaryDir>

#include <memory>
#include <thread>

namespace {

/// A main window with the panel's action in two menus, one of them nested.
struct Window : QMainWindow {
    Window()
    {
        QMenu *const view = menuBar()->addMenu("View");
        for (QMenu *menu : {view, view->addMenu("Panels")}) {
            actions.append(menu->addAction("Test panel"));
            actions.last()->setObjectName("actionTest");
            actions.last()->setCheckable(true);
        }
        other = view->addAction("Other");
        other->setObjectName("actionOther");
        other->setCheckable(true);
    }
    bool AllChecked() const { return actions[0]->isChecked() && actions[1]->isChecked(); }
    bool NoneChecked() const { return !actions[0]->isChecked() && !actions[1]->isChecked(); }

    QList<QAction *> actions;
    QAction *other = nullptr;
};

TEST(PlayerPanel, ClosingHidesThePanelAndUnchecksItsAction)
{
    Window window;
    Panel panel(&window);
    window.addDockWidget(Qt::LeftDockWidgetArea, &panel);
    window.show();
    ASSERT_TRUE(WaitFor([&] { return window.AllChecked(); })) << "in every menu";
    EXPECT_FALSE(window.other->isChecked());

    EXPECT_FALSE(panel.close()) << "the panel refuses to close and only hides";
    EXPECT_TRUE(panel.isHidden());
    EXPECT_TRUE(window.NoneChecked());
    EXPECT_EQ(PlayerPanel::GetPanel("actionTest"), &panel);

    panel.show();
    EXPECT_TRUE(window.AllChecked());
}

TEST(PlayerPanel, AVisiblePanelGoesDownWithItsWindow)
{
    auto window = std::make_unique<Window>();
    auto *const panel = new Panel(window.get());
    window->addDockWidget(Qt::LeftDockWidgetArea, panel);
    window->show();
    ASSERT_TRUE(WaitFor([&] { return panel->isVisible(); }));
    window.reset(); // deletes the panel, which hides on the way
    EXPECT_EQ(PlayerPanel::GetPanel("actionTest"), nullptr);
}

TEST(PlayerPanel, ADestroyedPanelIsNeitherFoundNorToldOfChanges)
{
    QMainWindow window;
    Component component;
    auto panel = std::make_unique<Panel>(&window);
    panel->AddIntegerEdit(panel->Make<QLineEdit>("count"), "Count", nullptr, &component);
    EXPECT_EQ(PlayerPanel::GetPanel("actionTest"), panel.get());
    EXPECT_EQ(PlayerPanel::GetPanel("actiontest"), nullptr);
    panel.reset();
    EXPECT_EQ(PlayerPanel::GetPanel("actionTest"), nullptr);
    component.reads.clear();
    component.Set("Count", "1");
    EXPECT_TRUE(component.reads.empty());
}

TEST(PlayerPanel, ABurstOfChangesIsShownOncePerTick)
{
    QMainWindow window;
    Component component;
    Panel panel(&window, "actionTest", Panel::kNever);
    auto *const edit = panel.Make<QLineEdit>("count");
    panel.AddIntegerEdit(edit, "Count", nullptr, &component);
    component.reads.clear();
    for (const char *value : {"1", "2", "3"})
        component.Set("Count", value);
    component.Set("Other", "1"); // bound nowhere
    EXPECT_EQ(edit->text(), "5") << "not before the tick";
    panel.UpdateByTimer();
    EXPECT_EQ(edit->text(), "3");
    EXPECT_EQ(component.reads["Count"], 1);
    panel.UpdateByTimer();
    EXPECT_EQ(component.reads["Count"], 1) << "nothing is left to show";
}

TEST(PlayerPanel, ThePanelsTimerTicks)
{
    QMainWindow window;
    Component component;
    Panel panel(&window, "actionTest", 5);
    auto *const edit = panel.Make<QLineEdit>("count");
    panel.AddIntegerEdit(edit, "Count", nullptr, &component);
    component.Set("Count", "1");
    EXPECT_TRUE(WaitFor([&] { return edit->text() == "1"; }));
    component.Set("Count", "2");
    EXPECT_TRUE(WaitFor([&] { return edit->text() == "2"; })) << "again and again";
}

TEST(PlayerPanel, ASkippedTickKeepsWhatWaits)
{
    QMainWindow window;
    Component component;
    Panel panel(&window, "actionTest", Panel::kNever);
    auto *const edit = panel.Make<QLineEdit>("count");
    panel.AddIntegerEdit(edit, "Count", nullptr, &component);
    component.Set("Count", "1");
    panel.takesTicks = false;
    panel.UpdateByTimer();
    EXPECT_EQ(edit->text(), "5");
    panel.takesTicks = true;
    panel.UpdateByTimer();
    EXPECT_EQ(edit->text(), "1");
}

TEST(PlayerPanel, AnEmptyNameRefreshesEveryLink)
{
    QMainWindow window;
    Component component;
    Panel panel(&window, "actionTest", Panel::kNever);
    for (const char *param : {"Count", "Rate", "Count"})
        panel.AddIntegerEdit(panel.Make<QLineEdit>(param), param, nullptr, &component);
    component.reads.clear();
    panel.UpdateFromComponentAsync("Rate");
    panel.UpdateFromComponentAsync(QString());
    panel.UpdateByTimer();
    EXPECT_EQ(component.reads["Count"], 2) << "once for each link";
    EXPECT_EQ(component.reads["Rate"], 1) << "what waited before is part of all";
    component.reads.clear();
    panel.SetCurrentSession(nullptr);
    EXPECT_EQ(component.reads["Count"], 2) << "a new session is shown at once";
}

TEST(PlayerPanel, GeometryIsKeptInAGroupOfItsOwn)
{
    const QTemporaryDir folder;
    QSettings settings(folder.filePath("panels.conf"), QSettings::IniFormat);
    QMainWindow window;
    Panel panel(&window);
    panel.setFloating(true);
    panel.setGeometry(40, 50, 300, 200);
    EXPECT_TRUE(panel.SaveStateToGlobalSettings(&settings));
    EXPECT_TRUE(settings.contains("actionTestPanel/wndGeometry"));
    EXPECT_EQ(settings.group(), "");

    const QSize saved = panel.size();
    panel.resize(100, 100);
    EXPECT_TRUE(panel.LoadStateFromGlobalSettings(&settings));
    EXPECT_EQ(panel.size(), saved);

    for (const QVariant &damaged : {QVariant(), QVariant("rubbish"), QVariant(QByteArray(50, '\xff'))}) {
        settings.setValue("actionTestPanel/wndGeometry", damaged);
        EXPECT_TRUE(panel.LoadStateFromGlobalSettings(&settings));
        EXPECT_EQ(panel.size(), saved);
    }
    EXPECT_FALSE(panel.SaveStateToSessionSettings(&settings, "group"));
    EXPECT_FALSE(panel.LoadStateFromSessionSettings(&settings, "group"));
}

TEST(PlayerPanel, ControlsAreEnabledFromAnyThread)
{
    QMainWindow window;
    Panel panel(&window);
    auto *const edit = panel.Make<QLineEdit>("count");
    QObject noWidget;
    std::thread worker([&] {
        emit panel.enableControl(nullptr, false);
        emit panel.enableControl(&noWidget, false);
        emit panel.enableControl(edit, false);
    });
    worker.join();
    EXPECT_TRUE(edit->isEnabled()) << "not on the worker's thread";
    EXPECT_TRUE(WaitFor([&] { return !edit->isEnabled(); }));
}

} // namespace
