#include "GuiManagerFixture.h"

#include <QFile>
#include <QTemporaryDir>

#include <utility>

namespace {

class ConfigurationFilesTest : public GuiManagerTest {};

TEST_F(ConfigurationFilesTest, TheCurrentOneIsTheLastThatWasLoadedOrSaved)
{
    QTemporaryDir folder;
    answers.filePath = folder.filePath("camera.zccf");
    QFile(answers.filePath).open(QIODevice::WriteOnly);
    system.configurationDevice = &device;
    Trigger("actionLoadConfiguration"); // opens the camera of the file
    ASSERT_NE(Session_(), nullptr);
    EXPECT_EQ(QString::fromStdString(system.configurationPath), answers.filePath);
    ASSERT_TRUE(Reaches(Idle));
    EXPECT_TRUE(window.windowTitle().endsWith(" { " + answers.filePath + " }"));

    Trigger("actionSaveConfiguration"); // the file is known: no question
    EXPECT_EQ(answers.texts, QStringList());
    device.saveStatus = ORV_CAM_ERR_GENICAM;
    Trigger("actionSaveConfiguration");
    device.saveStatus = ORV_CAM_ERR_UNKNOWN;
    Trigger("actionSaveConfiguration");
    const QString failed = "Can not save configuration file: " + answers.filePath;
    EXPECT_EQ(answers.texts, (QStringList{failed + "\nGen<i>Cam error", failed + "\nUnknown error"}));

    answers.filePath = folder.filePath("other.zccf");
    QFile(answers.filePath).open(QIODevice::WriteOnly);
    const QString notApplied = "The camera configuration could not be applied";
    const struct {
        OrvCamStatus status;
        const char *current;
        QStringList texts;
    } loads[] = {{ORV_CAM_ERR_FILE, "camera.zccf", {notApplied}},
                 {ORV_CAM_ERR_INVALID_STATE, "camera.zccf", {notApplied}},
                 {ORV_CAM_OK, "other.zccf", {}},
                 {ORV_CAM_ERR_GENICAM, "other.zccf", {"Not all of the camera configuration could be applied"}}};
    for (const auto &row : loads) {
        SCOPED_TRACE(row.status);
        answers.texts.clear();
        answers.details.clear();
        device.loadStatus = row.status;
        Trigger("actionLoadConfiguration"); // into the camera that is open
        EXPECT_EQ(answers.texts, row.texts);
        for (const QString &details : answers.details)
            EXPECT_TRUE(details.startsWith(answers.filePath)) << qPrintable(details);
        EXPECT_TRUE(window.windowTitle().contains(row.current));
    }
    Trigger("actionDisconnect");
    Connect();
    EXPECT_TRUE(window.windowTitle().contains("other.zccf"));
    Trigger("actionDisconnect");
    device.description.id = "another camera";
    Connect();
    EXPECT_FALSE(window.windowTitle().contains("other.zccf")) << "saving would overwrite what is not this camera's";
}

TEST_F(ConfigurationFilesTest, TheCameraMayGoWhileTheFileIsChosen)
{
    const QString lost = "Connection to the Camera was lost";
    const struct {
        const char *action;
        bool fileExists;
        QStringList texts;
    } cases[] = {{"actionSaveConfiguration", false, {lost}},
                 {"actionSaveConfigurationAs", false, {lost}},
                 {"actionLoadConfiguration", true, {lost, "Camera cannot be instantinated"}}}; // the file's own camera
    QTemporaryDir folder;
    for (const auto &row : cases) {
        SCOPED_TRACE(row.action);
        answers.texts.clear();
        answers.filePath = folder.filePath("chosen.zccf");
        if (row.fileExists)
            QFile(answers.filePath).open(QIODevice::WriteOnly);
        Connect();
        answers.mayAnswerFiles = [this, isLost = false]() mutable {
            if (!std::exchange(isLost, true))
                device.Lose();
            return Session_() == nullptr;
        };
        Trigger(row.action);
        EXPECT_EQ(Session_(), nullptr);
        EXPECT_EQ(answers.texts, row.texts);
        Connect();
        EXPECT_FALSE(window.windowTitle().contains("chosen.zccf")) << "nothing was saved to it or loaded from it";
        window.Manager().cameraDisconnect();
    }
}

} // namespace
