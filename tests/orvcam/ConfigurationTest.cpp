#include "ScriptedFixture.h"

#include "orvcam/OrvStatus.h"

#include <gmock/gmock.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sys/resource.h>

namespace {

using testing::HasSubstr;
using testing::Not;

const std::string kHead = "<CameraConfiguration formatVersion=\"1\">";
const std::string kEnd = "</CameraConfiguration>";

class Configuration : public ScriptedTest {
protected:
    void SetUp() override
    {
        ScriptedTest::SetUp();
        m_folder = testing::TempDir() + "orv_configuration";
        std::filesystem::create_directories(m_folder);
        m_path = m_folder + "/gr\xC3\xBC\xC3\x9F & <so>.zccf";
        m_features = device->GetCameraParameters();
    }
    void TearDown() override
    {
        std::filesystem::remove_all(m_folder);
        ScriptedTest::TearDown();
    }
    std::string Content() const
    {
        std::ifstream file(m_path);
        return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    void Write(const std::string &text) const { std::ofstream(m_path) << text; }

    std::string m_folder;
    std::string m_path;
    OrvCam::FeatureArray *m_features = nullptr;
};

TEST_F(Configuration, WhatWasSavedComesBack)
{
    // Offset and width fill the sensor together, so the way back needs a second round in either direction.
    m_features->SetIntegerValue("Width", 10);
    m_features->SetIntegerValue("OffsetX", 54);
    m_features->GetFloat("Gain")->SetValue(0.1);
    m_features->GetString("UserId")->SetValue("a<b>&\"c\" \xC3\xA4 ");
    ASSERT_EQ(ORV_CAM_OK, device->SaveFeatures(m_path.c_str()));
    EXPECT_THAT(Content(), HasSubstr("value=\"0.1\""));
    EXPECT_THAT(Content(), HasSubstr("serial=\"4711\""));
    EXPECT_THAT(Content(), Not(HasSubstr("PayloadSize"))) << "neither streamable nor writable";

    m_features->SetIntegerValue("OffsetX", 0);
    m_features->SetIntegerValue("Width", 60);
    m_features->GetFloat("Gain")->SetValue(2);
    m_features->GetString("UserId")->SetValue("other");
    ASSERT_EQ(ORV_CAM_OK, device->LoadFeatures(m_path.c_str()));
    EXPECT_EQ(10, m_features->GetInt("Width")->GetValue());
    EXPECT_EQ(54, m_features->GetInt("OffsetX")->GetValue());
    EXPECT_EQ(0.1, m_features->GetFloat("Gain")->GetValue());
    EXPECT_EQ("a<b>&\"c\" \xC3\xA4 ", m_features->GetString("UserId")->GetValue());

    Write(kHead + "<Feature name=\"Width\" value=\"20\"/><Feature name=\"OffsetX\" value=\"30\"/>" + kEnd);
    EXPECT_EQ(ORV_CAM_OK, device->LoadFeatures(m_path.c_str())) << "width fits only after the offset is smaller";
    EXPECT_EQ(20, m_features->GetInt("Width")->GetValue());
    EXPECT_EQ(30, m_features->GetInt("OffsetX")->GetValue());
}

std::string Feature(const std::string &name, const std::string &value)
{
    return kHead + "<Feature name=\"" + name + "\" value=\"" + value + "\"/>";
}

TEST_F(Configuration, FilesThatAreNone)
{
    const struct {
        const char *rule;
        std::string text;
        int status;
    } kCases[] = {
        {"empty", "", ORV_CAM_ERR_FILE},
        {"text", "Width=5", ORV_CAM_ERR_FILE},
        {"other XML", "<svg/>", ORV_CAM_ERR_FILE},
        {"cut off", Feature("Width", "5"), ORV_CAM_ERR_FILE},
        {"entities", "<!DOCTYPE a [<!ENTITY b \"5\">]>" + kHead + kEnd, ORV_CAM_ERR_FILE},
        {"a later format", "<CameraConfiguration formatVersion=\"2\"></CameraConfiguration>", ORV_CAM_ERR_FILE},
        {"unknown feature", Feature("Fantasy", "5") + kEnd, ORV_CAM_ERR_GENICAM},
        {"out of range", Feature("Gain", "99") + kEnd, ORV_CAM_ERR_GENICAM},
        {"decimal comma", Feature("Gain", "1,5") + kEnd, ORV_CAM_ERR_GENICAM},
        {"no number", Feature("Width", "5x") + kEnd, ORV_CAM_ERR_GENICAM},
        {"nothing to set", kHead + kEnd, ORV_CAM_OK},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.rule);
        Write(row.text);
        EXPECT_EQ(row.status, device->LoadFeatures(m_path.c_str()));
        EXPECT_EQ(8, m_features->GetInt("Width")->GetValue());
    }
    EXPECT_EQ(ORV_CAM_ERR_FILE, device->LoadFeatures((m_folder + "/missing").c_str()));
    EXPECT_EQ(ORV_CAM_ERR_FILE, device->LoadFeatures(m_folder.c_str()));
    EXPECT_EQ(ORV_CAM_ERR_INVALID_PARAMETER, device->LoadFeatures(nullptr));
    Start();
    EXPECT_EQ(ORV_CAM_ERR_INVALID_STATE, device->LoadFeatures(m_path.c_str())) << "while streaming";
}

TEST_F(Configuration, AFailedSaveKeepsTheOldFile)
{
    Write("old");
    EXPECT_EQ(ORV_CAM_ERR_FILE, device->SaveFeatures((m_folder + "/no/such/folder.zccf").c_str()));
    EXPECT_EQ(ORV_CAM_ERR_FILE, device->SaveFeatures(m_folder.c_str()));

    // No byte more fits: as with a full disk.
    rlimit before = {};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit none = {16, before.rlim_max};
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &none);
    const int status = device->SaveFeatures(m_path.c_str());
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(ORV_CAM_ERR_FILE, status);
    EXPECT_EQ("old", Content());
    EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(m_folder), {})) << "no pieces left";
}

