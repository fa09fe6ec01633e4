#include "PanelFixture.h"

#include "panels/OrvParamTableModel.h"

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QGroupBox>
#include <QLineEdit>
#include <QTableView>
#include <QTest>

namespace {

/// A panel without timer, so that every change shows at once.
class Binding : public testing::Test {
protected:
    QLineEdit *Edit(const char *name, bool isReadOnly = false)
    {
        auto *const edit = m_panel.Make<QLineEdit>(name);
        edit->setReadOnly(isReadOnly);
        return edit;
    }
    /// Types over the whole text and leaves the field.
    static void Type(QLineEdit *edit, const QString &text)
    {
        edit->setText(text);
        QTest::keyClick(edit, Qt::Key_Return);
    }

    QMainWindow m_window;
    Component m_component;
    Panel m_panel{&m_window};
};

struct EditCase {
    const char *rule;
    const char *param;
    const char *typed;
    const char *stored;
    const char *shown; // after the change came back
};

const EditCase kEditCases[] = {
    {"integer", "Count", "42", "42", "42"},
    {"letters write 0", "Count", "abc", "0", "0"},
    {"an empty field writes 0", "Count", "", "0", "0"},
    {"half a number writes 0", "Count", "4x", "0", "0"},
    {"beyond 32 bits writes 0", "Other", "3000000000", "0", "0"},
    {"the component's correction is shown", "Count", "-500", "-100", "-100"},
    {"float in its format", "Rate", "25.128", "25.128", "25.1"},
    {"no float writes 0", "Rate", "1,5", "0", "0.0"},
    {"float brought into range", "Rate", "1e9", "120", "120.0"},
    {"string", "Path", "/tmp/a b", "/tmp/a b", "/tmp/a b"},
    {"empty string", "Path", "", "", ""},
};

TEST_F(Binding, EditsAreWrittenAndComeBackAsTheComponentTookThem)
{
    m_panel.AddIntegerEdit(Edit("countEdit"), "Count", "%d", &m_component);
    m_panel.AddIntegerEdit(Edit("otherEdit"), "Other", nullptr, &m_component);
    m_panel.AddFloatEdit(Edit("rateEdit"), "Rate", "%.1f", &m_component);
    m_panel.AddStringEdit(Edit("pathEdit"), "Path", &m_component);
    for (const EditCase &row : kEditCases) {
        auto *const edit = m_panel.findChild<QLineEdit *>(m_panel.GetControlForParam(row.param).control);
        Type(edit, row.typed);
        EXPECT_EQ(m_component.Text(row.param), row.stored) << row.rule;
        EXPECT_EQ(edit->text().toStdString(), row.shown) << row.rule;
    }
    Type(m_panel.findChild<QLineEdit *>("pathEdit"), QString::fromUtf8("/\xc3\xbc"));
    EXPECT_EQ(m_component.Text("Path"), "/\xc3\xbc") << "texts are written as UTF-8";
}

TEST_F(Binding, TheFirstValueIsShownWhenBinding)
{
    m_component.Set("Path", "\xe9t\xe9"); // Latin-1
    m_component.Set("Enabled", "1");
    auto *const count = Edit("count");
    auto *const rate = Edit("rate");
    auto *const path = Edit("path");
    auto *const check = m_panel.Make<QCheckBox>("check");
    auto *const group = m_panel.Make<QGroupBox>("group");
    group->setCheckable(true);
    group->setChecked(false);
    EXPECT_TRUE(m_panel.AddIntegerEdit(count, "Count", "%03d", &m_component));
    EXPECT_TRUE(m_panel.AddFloatEdit(rate, "Rate", nullptr, &m_component));
    EXPECT_TRUE(m_panel.AddStringEdit(path, "Path", &m_component));
    EXPECT_TRUE(m_panel.AddBoolCheckBox(check, "Enabled", &m_component));
    EXPECT_TRUE(m_panel.AddBoolCheckGroupBox(group, "Enabled", &m_component));
    EXPECT_EQ(count->text(), "005");
    EXPECT_EQ(rate->text(), "29.97");
    EXPECT_EQ(path->text(), QString::fromUtf8("\xc3\xa9t\xc3\xa9"));
    EXPECT_TRUE(check->isChecked());
    EXPECT_TRUE(group->isChecked());
    EXPECT_EQ(m_component.writes, 0);
}

TEST_F(Binding, BoxesWriteBothWays)
{
    auto *const check = m_panel.Make<QCheckBox>("check");
    auto *const group = m_panel.Make<QGroupBox>("group");
    group->setCheckable(true);
    m_panel.AddBoolCheckBox(check, "Enabled", &m_component);
    check->setTristate(true);
    check->setCheckState(Qt::PartiallyChecked);
    EXPECT_EQ(m_component.Text("Enabled"), "1") << "partially checked counts as true";
    check->setCheckState(Qt::Unchecked);
    EXPECT_EQ(m_component.Text("Enabled"), "0");
    m_panel.AddBoolCheckGroupBox(group, "Enabled", &m_component);
    group->setChecked(true);
    EXPECT_EQ(m_component.Text("Enabled"), "1");
    EXPECT_TRUE(check->isChecked()) << "the first widget of the parameter follows";
}

TEST_F(Binding, AReadOnlyEditShowsAndNeverWrites)
{
    auto *const edit = Edit("count", true);
    m_panel.AddIntegerEdit(edit, "Count", nullptr, &m_component);
    m_component.Set("Count", "7");
    EXPECT_EQ(edit->text(), "7");
    Type(edit, "9");
    EXPECT_EQ(m_component.Text("Count"), "7");
}

TEST_F(Binding, OnlyTheFirstOfTwoWidgetsFollowsAParameter)
{
    auto *const first = Edit("first");
    auto *const second = Edit("second");
    m_panel.AddIntegerEdit(first, "Count", nullptr, &m_component);
    m_panel.AddIntegerEdit(second, "Count", nullptr, &m_component);
    m_component.Set("Count", "8");
    EXPECT_EQ(first->text(), "8");
    EXPECT_EQ(second->text(), "5");
    Type(second, "9");
    EXPECT_EQ(m_component.Text("Count"), "9") << "both write";
}

TEST_F(Binding, PanelsCompareNamesNotComponents)
{
    Component other;
    Panel otherPanel(&m_window, "actionOther");
    auto *const mine = Edit("count");
    auto *const theirs = otherPanel.Make<QLineEdit>("count");
    m_panel.AddIntegerEdit(mine, "Count", nullptr, &m_component);
    otherPanel.AddIntegerEdit(theirs, "Count", nullptr, &other);
    m_component.reads.clear();
    other.reads.clear();
    m_component.Set("Count", "11");
    EXPECT_EQ(mine->text(), "11");
    EXPECT_EQ(theirs->text(), "5") << "each shows its own component";
    EXPECT_EQ(m_component.reads["Count"], 1);
    EXPECT_EQ(other.reads["Count"], 1);
}

TEST_F(Binding, AComboBoxFollowsTheItemWithTheValue)
{
    auto *const box = m_panel.Make<QComboBox>("box");
    for (const qint64 value : {0, 5, 7})
        box->addItem(QString("item %1").arg(value), value);
    m_panel.AddParamLink("Count", box, &m_component, 0, nullptr);
    m_panel.UpdateAll();
    EXPECT_EQ(box->currentText(), "item 5");
    m_component.Set("Count", "7");
    EXPECT_EQ(box->currentText(), "item 7");
    m_component.Set("Count", "6");
    EXPECT_EQ(box->currentText(), "item 7") << "no item has that value";
}

TEST_F(Binding, AFailedReadShowsAnEmptyField)
{
    auto *const edit = Edit("edit");
    edit->setText("old");
    m_panel.AddIntegerEdit(edit, "NoSuchParameter", nullptr, &m_component);
    EXPECT_EQ(edit->text(), "");
    auto *const check = m_panel.Make<QCheckBox>("check");
    check->setChecked(true);
    m_panel.AddBoolCheckBox(check, "Count", &m_component); // of another type
    EXPECT_FALSE(check->isChecked());
}

TEST_F(Binding, ALongTextIsShownWholeAndSurvivesAnEdit)
{
    const std::string text(1500, 'p');
    auto *const edit = Edit("path");
    m_component.Set("Path", text.c_str());
    m_panel.AddStringEdit(edit, "Path", &m_component);
    EXPECT_EQ(edit->text().toStdString(), text);
    edit->clear();
    m_panel.UpdateFromComponent("Path");
    EXPECT_EQ(edit->text().toStdString(), text);
}

TEST_F(Binding, AWidgetBoundToNothingIsInert)
{
    auto *const edit = Edit("count");
    auto *const check = m_panel.Make<QCheckBox>("check");
    m_panel.AddIntegerEdit(edit, "Count", nullptr, nullptr);
    m_panel.AddBoolCheckBox(check, "Enabled", nullptr);
    edit->setText("3");
    m_panel.UpdateAll();
    Type(edit, "4");
    check->setChecked(true);
    EXPECT_EQ(edit->text(), "4");
    EXPECT_EQ(m_component.Text("Enabled"), "0");
}

TEST_F(Binding, WidgetsCanBeBoundAgainToTheNextSessionsComponent)
{
    auto *const edit = Edit("count");
    auto *const view = m_panel.Make<QTableView>("view");
    view->setModel(new OrvParamTableModel(view));
    const auto bind = [&](Component *component) {
        m_panel.AddIntegerEdit(edit, "Count", nullptr, component);
        m_panel.AddTableParam(view, "Rate", component, nullptr);
    };
    {
        Component gone;
        gone.Set("Count", "1");
        bind(&gone);
        m_panel.UpdateFromComponentAsync(QString());
        m_panel.ClearParamLinks();
    }
    EXPECT_FALSE(m_panel.HasParam("Count"));
    EXPECT_EQ(view->model()->rowCount(), 0);
    Type(edit, "12"); // must not reach the component that is gone
    bind(&m_component);
    m_component.reads.clear();
    m_panel.UpdateByTimer();
    EXPECT_TRUE(m_component.reads.empty()) << "what waited went with the old links";
    EXPECT_EQ(edit->text(), "5");
    EXPECT_EQ(view->model()->rowCount(), 1);
    Type(edit, "13");
    EXPECT_EQ(m_component.Text("Count"), "13");
    EXPECT_EQ(m_component.writes, 1) << "one edit, one write";
}

} // namespace
