#include "app/AppSettings.h"

#include "orvsupport/OrvComponentImp.h"

#include <gmock/gmock.h>

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

#include <cstring>

namespace {

using testing::ElementsAre;

/// A component of one parameter per type, with declared ranges, whose failures can be scripted.
class Worker : public OrvComponentImp {
public:
    Worker() : OrvComponentImp(0xCA)
    {
        Declare("QueueSize", ORV_PARAM_INT,
                [this](_OrvStParam &param) { param.asInt = {{}, 16, 3, 1000, 0, &queueSize}; });
        Declare("Rate", ORV_PARAM_FLOAT, [this](_OrvStParam &param) { param.asFloat = {{}, 30, 0, 120, 0, &rate}; });
        Declare("Enabled", ORV_PARAM_BOOL, [this](_OrvStParam &param) { param.asBool.value = &enabled; });
        Declare("Path", ORV_PARAM_STRING, [this](_OrvStParam &param) {
            param.asString.value = path;
            param.asString.capacity = sizeof path;
        });
        Declare("Levels", ORV_PARAM_ARRAY,
                [this](_OrvStParam &param) { param.asArray = {{}, levels, sizeof levels, levels, sizeof levels, {}}; });
        Declare("Apply", ORV_PARAM_COMMAND, [this](_OrvStParam &param) {
            param.asCommand.run = [](void *context) { return ++static_cast<Worker *>(context)->runs; };
            param.asCommand.context = this;
        });
    }

    std::uint32_t GetParamName(unsigned int index, char *buffer, unsigned int *length) override
    {
        return index == unreadableName ? 0x80CA0006 : OrvComponentImp::GetParamName(index, buffer, length);
    }
    std::uint32_t SetParamAsString(char *name, char *text) override
    {
        applied.push_back(std::string(name) + "=" + text);
        const std::uint32_t status = OrvComponentImp::SetParamAsString(name, text);
        return status == 0 ? highBits : status;
    }

    std::int64_t queueSize = 16;
    double rate = 30;
    bool enabled = true;
    char path[2000] = "/home";
    unsigned char levels[2] = {1, 2};
    int runs = 0;

    unsigned int unreadableName = ~0u;
    std::uint32_t highBits = 0; // answered instead of plain success
    std::vector<std::string> applied;

private:
    template <class Fill> void Declare(const char *name, OrvParamType type, Fill fill)
    {
        _OrvStParam param{};
        param.type = type;
        param.access = ORV_PARAM_ACCESS_RW;
        std::strncpy(param.name, name, sizeof param.name - 1);
        fill(param);
        m_params.AddParam(&param);
    }
};

class Settings : public testing::Test {
protected:
    QString FileName() const { return m_folder.filePath("store.conf"); }
    void WriteFile(const QByteArray &text)
    {
        QFile file(FileName());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text);
    }
    /// The settings file, as another run of the program would read it.
    std::unique_ptr<QSettings> Open() const { return std::make_unique<QSettings>(FileName(), QSettings::IniFormat); }

    QTemporaryDir m_folder;
    AppSettings m_settings;
};

TEST_F(Settings, AComponentComesBackFromTheFileAsItWas)
{
    Worker saved;
    saved.queueSize = 99;
    saved.rate = 29.97;
    saved.enabled = false;
    std::strcpy(saved.path, "C:\\a, b;\"c\" = 100%/\xc3\xbc\xe2\x82\xac");
    saved.levels[0] = 0xfe;
    EXPECT_TRUE(m_settings.SaveOrvComponentSettings(Open().get(), "Grabber", &saved));

    Worker loaded;
    EXPECT_TRUE(m_settings.LoadOrvComponentSettings(Open().get(), "Grabber", &loaded));
    EXPECT_EQ(loaded.queueSize, 99);
    EXPECT_EQ(loaded.rate, 29.97);
    EXPECT_FALSE(loaded.enabled);
    EXPECT_STREQ(loaded.path, saved.path);
    EXPECT_EQ(loaded.levels[0], 0xfe);
    EXPECT_EQ(loaded.runs, 0) << "loading runs no command";
    EXPECT_EQ(loaded.applied.size(), 6u) << "every parameter, in order";
    EXPECT_EQ(loaded.applied.front(), "QueueSize=99");

    Worker other;
    EXPECT_TRUE(m_settings.LoadOrvComponentSettings(Open().get(), "Writer", &other)) << "nothing saved there";
    EXPECT_TRUE(other.applied.empty());
}

TEST_F(Settings, OneFailingParameterDoesNotStopTheRest)
{
    Worker worker;
    std::memset(worker.path, 'p', 1500); // longer than a value may be
    const auto file = Open();
    EXPECT_FALSE(m_settings.SaveOrvComponentSettings(file.get(), "G", &worker));
    EXPECT_EQ(file->value("G/Levels").toString(), "0102");
    EXPECT_FALSE(file->contains("G/Path"));
    EXPECT_EQ(file->group(), QString()) << "the group is closed again";

    worker.unreadableName = 0;
    worker.applied.clear();
    EXPECT_FALSE(m_settings.LoadOrvComponentSettings(file.get(), "G", &worker));
    EXPECT_THAT(worker.applied, ElementsAre("Rate=30", "Enabled=1", "Levels=0102", "Apply="));
    EXPECT_EQ(file->group(), QString());
}

