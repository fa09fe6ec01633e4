#include "BytePort.h"

#include "orvcam/FeatureFile.h"
#include "orvcam/OrvLog.h"
#include "orvcam/Text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

namespace {

using namespace orv::cam;
using testing::HasSubstr;
using testing::Not;

std::string Streamable(const std::string &kind, const std::string &name, const std::string &inside)
{
    return Node(kind, name, "<Streamable>Yes</Streamable>" + inside);
}

/// A camera with a feature of every fate, and the file that its configuration goes to.
class FeatureFileOfBytes : public testing::Test {
protected:
    void SetUp() override
    {
        const std::string nodes =
            Streamable("Integer", "Width", "<pIsLocked>Lock</pIsLocked><pValue>WidthReg</pValue>") +
            Streamable("Integer", "Gated", "<pIsAvailable>Gate</pIsAvailable><pValue>WidthReg</pValue>") +
            Streamable("Integer", "Made", "<pIsImplemented>Gate</pIsImplemented><pValue>WidthReg</pValue>") +
            Streamable("Integer", "ReadOnly", "<pValue>StateReg</pValue>") +
            Streamable("Enumeration", "Mode",
                       "<EnumEntry Name=\"Off\"><Value>0</Value></EnumEntry><pValue>ModeReg</pValue>") +
            Streamable("StringReg", "UserId",
                       "<Address>0x20</Address><Length>16</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>") +
            Streamable("Integer", "Bounded", "<pValue>BoundedReg</pValue><Max>9</Max>") + IntReg("WidthReg", "0") +
            IntReg("Lock", "4") + IntReg("Gate", "8") + IntReg("StateReg", "0xC", "4", "RO") +
            IntReg("ModeReg", "0x10") + IntReg("BoundedReg", "0x14");
        std::string error;
        m_features = FeatureArrayImp::Create(DescriptionOf({"Width"}, nodes), m_port, &error);
        ASSERT_NE(nullptr, m_features) << error;
        m_port.bytes[0x0B] = 1; // the gate is open
        m_device.vendor = "V";
        m_device.model = "M";
        m_device.serial = "1";
        m_path = testing::TempDir() + "orv_features.zccf";
        std::ofstream(m_path) << "old";
        OrvCam::SetLogSink([](OrvCam::LogLevel, const char *text,
                              void *to) { *static_cast<std::string *>(to) += text + std::string("\n"); },
                           &m_log);
    }
    void TearDown() override
    {
        OrvCam::SetLogSink(nullptr, nullptr);
        std::remove(m_path.c_str());
    }
    int Save() { return SaveFeatureFile(m_path, *m_features, m_device); }
    std::string Content() const
    {
        std::ifstream file(m_path);
        return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }

