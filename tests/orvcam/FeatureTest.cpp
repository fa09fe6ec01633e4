#include "BytePort.h"

#include "orvcam/FeatureArrayImp.h"
#include "orvcam/OrvLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <thread>

namespace {

using namespace orv::cam;
using OrvCam::Access;
using testing::ElementsAre;
using testing::HasSubstr;

const std::string kNodes =
    // Integers of every make.
    Node("Integer", "Width", "<pValue>WidthReg</pValue><Min>16</Min><Max>640</Max><Inc>16</Inc>") +
    IntReg("WidthReg", "0x00") + IntReg("Little", "0x04", "4", "RW", "LittleEndian") + IntReg("Short", "0x08", "2") +
    IntReg("Long", "0x10", "8") +
    Register("MaskedIntReg", "MaskBE", "0x18", "4", "<LSB>11</LSB><MSB>4</MSB><Endianess>BigEndian</Endianess>") +
    Register("MaskedIntReg", "MaskLE", "0x1C", "4", "<LSB>4</LSB><MSB>11</MSB><Endianess>LittleEndian</Endianess>") +
    Node("StructReg", "S",
         "<Address>0x20</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>"
         "<Endianess>LittleEndian</Endianess><StructEntry Name=\"Entry\"><LSB>8</LSB><MSB>15</MSB></StructEntry>") +
    Node("IntSwissKnife", "Twice", "<pVariable Name=\"W\">WidthReg</pVariable><Formula>(W * 2)</Formula>") +
    Node("Integer", "Ip", "<pValue>IpReg</pValue><Representation>IPV4Address</Representation>") +
    IntReg("IpReg", "0x28", "8") +
    // Floats.
    Register("FloatReg", "Float32", "0x30", "4", "<Endianess>BigEndian</Endianess>") +
    Register("FloatReg", "Float64", "0x38", "8", "<Endianess>LittleEndian</Endianess>") +
    Node("Float", "Exposure", "<pValue>ExposureConv</pValue><Min>10.5</Min><Max>1000.25</Max>") +
    Node("Converter", "ExposureConv",
         "<FormulaTo>(FROM * 4)</FormulaTo><FormulaFrom>(TO / 4)</FormulaFrom><pValue>ExposureReg</pValue>") +
    IntReg("ExposureReg", "0x40") +
    Node("Float", "Stepped", "<pValue>Float64</pValue><Min>0</Min><Max>10</Max><Inc>0.25</Inc>") +
    // The rest.
    Node("Boolean", "Flag", "<pValue>FlagReg</pValue><OnValue>5</OnValue><OffValue>6</OffValue>") +
    IntReg("FlagReg", "0x44") + Register("StringReg", "UserId", "0x48", "8") +
    Node("Enumeration", "Mode",
         "<EnumEntry Name=\"Off\"><Value>0</Value></EnumEntry>"
         "<EnumEntry Name=\"Slow\"><pIsAvailable>Gate</pIsAvailable><Value>7</Value></EnumEntry>"
         "<EnumEntry Name=\"Fast\"><Value>3</Value></EnumEntry><pValue>ModeReg</pValue>") +
    IntReg("ModeReg", "0x50") + IntReg("Gate", "0x54") +
    Node("Command", "Go", "<pValue>GoReg</pValue><CommandValue>1</CommandValue>") + IntReg("GoReg", "0x58") +
    Node("Command", "Reset", "<pValue>ResetReg</pValue><CommandValue>9</CommandValue>") +
    IntReg("ResetReg", "0x5C", "4", "WO") +
    // Access.
    Register("IntReg", "ReadOnly", "0x60", "4", "", "RO") + Register("IntReg", "WriteOnly", "0x64", "4", "", "WO") +
    Node("Integer", "ThroughReadOnly", "<pValue>ReadOnly</pValue>") +
    Node("Integer", "Gated", "<pIsAvailable>Gate</pIsAvailable><pValue>WidthReg</pValue>") +
    Node("Integer", "BehindGated", "<pValue>Gated</pValue>") +
    Node("Integer", "Implemented", "<pIsImplemented>Gate</pIsImplemented><pValue>WidthReg</pValue>") +
    Node("Integer", "Lockable", "<pIsLocked>Gate</pIsLocked><pValue>WidthReg</pValue>") +
    Node("Command", "LockedGo", "<pIsLocked>Gate</pIsLocked><pValue>GoReg2</pValue><CommandValue>1</CommandValue>") +
    IntReg("GoReg2", "0x68") + Node("Integer", "Dangling", "<pValue>Nowhere</pValue>");

class Features : public testing::Test {
protected:
    void SetUp() override
    {
        std::string error;
        m_array = FeatureArrayImp::Create(DescriptionOf({"Width", "Mode", "Dangling"}, kNodes), m_port, &error);
        ASSERT_NE(nullptr, m_array) << error;
        Set("WidthReg", 64);
    }
    void Set(const char *name, std::int64_t value)
    {
        int status = -1;
        ASSERT_NE(nullptr, m_array->GetInt(name, &status)) << name;
        ASSERT_EQ(ORV_CAM_OK, m_array->GetInt(name)->SetValue(value)) << name;
    }
    std::vector<int> Bytes(std::size_t at, std::size_t count) const
    {
        return std::vector<int>(m_port.bytes.begin() + at, m_port.bytes.begin() + at + count);
    }

