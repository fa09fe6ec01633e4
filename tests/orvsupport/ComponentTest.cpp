#include "ParamFixture.h"

#include "orvsupport/OrvComponentImp.h"

#include <gtest/gtest.h>

namespace {

constexpr std::uint8_t kGrabberId = 0xCA;

class Component : public OrvComponentImp {
public:
    Component() : OrvComponentImp(kGrabberId)
    {
        _OrvStParam param = IntDeclaration("QueueSize", &m_queueSize, 3, 100);
        param.onChange = [](unsigned int, _OrvStParam *) { return ++s_changes; };
        m_params.AddParam(&param);
    }

    static inline int s_changes = 0;

private:
    std::int64_t m_queueSize = 16;
};

TEST(Component, NameIsCopiedWithPaddingWhenItFits)
{
    Component component;
    char buffer[16];
    std::memset(buffer, 'x', sizeof buffer);
    unsigned int length = 12;
    EXPECT_EQ(component.GetParamName(0, buffer, &length), 0u);
    EXPECT_EQ(std::memcmp(buffer, "QueueSize\0\0\0xxxx", sizeof buffer), 0) << "padded to the length given, no further";
    EXPECT_EQ(length, 12u);
    length = 10; // name and terminator exactly
    EXPECT_EQ(component.GetParamName(0, buffer, &length), 0u);
}

TEST(Component, TooSmallANameBufferIsReportedWithTheComponentsIdentifier)
{
    Component component;
    char buffer[16] = "keep";
    unsigned int length = 9;
    EXPECT_EQ(component.GetParamName(0, buffer, &length), 0x80CA0006u);
    EXPECT_EQ(length, 10u);
    EXPECT_STREQ(buffer, "keep");
}

TEST(Component, AnIndexOutOfRangeHasAnEmptyName)
{
    Component component;
    char buffer[4] = "old";
    unsigned int length = sizeof buffer;
    EXPECT_EQ(component.GetParamName(component.GetParamCount(), buffer, &length), 0u);
    EXPECT_STREQ(buffer, "");
}

TEST(Component, EverySetterNotifiesOnce)
{
    Component component;
    OrvComponent &interface = component;
    Component::s_changes = 0;
    EXPECT_EQ(interface.SetParamInt(Name("QueueSize"), 20), 0u);
    EXPECT_EQ(Component::s_changes, 1);
    EXPECT_EQ(interface.SetParamAsString(Name("QueueSize"), Name("21")), 0u);
    EXPECT_EQ(Component::s_changes, 2);
    EXPECT_EQ(interface.SetParamFloat(Name("QueueSize"), 1.0), ORV_PARAM_WRONG_TYPE);
    EXPECT_EQ(Component::s_changes, 2);
}

} // namespace
