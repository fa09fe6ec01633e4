#include "orvgui/OrvCameraSelectorDialog.h"
#include "orvgui/SoftwareCamera.h"
#include "support/GuiTest.h"
#include "support/NoThreads.h"
#include "support/ScriptedSystem.h"

#include <gmock/gmock.h>

#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QScrollBar>
#include <QSettings>
#include <QTemporaryDir>
#include <QTextDocument>
#include <QTimer>
#include <QTreeWidget>
#include <QtTest>

#include <optional>

using OrvCam::DeviceState;

namespace {

const OrvCam::InterfaceDescription kUsb = {OrvCam::ORV_INTERFACE_U3V, "u3v", "USB", "Nuvark.cti"};

/// A dialog over a scripted system, seen through its widgets.
class CameraSelector : public testing::Test {
protected:
    void SetUp() override { QSettings("Zelkor", "OrvPlayer").clear(); }

    void TearDown() override
    {
        m_system.LetGo();
        EXPECT_TRUE(WaitFor([this] { return IsIdle() && m_system.InUse() == 0; })); // a search would outlive the system
    }

    static auto Camera(const std::string &serial, DeviceState state = DeviceState::Free)
    {
        return scripted::System::Camera(serial, state);
    }

    /// Opens the dialog; returns when its first search is done.
    void Open()
    {
        Show();
        ASSERT_TRUE(WaitFor([this] { return IsIdle(); }));
    }

    void Show()
    {
        m_dialog.emplace(&m_system);
        m_dialog->show();
    }

    /// Searches once more at the user's wish.
    void Refresh()
    {
        const int before = m_system.Searches();
        QTest::keyClick(&*m_dialog, Qt::Key_F5);
        ASSERT_TRUE(WaitFor([&] { return m_system.Searches() > before && IsIdle(); }));
    }

    template <class Widget> Widget *Find(const char *name) const { return m_dialog->findChild<Widget *>(name); }
    QTreeWidget *Tree() const { return Find<QTreeWidget>("cameras"); }
    QPushButton *ConnectButton() const { return Find<QPushButton>("connect"); }
    bool IsIdle() const { return !Find<QLabel>("searching")->isVisible(); }

    /// What stands over the list; "" when the list shows.
    std::string Message() const
    {
        const auto *label = Find<QLabel>("message");
        return label->isVisible() ? label->text().toStdString() : "";
    }

    std::vector<std::string> Serials() const
    {
        std::vector<std::string> serials;
        for (QTreeWidgetItemIterator item(Tree()); *item; ++item) {
            if ((*item)->parent())
                serials.push_back((*item)->text(1).toStdString());
        }
        return serials;
    }

    QTreeWidgetItem *Row(const std::string &serial) const
    {
        return Tree()->findItems(QString::fromStdString(serial), Qt::MatchExactly | Qt::MatchRecursive, 1).value(0);
    }

    std::string Selected() const
    {
        const auto items = Tree()->selectedItems();
        return items.isEmpty() ? "" : items.first()->text(1).toStdString();
    }

    void Click(const std::string &serial)
    {
        QTest::mouseClick(Tree()->viewport(), Qt::LeftButton, {}, Tree()->visualItemRect(Row(serial)).center());
    }

    static void Remember(const OrvCam::DeviceDescription &camera)
    {
        QSettings settings("Zelkor", "OrvPlayer");
        settings.beginGroup("CameraSelector");
        settings.setValue("vendor", QString::fromStdString(camera.vendor));
        settings.setValue("model", QString::fromStdString(camera.model));
        settings.setValue("serial", QString::fromStdString(camera.serial));
    }