    BytePort m_port;
    std::unique_ptr<FeatureArrayImp> m_array;
};

TEST_F(Features, IntegersLieAsTheDescriptionSays)
{
    const struct {
        const char *name;
        std::int64_t value;
        std::size_t at;
        std::vector<int> bytes;
    } kCases[] = {
        {"Width", 0x130, 0x00, {0, 0, 0x01, 0x30}},  {"Little", 0x01020304, 0x04, {4, 3, 2, 1}},
        {"Short", 0xABCD, 0x08, {0xAB, 0xCD, 0, 0}}, {"Long", 0x0102030405060708, 0x10, {1, 2, 3, 4, 5, 6, 7, 8}},
        {"MaskLE", 0xA5, 0x1C, {0x50, 0x0A, 0, 0}},  {"Entry", 0xC3, 0x20, {0, 0xC3, 0, 0}},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.name);
        OrvCam::IntegerNode *node = m_array->GetInt(row.name);
        ASSERT_NE(nullptr, node);
        EXPECT_EQ(ORV_CAM_OK, node->SetValue(row.value));
        EXPECT_EQ(row.bytes, Bytes(row.at, row.bytes.size()));
        int status = -1;
        EXPECT_EQ(row.value, node->GetValue(&status));
        EXPECT_EQ(ORV_CAM_OK, status);
    }
    EXPECT_EQ(0x260, m_array->GetInt("Twice")->GetValue());
    // Big-endian bit numbers count from the top bit; neighbours stay as they are.
    m_port.bytes[0x18] = 0xFF;
    EXPECT_EQ(ORV_CAM_OK, m_array->GetInt("MaskBE")->SetValue(0x5A));
    EXPECT_EQ(0x5A, m_array->GetInt("MaskBE")->GetValue());
    EXPECT_NE(0, m_port.bytes[0x18] & 0xF0);
}