TEST_F(Configuration, OpensTheCameraItWasSavedFrom)
{
    m_features->SetIntegerValue("Width", 12);
    ASSERT_EQ(ORV_CAM_OK, device->SaveFeatures(m_path.c_str()));
    m_features->SetIntegerValue("Width", 8);
    Release();
    const std::string whole = Content();
    const struct {
        const char *rule;
        const char *text, *instead; ///< of the file
        int twin;
        GC_ERROR portResult;
        bool isOpened;
        int status;
        const char *why;
    } kCases[] = {
        {"as saved", "", "", 0, GC_ERR_SUCCESS, true, ORV_CAM_OK, ""},
        {"another is listed first and out of reach", "", "", 1, GC_ERR_SUCCESS, true, ORV_CAM_OK, ""},
        {"a feature that it lacks", "\"Width\"", "\"Wodth\"", 0, GC_ERR_SUCCESS, true, ORV_CAM_ERR_GENICAM, "Not all"},
        {"nothing can be applied", "", "", 0, GC_ERR_TIMEOUT, false, ORV_CAM_ERR_XML, ""},
        {"of another camera", "4711", "4712", 0, GC_ERR_SUCCESS, false, ORV_CAM_ERR_NOT_FOUND, "(SN 4712)"},
        {"no configuration", "<CameraConfiguration", "nonsense", 0, GC_ERR_SUCCESS, false, ORV_CAM_ERR_FILE, ""},
    };
    OrvCam::System *system = OrvCam_GetSystem();
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.rule);
        Write(std::string(whole).replace(whole.find(row.text), std::strlen(row.text), row.instead));
        script->twin = row.twin;
        script->portResult = row.portResult;
        device = system->CreateDeviceFromConfiguration(m_path.c_str(), 0);
        std::string why;
        EXPECT_EQ(row.status, system->LastError(&why));
        EXPECT_THAT(why, HasSubstr(row.why));
        ASSERT_EQ(row.isOpened, device != nullptr);
        if (row.isOpened && row.status == ORV_CAM_OK) {
            EXPECT_EQ("4711", device->GetDescription().serial);
            EXPECT_EQ(12, device->GetCameraParameters()->GetInt("Width")->GetValue());
        }
        Release();
        script->reset();
    }
    EXPECT_EQ(nullptr, system->CreateDeviceFromConfiguration(nullptr, 0));
}

} // namespace
