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

    answers.texts.clear();
    answers.filePath = folder.filePath("other.zccf");
    QFile(answers.filePath).open(QIODevice::WriteOnly);
    device.loadStatus = ORV_CAM_ERR_INVALID_STATE;
    Trigger("actionLoadConfiguration"); // into the camera that is open
    EXPECT_EQ(answers.texts.size(), 1);
    EXPECT_TRUE(window.windowTitle().contains("camera.zccf")) << "nothing of the other was applied";
    device.loadStatus = ORV_CAM_OK;
    Trigger("actionLoadConfiguration");
    EXPECT_EQ(answers.texts.size(), 1);
    EXPECT_TRUE(window.windowTitle().contains("other.zccf"));
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