TEST_F(Features, IntegerLimitsHoldBeforeTheCameraIsTouched)
{
    OrvCam::IntegerNode *width = m_array->GetInt("Width");
    EXPECT_EQ(16, width->GetMin());
    EXPECT_EQ(640, width->GetMax());
    EXPECT_EQ(16, width->GetIncrement());
    EXPECT_EQ(0xFFFFFFFFLL, m_array->GetInt("Ip")->GetMax());
    EXPECT_EQ(0, m_array->GetInt("Ip")->GetMin());
    EXPECT_EQ(65535, m_array->GetInt("Short")->GetMax());
    EXPECT_EQ(1, m_array->GetInt("MaskLE")->GetIncrement());
    const int writes = m_port.writes;
    for (const std::int64_t bad : {INT64_MIN, INT64_C(0), INT64_C(15), INT64_C(17), INT64_C(641), INT64_MAX})
        EXPECT_EQ(ORV_CAM_ERR_OUT_OF_RANGE, width->SetValue(bad)) << bad;
    EXPECT_EQ(ORV_CAM_ERR_OUT_OF_RANGE, m_array->GetInt("Short")->SetValue(70000));
    EXPECT_EQ(ORV_CAM_ERR_OUT_OF_RANGE, m_array->GetInt("MaskLE")->SetValue(256));
    EXPECT_EQ(writes, m_port.writes);
    EXPECT_EQ(ORV_CAM_OK, width->SetValue(640));
}

TEST_F(Features, FloatsKeepTheirPrecisionAndLimits)
{
    OrvCam::FloatNode *exposure = m_array->GetFloat("Exposure");
    ASSERT_NE(nullptr, exposure);
    EXPECT_EQ(ORV_CAM_OK, exposure->SetValue(12.25));
    EXPECT_EQ(12.25, exposure->GetValue());
    EXPECT_THAT(Bytes(0x40, 4), ElementsAre(0, 0, 0, 49));
    EXPECT_EQ(10.5, exposure->GetMin());
    EXPECT_EQ(1000.25, exposure->GetMax());
    const int writes = m_port.writes;
    for (const double bad : {10.4, 1000.5, -HUGE_VAL, HUGE_VAL, std::nan("")})
        EXPECT_EQ(ORV_CAM_ERR_OUT_OF_RANGE, exposure->SetValue(bad)) << bad;
    EXPECT_EQ(writes, m_port.writes);
    EXPECT_EQ(ORV_CAM_OK, m_array->GetFloat("Float32")->SetValue(1.5));
    EXPECT_THAT(Bytes(0x30, 4), ElementsAre(0x3F, 0xC0, 0, 0));
    EXPECT_EQ(ORV_CAM_OK, m_array->GetFloat("Float64")->SetValue(0.1));
    EXPECT_EQ(0.1, m_array->GetFloat("Float64")->GetValue());
    EXPECT_EQ(ORV_CAM_OK, m_array->GetFloat("Stepped")->SetValue(1.30));
    EXPECT_EQ(1.25, m_array->GetFloat("Stepped")->GetValue());
}

TEST(FeatureArray, FloatsGoToTheNearestStep)
{
    const struct {
        const char *limits;
        double value;
        double written;
    } kCases[] = {
        {"<Min>0</Min><Max>0.3</Max><Inc>0.1</Inc>", 0.3, 0.3},
        {"<Min>0</Min><Max>0.3</Max><Inc>0.1</Inc>", 0.14, 0.1},
        {"<Min>0</Min><Max>0.35</Max><Inc>0.1</Inc>", 0.35, 3 * 0.1},
        {"<Min>1</Min><Max>2</Max><Inc>5</Inc>", 2, 1},
        {"<Max>10</Max><Inc>0.25</Inc>", 1.3, 1.25},
        {"<Max>-0.05</Max><Inc>0.1</Inc>", -0.05, -0.1},
        {"<Inc>0.25</Inc>", -1.3, -1.25},
        {"<Inc>1e-300</Inc>", 1e300, 1e300},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(testing::Message() << row.limits << " " << row.value);
        BytePort port;
        std::string error;
        const auto array = FeatureArrayImp::Create(
            DescriptionOf({"F"}, Node("Float", "F", std::string("<pValue>R</pValue>") + row.limits) +
                                     Register("FloatReg", "R", "0", "8")),
            port, &error);
        ASSERT_NE(nullptr, array) << error;
        EXPECT_EQ(ORV_CAM_OK, array->GetFloat("F")->SetValue(row.value));
        EXPECT_DOUBLE_EQ(row.written, array->GetFloat("F")->GetValue());
    }
}

