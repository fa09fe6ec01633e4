#include "gentl/Library.h"

#include <gtest/gtest.h>

#include <fstream>

using orv::gentl::Library;

TEST(Library, AnOlderProducerLoadsWithoutTheLaterFunctions)
{
    std::string error;
    const auto library = Library::Load(ORV_STAND_IN_FOLDER "/old.cti", &error);
    ASSERT_NE(library, nullptr) << error;
    EXPECT_EQ((*library)->GCInitLib(), GC_ERR_NOT_IMPLEMENTED);
    EXPECT_NE(library->Calls().DSGetBufferInfo, nullptr);
    EXPECT_EQ(library->Calls().GCGetNumPortURLs, nullptr);
    EXPECT_EQ(library->Calls().DSGetBufferInfoStacked, nullptr);
}

TEST(Library, FailuresNameTheFileAndTheReason)
{
    const std::string noLibrary = testing::TempDir() + "text.cti";
    std::ofstream(noLibrary) << "this is no library";
    const struct {
        std::string path;
        const char *reason;
    } kRows[] = {
        {ORV_STAND_IN_FOLDER "/absent.cti", "No such file"},
        {noLibrary, "file too short"},
        {ORV_STAND_IN_FOLDER "/lacking.cti", "lacks the required functions EventKill, TLClose"},
    };
    for (const auto &row : kRows) {
        std::string error;
        EXPECT_EQ(Library::Load(row.path, &error), nullptr) << row.path;
        EXPECT_NE(error.find(row.path), std::string::npos) << error;
        EXPECT_NE(error.find(row.reason), std::string::npos) << error;
        EXPECT_EQ(Library::Load(row.path, nullptr), nullptr) << "nobody wants the reason";
    }
}
