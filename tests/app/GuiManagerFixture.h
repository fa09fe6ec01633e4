#pragma once

#include "app/GuiManager.h"
#include "app/OrvPlayer.h"
#include "core/RunBeside.h"
#include "core/Session.h"
#include "orvgui/OrvCameraSelectorDialog.h"
#include "support/GuiTest.h"
#include "support/ScriptedCamera.h"
#include "support/ScriptedSystem.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>
#include <QTextDocument>
#include <QTimer>

#include <functional>

/// Closes modal windows as they appear, the way a person would, and remembers what they said.
class ModalAnswerer : public QObject {
public:
    ModalAnswerer()
    {
        connect(&m_timer, &QTimer::timeout, this, [this] { Answer(); });
        m_timer.start(5);
    }
    QStringList texts;
    QStringList details;
    bool acceptSelector = true;
    QString filePath; ///< for file dialogs; empty cancels
    /// Asked before a file dialog is answered, again and again until it says true.
    std::function<bool()> mayAnswerFiles = [] { return true; };

private:
    void Answer()
    {
        QWidget *modal = QApplication::activeModalWidget();
        if (auto *box = qobject_cast<QMessageBox *>(modal)) {
            texts << box->text();
            EXPECT_TRUE(!QApplication::overrideCursor() || orv::BesideCount() > 0)
                << "a wait cursor over a button to press";
            details << AsShown(box->informativeText());
            box->accept();
        } else if (auto *selector = qobject_cast<OrvGui::OrvCameraSelectorDialog *>(modal)) {
            if (acceptSelector)
                selector->findChild<QPushButton *>("connect")->click(); // does nothing until the dialog lets it
            else
                selector->reject();
        } else if (auto *files = qobject_cast<QFileDialog *>(modal)) {
            if (!mayAnswerFiles())
                return;
            if (filePath.isEmpty()) {
                files->reject();
            } else {
                files->selectFile(filePath);
                static_cast<QDialog *>(files)->accept();
            }
        }
    }
    /// What a label that judges text by its looks makes of it.
    static QString AsShown(const QString &text)
    {
        QTextDocument document;
        if (Qt::mightBeRichText(text))
            document.setHtml(text);
        else
            document.setPlainText(text);
        return document.toPlainText();
    }
    QTimer m_timer;
};

/// A main window with a scripted camera that its selector finds, and somebody who answers its dialogs.
class GuiManagerTest : public ::testing::Test {
protected:
    GuiManagerTest()
    {
        QApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
        device.description.model = "X100";
        device.features.AddString("DeviceModelName", "X100");
        device.features.AddString("DeviceSerialNumber", "42");
        OrvCam::DeviceDescription found;
        found.id = "scripted";
        found.model = "X100";
        found.state = OrvCam::DeviceState::Free;
        system.Find({found});
        window.Manager().SetSystem(&system);
        window.SetDeviceOpener([this](const OrvCam::DeviceDescription &, int access) -> OrvCam::Device * {
            openedWith = access;
            return refuseToOpen ? nullptr : &device;
        });
        window.show();
    }
    void Connect()
    {
        Trigger("actionConnect");
        ASSERT_NE(Session_(), nullptr);
        ASSERT_TRUE(Reaches(Idle));
    }
    void Trigger(const char *name)
    {
        QAction *action = Action(name);
        ASSERT_TRUE(action->isEnabled()) << name;
        action->trigger();
    }
    void Play()
    {
        Trigger("actionPlay");
        ASSERT_TRUE(Reaches(Acquisition));
    }
    QAction *Action(const char *name) { return window.findChild<QAction *>(QString::fromLatin1(name)); }
    Session *Session_() { return window.Manager().CurrentSession(); }
    bool Reaches(SessionState state)
    {
        return WaitFor([&] { return Session_() && Session_()->State() == state; });
    }

    scripted::Device device;
    scripted::System system;
    ModalAnswerer answers;
    OrvPlayer window{nullptr, false, false};
    int openedWith = 0;
    bool refuseToOpen = false;
};