TEST_F(Features, BooleansStringsAndEnumerations)
{
    OrvCam::BooleanNode *flag = m_array->GetBool("Flag");
    EXPECT_EQ(ORV_CAM_OK, flag->SetValue(true));
    EXPECT_THAT(Bytes(0x44, 4), ElementsAre(0, 0, 0, 5));
    EXPECT_TRUE(flag->GetValue());
    EXPECT_EQ(ORV_CAM_OK, flag->SetValue(false));
    EXPECT_THAT(Bytes(0x44, 4), ElementsAre(0, 0, 0, 6));

    OrvCam::StringNode *user = m_array->GetString("UserId");
    EXPECT_EQ(ORV_CAM_OK, user->SetValue("12345678"));
    EXPECT_EQ("12345678", user->GetValue()) << "full without a terminator";
    EXPECT_EQ(ORV_CAM_OK, user->SetValue("ab"));
    EXPECT_THAT(Bytes(0x48, 8), ElementsAre('a', 'b', 0, 0, 0, 0, 0, 0));
    EXPECT_EQ(ORV_CAM_ERR_OUT_OF_RANGE, user->SetValue("123456789"));
    EXPECT_EQ(ORV_CAM_ERR_OUT_OF_RANGE, user->SetValue(std::string("a\0b", 3)));
    m_port.bytes[0x48] = 0xB5;
    EXPECT_EQ("\xC2\xB5"
              "b",
              user->GetValue())
        << "one byte above ASCII is taken for Latin-1";

    OrvCam::EnumerationNode *mode = m_array->GetEnum("Mode");
    EXPECT_THAT(mode->GetEntries(), ElementsAre("Off", "Fast"));
    EXPECT_EQ(ORV_CAM_OK, mode->SetValue("Fast"));
    EXPECT_EQ(3, mode->GetIntValue());
    EXPECT_EQ(ORV_CAM_ERR_OUT_OF_RANGE, mode->SetValue("Slow")) << "not available now";
    EXPECT_EQ(ORV_CAM_ERR_OUT_OF_RANGE, mode->SetValue("Never"));
    EXPECT_EQ("Fast", mode->GetValue());
    Set("Gate", 1);
    EXPECT_THAT(mode->GetEntries(), ElementsAre("Off", "Slow", "Fast"));
    EXPECT_EQ(ORV_CAM_OK, m_array->SetIntegerValue("Mode", 7));
    EXPECT_EQ("Slow", mode->GetValue());
    m_port.bytes[0x53] = 99;
    int status = -1;
    EXPECT_EQ("", mode->GetValue(&status));
    EXPECT_EQ(ORV_CAM_OK, status) << "a value that no entry has is no error";
}