    scripted::System m_system;
    std::optional<OrvGui::OrvCameraSelectorDialog> m_dialog;
};

using Strings = std::vector<std::string>;
using testing::HasSubstr;
using testing::Not;

TEST_F(CameraSelector, SaysThatItSearchesAndThenListsTheCameras)
{
    m_system.Find({Camera("1"), Camera("2")});
    m_system.Hold();
    Show();
    ASSERT_TRUE(WaitFor([this] { return m_system.InUse() == 1; }));
    EXPECT_FALSE(IsIdle());
    EXPECT_THAT(Message(), HasSubstr("Searching for cameras..."));
    EXPECT_FALSE(ConnectButton()->isEnabled());

    m_system.LetGo();
    ASSERT_TRUE(WaitFor([this] { return IsIdle(); }));
    EXPECT_EQ(Message(), "");
    EXPECT_EQ(Serials(), (Strings{"1", "2"}));
}

TEST_F(CameraSelector, InterfacesWithoutCamerasAreOnlyNamedAsSearched)
{
    m_system.FindOn({{kUsb, {}}, {scripted::System::Ethernet(), {Camera("2"), Camera("1")}}});
    Open();
    EXPECT_EQ(Tree()->topLevelItemCount(), 1);
    EXPECT_EQ(Serials(), (Strings{"1", "2"}));
    const std::string searched = Find<QLabel>("searched")->text().toStdString();
    EXPECT_THAT(searched, HasSubstr("USB"));
    EXPECT_THAT(searched, HasSubstr("eth0"));
}

TEST_F(CameraSelector, AFailedSearchIsToldAtItsInterfaceUntilOneSucceeds)
{
    OrvCam::InterfaceDescription failed = scripted::System::Ethernet();
    failed.searchFailure = "cannot send: Operation <not> permitted";
    const auto heading = [this] {
        const QTreeWidgetItem *item = Tree()->topLevelItem(0);
        return item ? item->text(0).toStdString() : "none";
    };
    m_system.Find({Camera("1")});
    Open();
    EXPECT_EQ(heading(), "eth0 (10.0.0.1)");
    m_system.FindOn({{failed, {}}, {kUsb, {}}});
    Refresh();
    EXPECT_THAT(heading(), HasSubstr("eth0 (10.0.0.1): the search failed (cannot send: Operation <not> permitted)"));
    EXPECT_FALSE(Tree()->topLevelItem(0)->icon(0).isNull());
    EXPECT_THAT(Tree()->topLevelItem(0)->toolTip(0).toStdString(), HasSubstr("&lt;not&gt; permitted"));
    EXPECT_THAT(Message(), HasSubstr("Not all interfaces could be searched"));
    EXPECT_GT(Find<QLabel>("message")->y(), Tree()->visualItemRect(Tree()->topLevelItem(0)).bottom());
    EXPECT_THAT(Find<QLabel>("searched")->text().toStdString(), Not(HasSubstr("eth0")));
    m_system.FindOn({{kUsb, {Camera("2")}}, {failed, {}}});
    Refresh();
    EXPECT_EQ(Message(), "");
    Click("2");
    for (const Qt::Key key : {Qt::Key_Down, Qt::Key_Up}) { // over headings one below the other
        QTest::keyClick(Tree(), key);
        EXPECT_EQ(Selected(), "2");
    }
    m_system.Find({});
    Refresh();
    EXPECT_EQ(heading(), "none");
    EXPECT_THAT(Message(), HasSubstr("cable and power"));
}

TEST_F(CameraSelector, ARefreshKeepsSelectionAndScrollPosition)
{
    scripted::System::Cameras cameras;
    for (int i = 100; i < 180; ++i)
        cameras.push_back(Camera(std::to_string(i)));
    m_system.Find(cameras);
    Open();
    Tree()->verticalScrollBar()->setValue(30);
    Click("135");
    ASSERT_EQ(Selected(), "135");

    cameras.erase(cameras.begin() + 75);
    cameras[35].userName = "left";
    cameras.push_back(Camera("200"));
    m_system.Find(cameras);
    Refresh();
    EXPECT_EQ(Selected(), "135");
    EXPECT_EQ(Tree()->verticalScrollBar()->value(), 30);
    EXPECT_EQ(Row("135")->text(2), "left");
    EXPECT_EQ(Row("175"), nullptr);
    EXPECT_NE(Row("200"), nullptr);
}

TEST_F(CameraSelector, ItSearchesAgainByItselfAndToleratesOneMiss)
{
    m_system.Find({Camera("1"), Camera("2")});
    Open();
    m_system.Find({Camera("2")});
    ASSERT_TRUE(WaitFor([this] { return m_system.Searches() == 2 && IsIdle(); }));
    EXPECT_EQ(Serials(), (Strings{"1", "2"}));
    ASSERT_TRUE(WaitFor([this] { return m_system.Searches() == 3 && IsIdle(); }));
    EXPECT_EQ(Serials(), (Strings{"2"}));
}

TEST_F(CameraSelector, WhenTheSelectedCameraGoesNoOtherTakesItsPlace)
{
    m_system.Find({Camera("1"), Camera("2"), Camera("3")});
    Open();
    Click("2");
    EXPECT_TRUE(ConnectButton()->isEnabled());
    m_system.Find({Camera("1"), Camera("3")});
    Refresh();
    EXPECT_EQ(Selected(), "");
    EXPECT_FALSE(ConnectButton()->isEnabled());

    m_system.Find({});
    Refresh();
    EXPECT_THAT(Message(), HasSubstr("No camera found."));
}

TEST_F(CameraSelector, PreselectsTheLastUsedElseTheOnlyFreeCamera)
{
    const auto busy = DeviceState::Busy;
    const struct {
        const char *rule, *lastUsed;
        scripted::System::Cameras cameras;
        const char *selected;
    } cases[] = {
        {"one free camera", "", {Camera("1")}, "1"},
        {"one free among busy ones", "", {Camera("1", busy), Camera("2")}, "2"},
        {"several free ones: the user must choose", "", {Camera("1"), Camera("2")}, ""},
        {"the last used of several", "2", {Camera("1"), Camera("2"), Camera("3")}, "2"},
        {"the last used is busy", "1", {Camera("1", busy), Camera("2"), Camera("3")}, ""},
        {"the last used is away, one other is free", "9", {Camera("1")}, "1"},
        {"all busy", "", {Camera("1", busy)}, ""},
    };
    for (const auto &row : cases) {
        QSettings("Zelkor", "OrvPlayer").clear();
        if (*row.lastUsed)
            Remember(Camera(row.lastUsed));
        m_system.Find(row.cameras);
        Open();
        EXPECT_EQ(Selected(), row.selected) << row.rule;
        EXPECT_EQ(ConnectButton()->isEnabled(), *row.selected != 0) << row.rule;
    }
}

TEST_F(CameraSelector, TheLastUsedCameraThatAppearsLaterIsPreselectedUnlessTheUserChose)
{
    for (const bool userChose : {false, true}) {
        Remember(Camera("2"));
        scripted::System::Cameras cameras = {Camera("1")};
        if (userChose)
            cameras.push_back(Camera("3"));
        m_system.Find(cameras);
        Open();
        if (userChose)
            Click("1");
        ASSERT_EQ(Selected(), "1");
        cameras.push_back(Camera("2"));
        m_system.Find(cameras);
        Refresh();
        EXPECT_EQ(Selected(), userChose ? "1" : "2");
    }
}

TEST_F(CameraSelector, OnlyUsableCamerasCanBeAccepted)
{
    const struct {
        DeviceState state;
        bool usable;
        const char *text;
        const char *holder = "";
    } cases[] = {
        {DeviceState::Free, true, "Available"},
        {DeviceState::Unknown, true, "State unknown"},
        {DeviceState::ReadOnly, false, "In use by another program"},
        {DeviceState::Busy, false, "In use by another program"},
        {DeviceState::Busy, false, "In use by another program (10.0.0.7:5000)", "10.0.0.7:5000"},
        {DeviceState::Unreachable, false, "Unreachable: address does not fit the network"},
        {DeviceState::OpenHere, false, "Open in this program"},
    };
    for (const auto &row : cases) {
        auto camera = Camera("1", row.state);
        camera.holder = row.holder;
        m_system.Find({camera, Camera("2")});
        Open();
        Click("1");
        EXPECT_EQ(Row("1")->text(4).toStdString(), row.text);
        EXPECT_EQ(ConnectButton()->isEnabled(), row.usable) << row.text;
        EXPECT_FALSE(Find<QLabel>("advice")->text().isEmpty()) << row.text;
        m_dialog->accept();
        EXPECT_EQ(m_dialog->result() == QDialog::Accepted, row.usable) << row.text;
        EXPECT_EQ(m_dialog->selectedCamera() != nullptr, row.usable) << row.text;
    }
}

TEST_F(CameraSelector, DoubleClickAndEnterConnect)
{
    m_system.Find({Camera("1"), Camera("2")});
    Open();
    Click("2");
    QTest::keyClick(Tree(), Qt::Key_Return);
    ASSERT_NE(m_dialog->selectedCamera(), nullptr);
    EXPECT_EQ(m_dialog->selectedCamera()->serial, "2");

    Open(); // a new dialog knows the last choice
    EXPECT_EQ(Selected(), "2");
    Click("1");
    const QPoint row = Tree()->visualItemRect(Row("1")).center();
    QTest::mouseDClick(Tree()->viewport(), Qt::LeftButton, {}, row);
    ASSERT_NE(m_dialog->selectedCamera(), nullptr);
    EXPECT_EQ(m_dialog->selectedCamera()->serial, "1");
}

TEST_F(CameraSelector, ArrowKeysStepOverTheHeadings)
{
    m_system.FindOn({{scripted::System::Ethernet(), {Camera("1")}}, {kUsb, {Camera("2"), Camera("3")}}});
    Open();
    Click("1");
    const std::pair<Qt::Key, const char *> steps[] = {{Qt::Key_Down, "2"}, {Qt::Key_End, "3"}, {Qt::Key_Up, "2"},
                                                      {Qt::Key_Left, "2"}, {Qt::Key_Up, "1"},  {Qt::Key_Up, "1"},
                                                      {Qt::Key_End, "3"},  {Qt::Key_Home, "1"}};
    for (const auto &[key, serial] : steps) {
        QTest::keyClick(Tree(), key);
        EXPECT_EQ(Selected(), serial) << "key " << key;
    }
}

TEST_F(CameraSelector, TellsWhenNothingCanBeSearched)
{
    m_system.FindNothingToSearchWith();
    Open();
    EXPECT_THAT(Message(), HasSubstr("Cameras cannot be searched."));

    OrvGui::OrvCameraSelectorDialog dialog(nullptr);
    dialog.show();
    EXPECT_THAT(dialog.findChild<QLabel *>("message")->text().toStdString(), HasSubstr("Cameras cannot be searched."));
    EXPECT_FALSE(dialog.findChild<QPushButton *>("refresh")->isEnabled());
}

/// A program of a few shell lines in the place of the software camera.
class SoftwareCameraButton : public CameraSelector {
protected:
    void UseProgram(const QString &lines)
    {
        const QString path = m_folder.filePath(QStringLiteral("camera"));
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(("#!/bin/sh\n" + lines + "\n").toUtf8());
        file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        file.close();
        Software().SetProgram(path);
    }

