#include "BytePort.h"

#include "orvcam/FeatureArrayImp.h"
#include "orvcam/Text.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>

namespace {

using namespace orv::cam;

/// Switches to a locale with a decimal comma for its life. Where none is installed it makes one for itself.
class CommaLocale {
public:
    CommaLocale()
    {
        m_folder = testing::TempDir() + "orv_locale";
        std::filesystem::create_directories(m_folder);
        if (std::setlocale(LC_ALL, "de_DE.UTF-8") == nullptr) {
            const std::string make = "localedef -i de_DE -f UTF-8 '" + m_folder + "/de_DE.UTF-8' >/dev/null 2>&1";
            if (std::system(make.c_str()) == 0 && setenv("LOCPATH", m_folder.c_str(), 1) == 0)
                std::setlocale(LC_ALL, "de_DE.UTF-8");
        }
    }
    ~CommaLocale()
    {
        std::setlocale(LC_ALL, "C");
        unsetenv("LOCPATH");
        std::filesystem::remove_all(m_folder);
    }
    bool Works() const { return std::localeconv()->decimal_point[0] == ','; }

private:
    std::string m_folder;
};

TEST(Locale, NumbersHaveAPointEverywhere)
{
    const CommaLocale locale;
    if (!locale.Works())
        GTEST_SKIP() << "no locale with a decimal comma here, and none could be made";
    BytePort port;
    std::string error;
    auto array = FeatureArrayImp::Create(
        DescriptionOf({}, Node("Float", "Gain", "<pValue>Conv</pValue><Min>0.25</Min><Max>10.75</Max>") +
                              Node("Converter", "Conv",
                                   "<FormulaTo>(FROM * 2.5)</FormulaTo><FormulaFrom>(TO / 2.5)</FormulaFrom>"
                                   "<pValue>Reg</pValue>") +
                              IntReg("Reg", "0")),
        port, &error);
    ASSERT_NE(nullptr, array) << error;
    OrvCam::FloatNode *gain = array->GetFloat("Gain");
    EXPECT_EQ(0.25, gain->GetMin());
    EXPECT_EQ(10.75, gain->GetMax());
    EXPECT_EQ(ORV_CAM_OK, gain->SetValue(2.0));
    EXPECT_EQ(5, port.bytes[3]);
    EXPECT_EQ(2.0, gain->GetValue());
    EXPECT_EQ("0.1", FormatDouble(0.1));
    double value = 0;
    EXPECT_TRUE(ParseDouble("1.5e3", &value));
    EXPECT_EQ(1500.0, value);
    EXPECT_FALSE(ParseDouble("1,5", &value));
}

} // namespace