TEST_F(Features, AccessIsJudgedBeforeTheCameraIsTouched)
{
    const struct {
        const char *name;
        Access closed; ///< while the gate is closed
        int closedWrite;
        Access open;
        int openWrite;
    } kCases[] = {
        {"Width", Access::ReadWrite, ORV_CAM_OK, Access::ReadWrite, ORV_CAM_OK},
        {"ReadOnly", Access::ReadOnly, ORV_CAM_ERR_NOT_WRITABLE, Access::ReadOnly, ORV_CAM_ERR_NOT_WRITABLE},
        {"ThroughReadOnly", Access::ReadOnly, ORV_CAM_ERR_NOT_WRITABLE, Access::ReadOnly, ORV_CAM_ERR_NOT_WRITABLE},
        {"Twice", Access::ReadOnly, ORV_CAM_ERR_NOT_WRITABLE, Access::ReadOnly, ORV_CAM_ERR_NOT_WRITABLE},
        {"WriteOnly", Access::WriteOnly, ORV_CAM_OK, Access::WriteOnly, ORV_CAM_OK},
        {"Gated", Access::NotAvailable, ORV_CAM_ERR_NOT_AVAILABLE, Access::ReadWrite, ORV_CAM_OK},
        {"BehindGated", Access::NotAvailable, ORV_CAM_ERR_NOT_AVAILABLE, Access::ReadWrite, ORV_CAM_OK},
        {"Lockable", Access::ReadWrite, ORV_CAM_OK, Access::ReadOnly, ORV_CAM_ERR_NOT_WRITABLE},
    };
    int status = 0;
    EXPECT_EQ(nullptr, m_array->GetInt("Implemented", &status));
    EXPECT_EQ(ORV_CAM_ERR_FEATURE_NOT_PRESENT, status);
    for (const bool isOpen : {false, true}) {
        Set("Gate", isOpen);
        for (const auto &row : kCases) {
            SCOPED_TRACE(testing::Message() << row.name << (isOpen ? " open" : " closed"));
            EXPECT_EQ(isOpen ? row.open : row.closed, m_array->GetInt(row.name)->GetAccess());
            const int expected = isOpen ? row.openWrite : row.closedWrite;
            const int writes = m_port.writes;
            EXPECT_EQ(expected, m_array->SetIntegerValue(row.name, 64));
            EXPECT_EQ(writes + (expected == ORV_CAM_OK), m_port.writes);
        }
    }
    m_array->GetInt("WriteOnly")->GetValue(&status);
    EXPECT_EQ(ORV_CAM_ERR_NOT_READABLE, status);
    EXPECT_EQ(Access::ReadWrite, m_array->GetInt("Implemented")->GetAccess());
    EXPECT_EQ(64, m_array->GetInt("Lockable")->GetValue());
    EXPECT_EQ(ORV_CAM_ERR_NOT_WRITABLE, m_array->ExecuteCommand("LockedGo"));
}

TEST_F(Features, WrongNamesAndKinds)
{
    int status = 0;
    EXPECT_EQ(nullptr, m_array->GetInt("Nothing", &status));
    EXPECT_EQ(ORV_CAM_ERR_FEATURE_NOT_PRESENT, status);
    EXPECT_EQ(nullptr, m_array->GetInt("Dangling", &status));
    EXPECT_EQ(ORV_CAM_ERR_FEATURE_NOT_PRESENT, status);
    EXPECT_EQ(nullptr, m_array->GetFloat("Width", &status));
    EXPECT_EQ(ORV_CAM_ERR_WRONG_TYPE, status);
    EXPECT_EQ(nullptr, m_array->GetString("Mode", &status));
    EXPECT_EQ(ORV_CAM_ERR_WRONG_TYPE, status);
    EXPECT_EQ(nullptr, m_array->GetInt(nullptr, &status));
    EXPECT_EQ(ORV_CAM_ERR_INVALID_PARAMETER, status);
    EXPECT_EQ(ORV_CAM_ERR_FEATURE_NOT_PRESENT, m_array->ExecuteCommand("TLParamsLocked"));
    EXPECT_EQ(ORV_CAM_ERR_FEATURE_NOT_PRESENT, m_array->SetIntegerValue("TLParamsLocked", 1));
    EXPECT_EQ(ORV_CAM_ERR_WRONG_TYPE, m_array->ExecuteCommand("Width"));
    EXPECT_EQ(ORV_CAM_ERR_WRONG_TYPE, m_array->SetIntegerValue("Exposure", 1));
    EXPECT_THAT(m_array->FeatureNames(), ElementsAre("Width", "Mode"));
    EXPECT_EQ(m_array->GetInt("Width"), m_array->GetInt("Width")) << "one node per feature";
}