TEST_F(Settings, OnlyTheLowHalfOfAStatusIsAFailure)
{
    Worker worker;
    worker.highBits = 0x80CA0000;
    const auto file = Open();
    m_settings.SaveOrvComponentSettings(file.get(), "G", &worker);
    EXPECT_TRUE(m_settings.LoadOrvComponentSettings(file.get(), "G", &worker));
}

TEST_F(Settings, DamagedValuesLeaveTheDefaults)
{
    QByteArray rubbish;
    for (int byte = 0; byte < 4096; ++byte)
        rubbish.append(static_cast<char>(byte * 89 % 251));
    const struct {
        const char *rule;
        QByteArray line;
        bool result;
    } cases[] = {
        {"text for an integer", "QueueSize=many", false},
        {"empty integer", "QueueSize=", false},
        {"comma as decimal point", "Rate=\"12,5\"", false},
        {"not a number", "Rate=nan", false},
        {"list for a number", "Rate=1, 2", false},
        {"list for a text", "Path=/a, /b", false},
        {"value of no type", "Path=@Invalid()", false},
        {"binary rubbish for a text", "Path=@Variant(\\0\\0\\0\\xff\\xff)", false},
        {"unknown boolean", "Enabled=maybe", false},
        {"array cut short", "Levels=01", false},
        {"text for a command", "Apply=now", false},
        {"parameter of another version", "Gone=1", true},
        {"line without a value", "QueueSize", true},
        {"nested group of that name", "QueueSize\\inner=5", true},
        {"a whole file of it", rubbish, true},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.rule);
        WriteFile("[Grabber]\n" + row.line + "\n");
        Worker worker;
        const bool result = m_settings.LoadOrvComponentSettings(Open().get(), "Grabber", &worker);
        EXPECT_EQ(result, row.result);
        EXPECT_EQ(worker.queueSize, 16);
        EXPECT_EQ(worker.rate, 30);
        EXPECT_TRUE(worker.enabled);
        EXPECT_STREQ(worker.path, "/home");
        EXPECT_EQ(worker.levels[0], 1);
        EXPECT_EQ(worker.runs, 0);
    }
}

TEST_F(Settings, EachSessionHasOneStoreApartFromTheApplications)
{
    QSettings *const first = m_settings.GetSessionSettings("Session_cam1_X100");
    EXPECT_EQ(m_settings.GetSessionSettings("Session_cam1_X100"), first);
    EXPECT_EQ(first->organizationName(), "Zelkor");
    EXPECT_EQ(first->applicationName(), "Session_cam1_X100");
    EXPECT_TRUE(first->fileName().endsWith("/Zelkor/Session_cam1_X100.conf"));
    EXPECT_TRUE(m_settings.Application().fileName().endsWith("/Zelkor/OrvPlayer.conf"));
    EXPECT_NE(m_settings.GetSessionSettings("Session_cam2_X100"), first);
}

TEST(SettingsStoreName, IsASafeFileName)
{
    const struct {
        const char *rule;
        QString session, store;
    } cases[] = {
        {"plain names stay", "Session_cam1_X100", "Session_cam1_X100"},
        {"blanks, dots and letters of any script stay", "Session_Gerät 1.5_X-100", "Session_Gerät 1.5_X-100"},
        {"slashes", "Session_../../etc/passwd_X", "Session_..%2f..%2fetc%2fpasswd_X"},
        {"backslash", "Session_a\\b", "Session_a%5cb"},
        {"percent, so that escapes stay unique", "Session_a%2fb", "Session_a%252fb"},
        {"control characters", QString("Session_\n\t") + QChar(0), "Session_%0a%09%00"},
        {"leading dot", "..", "%2e."},
        {"empty", "", "%"},
    };
    for (const auto &row : cases)
        EXPECT_EQ(AppSettings::StoreName(row.session).toStdString(), row.store.toStdString()) << row.rule;
}

TEST(SettingsStoreName, LongNamesAreCutAndStayDifferent)
{
    const QString longest = "Session_" + QString(172, 'u');
    EXPECT_EQ(AppSettings::StoreName(longest), longest);
    const QString first = AppSettings::StoreName(longest + "1");
    const QString second = AppSettings::StoreName(longest + "2");
    EXPECT_NE(first, second);
    EXPECT_EQ(first.toUtf8().size(), 180);
    EXPECT_TRUE(first.startsWith("Session_uuu"));
    EXPECT_EQ(AppSettings::StoreName(longest + "1"), first) << "the same in every run";

    const QString wide = AppSettings::StoreName(QString::fromUtf8("\xf0\x9f\x93\xb7").repeated(100)); // four bytes each
    EXPECT_LE(wide.toUtf8().size(), 180);
    EXPECT_FALSE(wide.contains(QChar::ReplacementCharacter) || wide.contains('?')) << "no character cut in two";
}

TEST_F(Settings, AStoreOfABadNameCanBeWrittenAndReadBack)
{
    for (const QString &name : {QString("Session_a/b/../c"), QString(".."), QString("Session_") + QString(5000, 'x')}) {
        m_settings.GetSessionSettings(name)->setValue("key", name);
        m_settings.GetSessionSettings(name)->sync();
        EXPECT_EQ(m_settings.GetSessionSettings(name)->status(), QSettings::NoError);
        AppSettings nextRun;
        EXPECT_EQ(nextRun.GetSessionSettings(name)->value("key").toString(), name);
    }
}

} // namespace

int main(int argc, char **argv)
{
    const QTemporaryDir home;
    qputenv("XDG_CONFIG_HOME", home.path().toLocal8Bit());
    testing::InitGoogleTest(&argc, argv);
    const QCoreApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
