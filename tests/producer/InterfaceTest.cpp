#include "ProducerFixture.h"
#include "support/PrivateNetwork.h"

#include <cstdlib>

namespace {

/// An adapter, plugged into this host and pulled out again.
class InterfaceTest : public ProducerTest {
protected:
    void SetUp() override
    {
        if (!InPrivateNetwork() || !PlugIn(24))
            GTEST_SKIP() << "no network in which an interface may be made";
        ProducerTest::SetUp();
        ASSERT_EQ(Gc().TLOpenInterface(system, "GEV:plug0:10.78.0.1", &interface), GC_ERR_SUCCESS) << LastError();
    }
    void TearDown() override
    {
        PullOut();
        ProducerTest::TearDown();
    }

    static bool Run(const std::string &lines) { return std::system(("{ " + lines + "; } 2>/dev/null").c_str()) == 0; }
    static bool PlugIn(int prefix)
    {
        return Run("ip link add plug0 type veth peer name plug1 && ip link set plug0 up && ip link set plug1 up && "
                   "ip addr add 10.78.0.1/" +
                   std::to_string(prefix) + " dev plug0");
    }
    static bool PullOut() { return Run("ip link del plug0"); }
    GC_ERROR Search() const { return Gc().IFUpdateDeviceList(interface, nullptr, 20); }
};

} // namespace

/// A link that comes again has got another number; whoever goes by the old one sends nothing any more.
TEST_F(InterfaceTest, AnOpenOneIsUsedAgainOnceItIsPluggedInAgain)
{
    ASSERT_EQ(Search(), GC_ERR_SUCCESS) << LastError();
    EXPECT_EQ(GetNumber(interface, "GevInterfaceSubnetMask"), 0xFFFFFF00);
    ASSERT_TRUE(PullOut());
    EXPECT_EQ(Search(), GC_ERR_IO) << "nothing can be sent";
    EXPECT_THAT(LastError(), testing::HasSubstr("cannot send"));
    ASSERT_TRUE(PlugIn(16));
    EXPECT_EQ(Search(), GC_ERR_SUCCESS) << LastError();
    EXPECT_EQ(GetNumber(interface, "GevInterfaceSubnetMask"), 0xFFFF0000);
}