TEST_F(Features, CommandsWaitUntilTheCameraIsDone)
{
    m_port.clearsItself = 0x58;
    EXPECT_EQ(ORV_CAM_OK, m_array->ExecuteCommand("Go"));
    EXPECT_EQ(0, m_port.bytes[0x5B]) << "returned before the register was clear";
    EXPECT_EQ(ORV_CAM_OK, m_array->ExecuteCommand("Reset")) << "a write-only register is done at once";
    EXPECT_EQ(9, m_port.bytes[0x5F]);
}

TEST_F(Features, CommandsTellWhenTheCameraGoesMeanwhile)
{
    m_port.accesses = 0;
    m_port.failAt = 2; // after the look before the start, and the start
    for (const int failure : {ORV_CAM_ERR_DEVICE_LOST, ORV_CAM_ERR_TIMEOUT}) {
        m_port.bytes[0x5B] = 0;
        m_port.accesses = 0;
        m_port.failWith = failure;
        EXPECT_EQ(failure, m_array->ExecuteCommand("Go"));
        EXPECT_EQ(1, m_port.bytes[0x5B]);
    }
    // A register that answers with an error from the start tells nothing of a command that went well.
    m_port.bytes[0x5B] = 0;
    m_port.accesses = 0;
    m_port.failAt = 0;
    EXPECT_EQ(ORV_CAM_OK, m_array->ExecuteCommand("Go"));
}

/// Whatever access fails: the caller gets the port's status, and no text or number of an earlier success.
TEST_F(Features, FailingPortAtEachAccess)
{
    const auto sweep = [this] {
        std::vector<int> statuses;
        const auto read = [&statuses](auto *node, auto get) {
            int status = ORV_CAM_OK;
            const auto value = (node->*get)(&status);
            statuses.push_back(status);
            return value;
        };
        read(m_array->GetInt("Width"), &OrvCam::IntegerNode::GetValue);
        statuses.push_back(m_array->GetInt("Width")->SetValue(64));
        const double exposure = read(m_array->GetFloat("Exposure"), &OrvCam::FloatNode::GetValue);
        EXPECT_EQ(exposure, statuses.back() == ORV_CAM_OK ? 20.0 : 0.0) << "a wrong number without an error";
        statuses.push_back(m_array->GetFloat("Exposure")->SetValue(20.0));
        const std::string user = read(m_array->GetString("UserId"), &OrvCam::StringNode::GetValue);
        EXPECT_EQ(user, statuses.back() == ORV_CAM_OK ? "me" : "") << "stale text";
        read(m_array->GetEnum("Mode"), &OrvCam::EnumerationNode::GetValue);
        read(m_array->GetEnum("Mode"), &OrvCam::EnumerationNode::GetEntries);
        statuses.push_back(m_array->GetEnum("Mode")->SetValue("Fast"));
        read(m_array->GetInt("Gated"), &OrvCam::IntegerNode::GetValue);
        read(m_array->GetInt("Twice"), &OrvCam::IntegerNode::GetValue);
        read(m_array->GetInt("Lockable"), &OrvCam::IntegerNode::GetMax);
        statuses.push_back(m_array->GetBool("Flag")->SetValue(true));
        return statuses;
    };
    Set("Gate", 1);
    m_array->GetFloat("Exposure")->SetValue(20.0);
    m_array->GetString("UserId")->SetValue("me");
    m_port.accesses = 0;
    const std::vector<int> good = sweep();
    const int accesses = m_port.accesses;
    ASSERT_GT(accesses, 10);
    for (int n = 0; n < accesses; ++n) {
        SCOPED_TRACE(n);
        m_port.accesses = 0;
        m_port.failAt = n;
        m_port.failWith = ORV_CAM_ERR_TIMEOUT;
        const std::vector<int> statuses = sweep();
        int differing = 0;
        for (std::size_t i = 0; i < good.size(); ++i) {
            if (statuses[i] != good[i]) {
                ++differing;
                EXPECT_EQ(ORV_CAM_ERR_TIMEOUT, statuses[i]);
            }
        }
        EXPECT_EQ(1, differing);
    }
    m_port.failAt = -1;
    EXPECT_EQ(good, sweep());
}

