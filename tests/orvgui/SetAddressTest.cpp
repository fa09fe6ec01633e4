#include "orvdoctor/Addresses.h"
#include "orvgui/OrvCameraSelectorDialog.h"
#include "orvgui/SetAddressDialog.h"
#include "support/GuiTest.h"
#include "support/ScriptedSystem.h"

#include <gmock/gmock.h>

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSettings>
#include <QTimer>
#include <QTreeWidget>
#include <QtTest>

#include <optional>

namespace {

using OrvCam::DeviceState;
using OrvGui::SetAddressDialog;
using testing::ElementsAre;
using testing::HasSubstr;

OrvCam::DeviceDescription Foreign()
{
    auto camera = scripted::System::Camera("7", DeviceState::Unreachable);
    camera.address = "192.168.5.20";
    return camera;
}

/// The dialog for a camera found on eth0 (10.0.0.1/24).
class SetAddress : public testing::Test {
protected:
    void Open(std::vector<std::uint32_t> taken = {})
    {
        orv::HostInterfaceFacts interface;
        interface.name = "eth0";
        interface.address = 0x0A000001;
        interface.subnetMask = 0xFFFFFF00;
        m_dialog.emplace(&m_system, Foreign(), interface, std::move(taken));
        m_dialog->show();
    }
    QString Value(const char *field) { return m_dialog->findChild<QLineEdit *>(field)->text(); }
    void Enter(const char *field, const char *text) { m_dialog->findChild<QLineEdit *>(field)->setText(text); }
    QPushButton *SetButton() { return m_dialog->findChild<QPushButton *>("set"); }
    std::string Problem() { return m_dialog->findChild<QLabel *>("problem")->text().toStdString(); }

