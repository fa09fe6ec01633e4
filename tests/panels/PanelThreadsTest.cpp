// Workers change parameters while the GUI thread shows them and makes and destroys panels.

#include "PanelFixture.h"
#include "support/GuiTest.h"

#include <QCheckBox>
#include <QLineEdit>

#include <memory>
#include <thread>

namespace {

/// A worker thread that keeps changing a component until it goes out of scope.
class ChangingWorker {
public:
    explicit ChangingWorker(Component *component)
        : m_thread([this, component] {
              for (int round = 0; !m_stop; ++round) {
                  component->Set("Count", round % 2 == 0 ? "1" : "2");
                  component->Set("Path", round % 2 == 0 ? "/even" : "/odd");
                  ++rounds;
              }
          })
    {
    }
    ~ChangingWorker()
    {
        m_stop = true;
        m_thread.join();
    }

    std::atomic<int> rounds{0};

private:
    std::atomic<bool> m_stop{false};
    std::thread m_thread; // last: it uses the others
};

TEST(PanelThreads, APanelWithoutTimerShowsAWorkersChangesOnTheGuiThread)
{
    QMainWindow window;
    Component component;
    Panel panel(&window);
    auto *const edit = panel.Make<QLineEdit>("count");
    auto *const check = panel.Make<QCheckBox>("enabled");
    panel.AddIntegerEdit(edit, "Count", nullptr, &component);
    panel.AddBoolCheckBox(check, "Enabled", &component);
    for (const char *value : {"42", "52", "62"}) {
        const QString before = edit->text();
        std::thread worker([&] {
            component.Set("Count", "1");
            component.Set("Count", value);
            component.Set("Enabled", "1");
        });
        worker.join();
        EXPECT_EQ(edit->text(), before);
        EXPECT_TRUE(WaitFor([&] { return edit->text() == value && check->isChecked(); })) << value;
    }
    EXPECT_EQ(component.foreignReads, 0);
    component.Set("Count", "43");
    EXPECT_EQ(edit->text(), "43") << "the GUI thread's own changes show at once";
}

TEST(PanelThreads, TheLastOfManyChangesIsShown)
{
    QMainWindow window;
    Component component;
    Panel immediate(&window, "actionImmediate");
    Panel ticking(&window, "actionTicking", 1);
    QList<QLineEdit *> edits;
    for (Panel *panel : {&immediate, &ticking}) {
        edits.append(panel->Make<QLineEdit>("count"));
        panel->AddIntegerEdit(edits.last(), "Count", nullptr, &component);
    }
    {
        const ChangingWorker worker(&component);
        ASSERT_TRUE(WaitFor([&] { return worker.rounds > 200; }));
    }
    component.Set("Count", "77");
    EXPECT_TRUE(WaitFor([&] { return edits[0]->text() == "77" && edits[1]->text() == "77"; }));
    EXPECT_EQ(component.foreignReads, 0);
}

TEST(PanelThreads, PanelsComeAndGoUnderBusyWorkers)
{
    constexpr int kPanels = 60;
    QMainWindow window;
    Component component;
    const ChangingWorker first(&component);
    const ChangingWorker second(&component);
    for (int index = 0; index < kPanels; ++index) {
        auto panel = std::make_unique<Panel>(&window, "actionTest", index % 3);
        panel->AddIntegerEdit(panel->Make<QLineEdit>("count"), "Count", nullptr, &component);
        panel->AddStringEdit(panel->Make<QLineEdit>("path"), "Path", &component);
        QCoreApplication::processEvents();
        if (index % 2 == 0)
            panel->ClearParamLinks();
        QCoreApplication::processEvents();
    }
    EXPECT_EQ(PlayerPanel::GetPanel("actionTest"), nullptr);
    EXPECT_EQ(component.foreignReads, 0);
}

} // namespace