TEST_F(Features, AccessKeepsItsLastAnswerWhileTheCameraIsSilent)
{
    Set("Gate", 1);
    OrvCam::IntegerNode *gated = m_array->GetInt("Gated");
    EXPECT_EQ(Access::ReadWrite, gated->GetAccess());
    m_port.accesses = 0;
    m_port.failAt = 0;
    EXPECT_EQ(Access::ReadWrite, gated->GetAccess());
}

TEST_F(Features, ManyThreadsOnOneMap)
{
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([this, t, &wrong] {
            for (int i = 0; i < 200; ++i) {
                wrong += m_array->SetIntegerValue("Width", 16 * (1 + (i + t) % 40)) != ORV_CAM_OK;
                wrong += m_array->GetInt("Width")->GetValue() % 16 != 0;
                wrong += m_array->GetEnum("Mode")->GetEntries().size() < 2;
                wrong += m_array->GetFloat("Exposure")->GetAccess() != Access::ReadWrite;
                wrong += m_array->ExecuteCommand("Reset") != ORV_CAM_OK;
                wrong += m_array->GetString("UserId")->SetValue(std::to_string(i)) != ORV_CAM_OK;
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(0, wrong);
}

TEST_F(Features, NobodyComesInBetweenWhatRunsAlone)
{
    OrvCam::IntegerNode *const selector = m_array->GetInt("Little");
    OrvCam::IntegerNode *const value = m_array->GetInt("Long");
    std::thread other;
    std::atomic<int> started{0};
    const int result = m_array->RunAlone([&] {
        selector->SetValue(7);
        other = std::thread([&] {
            ++started;
            value->SetValue(selector->GetValue());
            ++started;
        });
        while (started == 0)
            std::this_thread::yield();
        for (int calls = 0; calls < 2000; ++calls) // each would let the other in
            value->GetValue();
        EXPECT_EQ(started, 1);
        selector->SetValue(3);
        return 42;
    });
    other.join();
    EXPECT_EQ(result, 42);
    EXPECT_EQ(value->GetValue(), 3) << "the other has never seen the 7";
}

TEST(FeatureArray, ManyThreadsParseAtOnce)
{
    std::vector<std::thread> threads;
    std::atomic<int> made{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&made] {
            for (int i = 0; i < 20; ++i) {
                BytePort port;
                std::string error;
                auto array = FeatureArrayImp::Create(DescriptionOf({"Width"}, kNodes), port, &error);
                made += array && array->SetIntegerValue("Width", 32) == ORV_CAM_OK &&
                        array->GetInt("Twice")->GetValue() == 64;
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(80, made);
}

TEST(FeatureArray, RegistersThatMoveTakeNoEndOfMemory)
{
    const auto text = [](const char *name, const std::string &inside) {
        return Node("StringReg", name, inside + "<AccessMode>RW</AccessMode><pPort>Device</pPort>");
    };
    BytePort port(1u << 20);
    std::string error;
    const auto array = FeatureArrayImp::Create(
        DescriptionOf({}, text("Told", "<Address>0x10</Address><pLength>Length</pLength>") +
                              text("Moves", "<pAddress>Length</pAddress><Length>0x80000</Length>") +
                              IntReg("Length", "0")),
        port, &error);
    ASSERT_NE(nullptr, array) << error;
    std::fill(port.bytes.begin() + 0x10, port.bytes.end(), 'x');
    const auto tell = [&port](unsigned number) {
        for (int i = 0; i < 4; ++i)
            port.bytes[i] = static_cast<unsigned char>(number >> (24 - 8 * i));
    };
    tell(0x80000);
    EXPECT_EQ(kMaxToldRegisterBytes, array->GetString("Told")->GetValue().size());
    int status = ORV_CAM_OK;
    unsigned moves = 0;
    while (status == ORV_CAM_OK && moves < 1000) {
        tell(0x100 + ++moves);
        array->GetString("Moves")->GetValue(&status);
    }
    EXPECT_EQ(ORV_CAM_ERR_GENICAM, status);
    EXPECT_LT(moves, 200u);
    port.accesses = 0;
    array->GetInt("Length")->GetValue(&status);
    EXPECT_EQ(ORV_CAM_ERR_GENICAM, status);
    EXPECT_EQ(0, port.accesses) << "and so no further block is allotted";
}

TEST(FeatureArray, OddDescriptionsCrashNothingAndStayOffTheErrorStream)
{
    std::string log;
    OrvCam::SetLogSink([](OrvCam::LogLevel, const char *text, void *to) { *static_cast<std::string *>(to) += text; },
                       &log);
    testing::internal::CaptureStderr();
    const std::string nodes =
        Node("Integer", "Loop", "<pValue>Loop2</pValue>") + Node("Integer", "Loop2", "<pValue>Loop</pValue>") +
        Node("Integer", "NoValue", "") + Node("Enumeration", "NoEntries", "<pValue>Reg</pValue>") +
        Node("IntSwissKnife", "BadFormula", "<Formula>(((</Formula>") +
        Node("Integer", "Port", "<pValue>Device</pValue>") + Register("StringReg", "Endless", "0", "999999999999") +
        Register("StringReg", "Long", "0", "1000000") +
        Node("StringReg", "TellsLength", "<Address>0</Address><pLength>LengthReg</pLength><pPort>Device</pPort>") +
        IntReg("LengthReg", "0x10", "8") + Register("IntReg", "Wide", "0", "100") +
        Register("FloatReg", "Odd", "0", "3") + IntReg("Reg", "0") +
        Register("MaskedIntReg", "HighBits", "0", "4", "<LSB>200</LSB><MSB>300</MSB>") +
        Register("MaskedIntReg", "Swapped", "0", "4", "<LSB>20</LSB><MSB>3</MSB>") +
        Node("Boolean", "OfString", "<pValue>Long</pValue>");
    BytePort port;
    std::string error;
    auto array = FeatureArrayImp::Create(DescriptionOf({}, nodes), port, &error);
    ASSERT_NE(nullptr, array) << error;
    EXPECT_EQ(nullptr, array->GetInt("Loop"));
    EXPECT_THAT(log, HasSubstr("Loop -> Loop2 -> Loop"));
    for (const char *name : {"NoValue", "BadFormula", "Port", "Wide", "HighBits", "Swapped"}) {
        SCOPED_TRACE(name);
        if (OrvCam::IntegerNode *node = array->GetInt(name)) {
            node->GetValue();
            node->GetMax();
            node->SetValue(1);
            node->GetAccess();
        }
    }
    array->GetFloat("Odd")->GetValue();
    array->GetEnum("NoEntries")->GetValue();
    array->GetEnum("NoEntries")->GetEntries();
    array->GetBool("OfString")->GetValue();
    int status = ORV_CAM_OK;
    EXPECT_EQ(nullptr, array->GetString("Endless"));
    array->GetString("Long")->GetValue(&status);
    EXPECT_EQ(ORV_CAM_ERR_IO, status);
    for (const int length : {0, 5, 0x7F}) {
        port.bytes[0x10] = static_cast<unsigned char>(length); // the top byte: from nothing to 2^63
        array->GetString("TellsLength")->GetValue(&status);
    }
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
    OrvCam::SetLogSink(nullptr, nullptr);

    EXPECT_EQ(nullptr, FeatureArrayImp::Create("<Wrong/>", port, &error));
    EXPECT_THAT(error, HasSubstr("<Wrong>"));
}

} // namespace