    scripted::System m_system;
    std::optional<SetAddressDialog> m_dialog;
};

TEST_F(SetAddress, ProposesAFreeAddressOfTheInterfacesNetwork)
{
    Open();
    EXPECT_EQ(Value("address"), "10.0.0.20");
    EXPECT_EQ(Value("mask"), "255.255.255.0");
    EXPECT_EQ(Value("gateway"), "0.0.0.0");
    EXPECT_TRUE(SetButton()->isEnabled());
    Open({0x0A000014}); // that one
    EXPECT_EQ(Value("address"), "10.0.0.21");
}

TEST_F(SetAddress, TakesOnlyWhatMakesTheCameraReachable)
{
    const struct {
        const char *address, *mask, *gateway;
        const char *problem; ///< "" when it is taken
    } cases[] = {
        {"10.0.0.20", "255.255.255.0", "0.0.0.0", ""},
        {" 10.0.0.20 ", "255.255.255.0", "10.0.0.1", ""},
        {"10.0.0.20", "255.255.0.0", "0.0.0.0", ""},
        {"10.0.0", "255.255.255.0", "0.0.0.0", "four numbers"},
        {"", "255.255.255.0", "0.0.0.0", "four numbers"},
        {"10.0.0.256", "255.255.255.0", "0.0.0.0", "four numbers"},
        {"10.0.1.20", "255.255.255.0", "0.0.0.0", "interface's network, 10.0.0.0/24"},
        {"10.0.0.1", "255.255.255.0", "0.0.0.0", "This computer itself"},
        {"10.0.0.0", "255.255.255.0", "0.0.0.0", "of a network"},
        {"10.0.0.255", "255.255.255.0", "0.0.0.0", "of all its hosts"},
        {"10.0.0.255", "255.255.0.0", "0.0.0.0", "of all its hosts"},
        {"10.0.0.99", "255.255.255.0", "0.0.0.0", "Another camera"},
        {"10.0.0.20", "255.0.255.0", "0.0.0.0", "mask must be"},
        {"10.0.0.20", "0.0.0.0", "0.0.0.0", "mask must be"},
        {"10.0.0.20", "255.255.255.240", "0.0.0.0", "lacks this computer"},
        {"10.0.0.20", "255.255.255.0", "x", "gateway must be"},
        {"10.0.0.20", "255.255.255.0", "10.9.0.1", "gateway must be"},
        {"10.0.0.20", "255.255.255.0", "10.0.0.20", "gateway cannot be the camera"},
    };
    Open({0x0A000063});
    for (const auto &row : cases) {
        Enter("address", row.address);
        Enter("mask", row.mask);
        Enter("gateway", row.gateway);
        EXPECT_EQ(SetButton()->isEnabled(), *row.problem == 0) << row.address << " " << row.mask;
        EXPECT_EQ(Problem().empty(), *row.problem == 0) << row.address << " " << row.mask;
        EXPECT_THAT(Problem(), HasSubstr(row.problem));
    }
    m_dialog->accept(); // as Enter does, with the last of them
    EXPECT_TRUE(m_system.Forced().empty());
}

TEST_F(SetAddress, WhereTheNetworkIsNotKnownAnyHostsAddressIsTaken)
{
    SetAddressDialog dialog(&m_system, Foreign(), {}, {});
    for (const auto &[address, isTaken] : {std::pair{"10.0.0.20", true}, {"10.0.0.255", false}}) {
        dialog.findChild<QLineEdit *>("address")->setText(address);
        dialog.findChild<QLineEdit *>("mask")->setText("255.255.255.0");
        EXPECT_EQ(isTaken, dialog.findChild<QPushButton *>("set")->isEnabled()) << address;
    }
}

TEST_F(SetAddress, TheCameraIsAskedBesideTheWindow)
{
    m_system.Hold();
    Open();
    SetButton()->click();
    EXPECT_TRUE(m_system.Forced().empty()) << "the click does not wait";
    EXPECT_THAT(Problem(), HasSubstr("Waiting"));
    EXPECT_FALSE(SetButton()->isEnabled());
    m_dialog->reject();
    EXPECT_TRUE(m_dialog->isVisible()) << "what was asked for is not left alone";
    m_system.LetGo();
    ASSERT_TRUE(WaitFor([&] { return !m_dialog->isVisible(); }));
    EXPECT_EQ(m_dialog->result(), QDialog::Accepted);
    EXPECT_THAT(m_system.Forced(), ElementsAre("7 10.0.0.20 255.255.255.0 0.0.0.0"));
}

TEST_F(SetAddress, FailuresAreToldInWords)
{
    const struct {
        int status;
        const char *words;
        const char *told = ""; ///< by the library
    } cases[] = {{ORV_CAM_ERR_NOT_IMPLEMENTED, "(Nuvark.cti) cannot set addresses"},
                 {ORV_CAM_ERR_TIMEOUT, "did not answer"},
                 {ORV_CAM_ERR_ACCESS_DENIED, "another program controls it"},
                 {ORV_CAM_ERR_NOT_FOUND, "not there any more"},
                 {ORV_CAM_ERR_IO, "through eth0: not permitted", "Not set through eth0: not permitted"},
                 {ORV_CAM_ERR_PRODUCER, "-40021"}};
    Open();
    for (const auto &row : cases) {
        m_system.forceStatus = row.status;
        m_system.lastError = row.told;
        SetButton()->click();
        EXPECT_TRUE(WaitFor([&] { return SetButton()->isEnabled(); }));
        EXPECT_TRUE(m_dialog->isVisible()) << "to try again";
        EXPECT_THAT(Problem(), HasSubstr(row.words));
    }
}

TEST_F(SetAddress, WhatTheCameraSaysIsNotMarkup)
{
    auto camera = Foreign();
    camera.model = "<b>x</b>";
    SetAddressDialog dialog(&m_system, camera, {}, {});
    for (const QLabel *label : dialog.findChildren<QLabel *>())
        EXPECT_TRUE(label->textFormat() == Qt::PlainText || !label->text().contains(QLatin1String("<b>")));
}

/// The selector around it.
TEST_F(SetAddress, IsOfferedForACameraOfAForeignSubnetOnly)
{
    QSettings("Zelkor", "OrvPlayer").clear();
    m_system.Find({Foreign(), scripted::System::Camera("8", DeviceState::Free),
                   scripted::System::Camera("9", DeviceState::Busy)});
    OrvGui::OrvCameraSelectorDialog selector(&m_system);
    selector.show();
    auto *tree = selector.findChild<QTreeWidget *>("cameras");
    const auto row = [&](const char *serial) {
        const auto found = tree->findItems(serial, Qt::MatchExactly | Qt::MatchRecursive, 1);
        return found.isEmpty() ? nullptr : found.first();
    };
    ASSERT_TRUE(WaitFor([&] { return row("7") != nullptr; }));
    auto *button = selector.findChild<QPushButton *>("setAddress");
    for (const char *serial : {"8", "9"}) {
        tree->setCurrentItem(row(serial));
        EXPECT_FALSE(button->isVisible()) << serial;
    }
    tree->setCurrentItem(row("7"));
    EXPECT_TRUE(button->isVisible());
    EXPECT_EQ(row("7")->text(3), "192.168.5.20");
    EXPECT_NE(row("7")->foreground(0).color(), row("8")->foreground(0).color()) << "greyed";

    const int searches = m_system.Searches();
    QTimer::singleShot(0, [&] {
        auto *dialog = selector.findChild<SetAddressDialog *>();
        ASSERT_NE(dialog, nullptr);
        EXPECT_EQ(dialog->findChild<QLineEdit *>("address")->text(), "10.0.0.20");
        dialog->findChild<QPushButton *>("set")->click();
    });
    emit tree->itemDoubleClicked(row("7"), 0); // as the button does
    EXPECT_THAT(m_system.Forced(), ElementsAre("7 10.0.0.20 255.255.255.0 0.0.0.0"));
    EXPECT_TRUE(WaitFor([&] { return m_system.Searches() > searches; })) << "and the list is brought up to date";
    selector.reject();
    EXPECT_TRUE(WaitFor([&] { return m_system.InUse() == 0; }));
}

} // namespace