    BytePort m_port;
    std::unique_ptr<FeatureArrayImp> m_features;
    OrvCam::DeviceDescription m_device;
    std::string m_path;
    std::string m_log;
};

TEST_F(FeatureFileOfBytes, LocksDoNotCountWhenSaving)
{
    m_port.bytes[0x07] = 1; // as while streaming
    m_port.bytes[0x03] = 40;
    ASSERT_EQ(OrvCam::Access::ReadOnly, m_features->GetInt("Width")->GetAccess());
    ASSERT_EQ(ORV_CAM_OK, Save());
    EXPECT_THAT(Content(), HasSubstr("name=\"Width\" value=\"40\""));
    EXPECT_THAT(Content(), HasSubstr("\"Gated\""));
    EXPECT_THAT(Content(), HasSubstr("\"Made\""));
    EXPECT_THAT(Content(), Not(HasSubstr("\"ReadOnly\"")));
    m_port.bytes[0x0B] = 0;
    ASSERT_EQ(ORV_CAM_OK, Save());
    EXPECT_THAT(Content(), Not(HasSubstr("\"Gated\"")));
    EXPECT_THAT(Content(), Not(HasSubstr("\"Made\"")));
}

/// Whichever access fails: no file that lacks a feature.
TEST_F(FeatureFileOfBytes, AnyFailedAccessKeepsTheOldFile)
{
    m_port.accesses = 0;
    ASSERT_EQ(ORV_CAM_OK, Save());
    const int accesses = m_port.accesses;
    const std::string whole = Content();
    ASSERT_GT(accesses, 8);
    for (const int failure : {ORV_CAM_ERR_TIMEOUT, ORV_CAM_ERR_DEVICE_LOST}) {
        for (int n = 0; n < accesses; ++n) {
            SCOPED_TRACE(testing::Message() << failure << " at " << n);
            std::ofstream(m_path) << "old";
            m_port.accesses = 0;
            m_port.failAt = n;
            m_port.failWith = failure;
            const int status = Save();
            // What is asked twice may fail once; then everything is there.
            if (status == ORV_CAM_OK)
                EXPECT_EQ(whole, Content());
            else
                EXPECT_EQ("old", Content());
            const int expected = failure == ORV_CAM_ERR_TIMEOUT ? ORV_CAM_ERR_GENICAM : failure;
            EXPECT_THAT(status, testing::AnyOf(ORV_CAM_OK, expected));
        }
    }
}

TEST_F(FeatureFileOfBytes, TextsThatMakeNoXml)
{
    const struct {
        const char *rule;
        std::string bytes;
        bool isSaved;
    } kCases[] = {
        {"plain", "abc", true},
        {"UTF-8", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", true},
        {"surrogate", "\xED\xA0\x80", true},
        {"overlong", "\xE0\x80\xAF", true},
        {"overlong in four bytes", "\xF0\x8F\xBF\xBF", true},
        {"no character", "\xEF\xBF\xBE", true},
        {"beyond Unicode", "\xF4\x90\x80\x80", true},
        {"cut off", "a\xE2\x82", true},
        {"line end", "a\nb", false},
        {"control character", "a\x01", false},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.rule);
        std::fill(m_port.bytes.begin() + 0x20, m_port.bytes.begin() + 0x30, 0);
        std::copy(row.bytes.begin(), row.bytes.end(), m_port.bytes.begin() + 0x20);
        m_device.serial = row.bytes;
        m_device.vendor = "V\r\n" + row.bytes;
        ASSERT_EQ(ORV_CAM_OK, Save());
        EXPECT_EQ(row.isSaved, Content().find("\"UserId\"") != std::string::npos);
        FeatureFile file;
        std::string error;
        EXPECT_TRUE(file.Read(m_path, &error)) << error << Content();
        EXPECT_TRUE(file.IsOf(m_device));
        const std::string before = m_features->GetString("UserId")->GetValue();
        m_features->GetString("UserId")->SetValue("other");
        EXPECT_EQ(ORV_CAM_OK, file.Apply(*m_features));
        EXPECT_EQ(row.isSaved ? before : "other", m_features->GetString("UserId")->GetValue());
    }
    EXPECT_THAT(m_log, HasSubstr("UserId was left out"));
}

TEST_F(FeatureFileOfBytes, OfACameraThatMarksNothingAllThatCanBeWrittenIsSaved)
{
    std::string error;
    m_features = FeatureArrayImp::Create(
        DescriptionOf({"Width", "State"}, IntReg("Width", "0") + IntReg("State", "0xC", "4", "RO")), m_port, &error);
    ASSERT_NE(nullptr, m_features) << error;
    ASSERT_EQ(ORV_CAM_OK, Save());
    EXPECT_THAT(Content(), HasSubstr("\"Width\""));
    EXPECT_THAT(Content(), Not(HasSubstr("\"State\"")));
}

TEST_F(FeatureFileOfBytes, ValuesWithoutAnEntryAreLeftOut)
{
    m_port.bytes[0x13] = 5;
    ASSERT_EQ(ORV_CAM_OK, Save());
    EXPECT_THAT(Content(), Not(HasSubstr("\"Mode\"")));
    EXPECT_THAT(m_log, HasSubstr("Mode was left out"));
}

TEST_F(FeatureFileOfBytes, EachFailureIsToldWithItsOwnReason)
{
    std::string text = "<CameraConfiguration formatVersion=\"1\"><Feature name=\"Bounded\" value=\"99\"/>"
                       "<Feature name=\"ReadOnly\" value=\"7\"/>";
    for (int i = 0; i < 200; ++i)
        text += "<Feature name=\"Fantasy" + std::to_string(i) + "\" value=\"1\"/>";
    std::ofstream(m_path) << text + "</CameraConfiguration>";
    FeatureFile file;
    std::string error;
    ASSERT_TRUE(file.Read(m_path, &error)) << error;
    EXPECT_EQ(ORV_CAM_ERR_GENICAM, file.Apply(*m_features));
    EXPECT_THAT(m_log, HasSubstr("Bounded could not be set to \"99\". The value is outside of the feature's range."));
    EXPECT_THAT(m_log, HasSubstr("ReadOnly could not be set to \"7\". The feature cannot be written now."));
    EXPECT_THAT(m_log, HasSubstr("Fantasy3 could not be set to \"1\". The camera has no such feature."));
    EXPECT_THAT(m_log, HasSubstr("102 more could not be set"));
}

} // namespace
