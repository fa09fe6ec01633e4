#include "PanelFixture.h"

#include "panels/OrvParamTableModel.h"

#include <gtest/gtest.h>

#include <QClipboard>
#include <QGuiApplication>
#include <QSignalSpy>
#include <QTableView>

namespace {

class ParamTable : public testing::Test {
protected:
    ParamTable()
    {
        m_view->setModel(&m_model);
        QGuiApplication::clipboard()->setText("before");
    }

    QString Cell(int row, int column) const { return m_model.index(row, column).data().toString(); }
    static QString Clipboard() { return QGuiApplication::clipboard()->text(); }

    QMainWindow m_window;
    Component m_component;
    Panel m_panel{&m_window};
    OrvParamTableModel m_model;
    QTableView *m_view = m_panel.Make<QTableView>("view");
};

TEST_F(ParamTable, ListsLabelsAndValuesInTheOrderOfBinding)
{
    QSignalSpy inserted(&m_model, &QAbstractItemModel::rowsInserted);
    m_panel.AddTableParam(m_view, "FpsAvg", &m_component, "Frames \xc3\xbc");
    m_panel.AddTableParam(m_view, "Count", &m_component, nullptr);
    EXPECT_EQ(inserted.count(), 2);
    EXPECT_EQ(m_model.rowCount(), 2);
    EXPECT_EQ(m_model.columnCount(), 2);
    EXPECT_EQ(Cell(0, 0), QString::fromUtf8("Frames \xc3\xbc"));
    EXPECT_EQ(Cell(1, 0), "Count");
    EXPECT_EQ(Cell(1, 1), "5");
    EXPECT_EQ(m_panel.GetControlForParam("Count").row, 1);
}

TEST_F(ParamTable, RatesHaveTwoDecimalsWhateverTheirComponent)
{
    m_panel.AddTableParam(m_view, "FpsAvg", &m_component, nullptr);
    m_panel.AddTableParam(m_view, "Rate", &m_component, nullptr);
    EXPECT_EQ(Cell(0, 1), "30.00");
    EXPECT_EQ(Cell(1, 1), "29.97");
    m_component.Set("FpsAvg", "29.97");
    m_component.Set("Rate", "30");
    EXPECT_EQ(Cell(0, 1), "29.97");
    EXPECT_EQ(Cell(1, 1), "30");
}

TEST_F(ParamTable, WhatCannotBeReadIsNotAvailable)
{
    m_panel.AddTableParam(m_view, "NoSuchParameter", &m_component, nullptr);
    m_panel.AddTableParam(m_view, "Count", nullptr, nullptr);
    EXPECT_EQ(Cell(0, 1), "n/a");
    EXPECT_EQ(Cell(1, 1), "n/a");
}

TEST_F(ParamTable, AChangeMakesTheViewReadThatRowOnly)
{
    m_panel.AddTableParam(m_view, "FpsAvg", &m_component, nullptr);
    m_panel.AddTableParam(m_view, "Count", &m_component, nullptr);
    QSignalSpy changed(&m_model, &QAbstractItemModel::dataChanged);
    m_component.Set("Count", "9");
    ASSERT_EQ(changed.count(), 1);
    EXPECT_EQ(changed[0][0].toModelIndex(), m_model.index(1, 0));
    EXPECT_EQ(changed[0][1].toModelIndex(), m_model.index(1, 1));
    EXPECT_EQ(Cell(1, 1), "9");
}

TEST_F(ParamTable, AViewOfAnotherModelGetsNoRow)
{
    auto *const empty = m_panel.Make<QTableView>("empty");
    EXPECT_TRUE(m_panel.AddTableParam(empty, "Count", &m_component, nullptr));
    EXPECT_FALSE(m_panel.HasParam("Count"));
}

TEST_F(ParamTable, CopiesARowOrTheWholeTable)
{
    m_model.CopyField(QModelIndex());
    m_model.CopyField(m_model.index(3, 0));
    EXPECT_EQ(Clipboard(), "before") << "an index of no row copies nothing";
    m_panel.AddTableParam(m_view, "FpsAvg", &m_component, "FPS");
    m_panel.AddTableParam(m_view, "Count", &m_component, nullptr);
    m_model.CopyField(m_model.index(0, 1));
    EXPECT_EQ(Clipboard(), "FPS\t30.00");
    m_component.Set("Count", "9");
    m_model.CopyTable();
    EXPECT_EQ(Clipboard(), "FPS\t30.00\nCount\t9\n");
    m_panel.ClearParamLinks();
    m_model.CopyTable();
    EXPECT_EQ(Clipboard(), "");
}

} // namespace
