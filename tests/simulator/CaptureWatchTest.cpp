#include "simulator/gige/CaptureWatch.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

namespace orvsim {

TEST(CaptureWatch, SeesReadersOfRawPacketsComeAndGo)
{
    const std::string list = testing::TempDir() + "packet-sockets";
    const std::string title = "sk               RefCnt Type Proto  Iface R Rmem   User   Inode\n";
    std::ofstream(list) << title;
    CaptureWatch watch(list);
    EXPECT_FALSE(watch.SomebodyReads(true));
    std::ofstream(list) << title << "ffff00000000 3      3    0003   1     1 0      0      12345\n";
    EXPECT_TRUE(watch.SomebodyReads(true));
    std::ofstream(list) << title;
    EXPECT_FALSE(watch.SomebodyReads(true));
    std::remove(list.c_str());
    EXPECT_FALSE(watch.SomebodyReads(true)) << "a kernel without packet sockets";
}

} // namespace orvsim
