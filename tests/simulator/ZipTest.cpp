#include "simulator/gige/Zip.h"

#include "tests/simulator/Unzip.h"

#include <gtest/gtest.h>

namespace orvsim {

TEST(Zip, HoldsTheFileUnderItsName)
{
    std::string text;
    for (int i = 0; i < 20000; ++i)
        text += "line " + std::to_string(i * i) + "\n";
    for (const std::string &content : {std::string(), std::string("x"), text}) {
        const std::string zip = MakeZip("camera.xml", content);
        const UnzippedFile file = UnzipFirst(zip);
        EXPECT_EQ(file.problem, "");
        EXPECT_EQ(file.name, "camera.xml");
        EXPECT_TRUE(file.content == content) << content.size();
        EXPECT_EQ(zip, MakeZip("camera.xml", content));
    }
    EXPECT_LT(MakeZip("camera.xml", text).size(), text.size() / 2);
}

} // namespace orvsim