    void TearDown() override
    {
        Software().Stop();
        CameraSelector::TearDown();
    }

    static OrvGui::SoftwareCamera &Software() { return OrvGui::SoftwareCamera::Instance(); }
    QPushButton *Button() const { return Find<QPushButton>("softwareCamera"); }

    QTemporaryDir m_folder;
};

TEST_F(SoftwareCameraButton, IsOfferedWhereThereIsNoCameraAndStartsOne)
{
    UseProgram("echo ready; exec sleep 60");
    m_system.Find({Camera("1")});
    Open();
    EXPECT_FALSE(Button()->isVisible());
    m_system.Find({});
    Refresh();
    EXPECT_TRUE(Button()->isVisible());
    m_system.Find({Camera("SIM0001")});
    QTest::mouseClick(Button(), Qt::LeftButton);
    EXPECT_TRUE(WaitFor([this] { return Selected() == "SIM0001"; }));
    EXPECT_FALSE(Button()->isVisible());
    Software().SetProgram({});
    m_system.Find({});
    Refresh();
    EXPECT_FALSE(Button()->isVisible()) << "there is nothing to start";
}

TEST_F(SoftwareCameraButton, TellsWhyItDidNotStart)
{
    for (const auto &[lines, reason] :
         {std::pair{"echo 'address is in use' >&2; exit 1", "address is in use"}, {"exit 0", "ended"}}) {
        SCOPED_TRACE(lines);
        const auto isTold = [text = reason, this] { return Find<QLabel>("advice")->text().contains(text); };
        UseProgram(lines);
        m_system.Find({});
        Open();
        QTest::mouseClick(Button(), Qt::LeftButton);
        EXPECT_TRUE(WaitFor(isTold));
        EXPECT_TRUE(Button()->isEnabled());
        Refresh();
        EXPECT_TRUE(isTold()) << "gone with the next search";
        ASSERT_TRUE(WaitFor([this] { return IsIdle() && m_system.InUse() == 0; }));
    }
    Software().SetProgram("/nowhere/orvsim");
    Open();
    QTest::mouseClick(Button(), Qt::LeftButton);
    EXPECT_TRUE(WaitFor([this] { return !Find<QLabel>("advice")->text().isEmpty(); }));
}

TEST_F(CameraSelector, ClosingDuringASearchDoesNotWaitForIt)
{
    m_system.Find({Camera("1")});
    m_system.Hold();
    const int owned = qApp->children().size();
    Show();
    ASSERT_TRUE(WaitFor([this] { return m_system.InUse() == 1; }));
    m_dialog->reject();
    m_dialog.reset();
    EXPECT_EQ(m_system.InUse(), 1);

    // The search ends into nothing while a new dialog already searches.
    Show();
    ASSERT_TRUE(WaitFor([this] { return m_system.InUse() == 2; }));
    m_system.LetGo();
    ASSERT_TRUE(WaitFor([this] { return m_system.InUse() == 0 && IsIdle(); }));
    EXPECT_EQ(Serials(), (Strings{"1"}));
    EXPECT_TRUE(WaitFor([&] { return qApp->children().size() == owned; })) << "the thread's owner stays";
}

TEST_F(CameraSelector, ARefreshDuringASearchIsFollowedByOneMoreAtOnce)
{
    m_system.Find({Camera("1"), Camera("2")});
    Open();
    m_system.Find({Camera("2")});
    m_system.Hold();
    QTest::keyClick(&*m_dialog, Qt::Key_F5);
    ASSERT_TRUE(WaitFor([this] { return m_system.InUse() == 1; }));
    Find<QPushButton>("refresh")->click();
    QTest::keyClick(&*m_dialog, Qt::Key_F5);
    m_system.LetGo();
    ASSERT_TRUE(WaitFor([this] { return IsIdle(); }));
    EXPECT_EQ(m_system.Searches(), 3) << "one more without a pause, and only one";
    EXPECT_EQ(Serials(), (Strings{"2"})) << "the list is exact";
}

TEST_F(CameraSelector, WhatCamerasSayIsNotMarkup)
{
    const std::string hostile = "<img src=\"/dev/zero\"> A&B &lt;i&gt; <b>x</b>";
    auto camera = Camera("<u>1</u>");
    camera.vendor = camera.model = camera.userName = camera.address = hostile;
    camera.interface.text = hostile;
    auto second = Camera("2", DeviceState::Unreachable);
    second.interface.text = hostile;
    OrvCam::InterfaceDescription interface {
        OrvCam::ORV_INTERFACE_GEV, "gev", hostile, hostile
    };
    m_system.FindOn({{interface, {camera, second}}});
    Open();
    const auto asShown = [](const QString &text) {
        QTextDocument document;
        if (Qt::mightBeRichText(text)) // as labels and tool tips decide
            document.setHtml(text);
        else
            document.setPlainText(text);
        return document.toPlainText().toStdString();
    };
    for (const char *serial : {"<u>1</u>", "2"}) {
        Click(serial);
        const auto *advice = Find<QLabel>("advice");
        EXPECT_EQ(advice->textFormat(), Qt::PlainText);
        EXPECT_THAT(advice->text().toStdString(), HasSubstr(hostile));
        EXPECT_EQ(asShown(Row(serial)->toolTip(0)), advice->text().toStdString());
    }
    EXPECT_EQ(asShown(Tree()->topLevelItem(0)->toolTip(0)), hostile);
    EXPECT_EQ(Tree()->topLevelItem(0)->text(0).toStdString(), hostile);
    std::string searched = asShown(Find<QLabel>("searched")->text());
    EXPECT_THAT(QString::fromStdString(searched).replace(QChar::Nbsp, ' ').toStdString(), HasSubstr(hostile));
}

TEST_F(CameraSelector, ASystemWithoutThreadsIsToldAndSurvived)
{
    m_system.Find({Camera("1")});
    {
        const NoThreads exhausted;
        Open();
        EXPECT_THAT(Message(), HasSubstr("The system has no resources left"));
        EXPECT_EQ(m_system.Searches(), 0);
    }
    Refresh();
    EXPECT_EQ(Message(), "");
    EXPECT_EQ(Serials(), (Strings{"1"}));

    const NoThreads exhausted;
    for (int search = 0; search < 3; ++search) {
        QTest::keyClick(&*m_dialog, Qt::Key_F5);
        ASSERT_TRUE(WaitFor([this] { return IsIdle(); }));
    }
    EXPECT_EQ(Serials(), (Strings{"1"})) << "a search that was not made takes no camera away";
}

TEST_F(CameraSelector, RemembersItsSize)
{
    Open();
    m_dialog->resize(760, 500);
    m_dialog->reject();
    Show();
    EXPECT_EQ(m_dialog->size(), QSize(760, 500));
}

} // namespace

ORV_GUI_TEST_MAIN
