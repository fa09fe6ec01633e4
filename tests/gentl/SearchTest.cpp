#include "gentl/Search.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;
using orv::gentl::FindProducer;
using orv::gentl::FindProducers;
using orv::gentl::SearchPath;

namespace {

class SearchTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::string pattern = testing::TempDir() + "orv-search-XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        root = fs::canonical(pattern);
        for (const char *folder : {"program", "installed", "one", "two", "two/deeper", "one/folder.cti"})
            fs::create_directories(root / folder);
    }
    void TearDown() override { fs::remove_all(root); }

    std::string Make(const std::string &name) const
    {
        std::ofstream(root / name) << "x";
        return At(name);
    }
    std::string At(const std::string &name) const { return (root / name).string(); }

    fs::path root;
};

} // namespace

TEST_F(SearchTest, PlacesComeInOrderAndNamesSortedWithinOne)
{
    const std::string expected[] = {Make("program/z.cti"), Make("installed/y.cti"), Make("two/b.cti"),
                                    Make("two/c.cti"), Make("one/a.cti")};
    Make("two/readme.txt");
    Make("two/upper.CTI");
    Make("two/deeper/d.cti");
    SearchPath path{At("program"), At("installed"), At("two") + "::" + At("missing") + ":" + At("one/a.cti") + ":"};
    EXPECT_EQ(FindProducers(path), std::vector<std::string>(std::begin(expected), std::end(expected)));
    path.environmentList = At("one");
    EXPECT_EQ(FindProducers(path).back(), At("one/a.cti")) << "a folder called like a producer is none";
}

TEST_F(SearchTest, OneFileIsOneProducer)
{
    const std::string file = Make("one/a.cti");
    fs::create_symlink(file, root / "two/other.cti");
    fs::create_directory_symlink(root / "one", root / "again");
    fs::create_symlink(root / "gone.cti", root / "one/dangling.cti");
    const SearchPath path{"", "", At("one") + ":" + At("two") + ":" + At("again") + ":" + At("one") + "/../one"};
    EXPECT_EQ(FindProducers(path), std::vector<std::string>{file});
}

TEST_F(SearchTest, AProducerIsFoundByName)
{
    const std::string nearest = Make("program/Nuvark.cti");
    const std::string other = Make("one/Other.cti");
    Make("one/Nuvark.cti");
    const SearchPath path{At("program"), "", At("one")};
    EXPECT_EQ(FindProducer("Nuvark.cti", path), nearest);
    EXPECT_EQ(FindProducer("Other.cti", path), other);
    EXPECT_EQ(FindProducer("Absent.cti", path), "");
    EXPECT_EQ(FindProducer(other, SearchPath{}), other) << "a path is taken as it is";
    EXPECT_EQ(FindProducer(At("one/absent.cti"), path), "");
    EXPECT_EQ(FindProducer("", path), "");
}

TEST_F(SearchTest, TheEnvironmentVariableIsRead)
{
    const std::string file = Make("one/InEnvironment.cti");
    setenv("GENICAM_GENTL64_PATH", At("one").c_str(), 1);
    EXPECT_EQ(FindProducer("InEnvironment.cti"), file);
    unsetenv("GENICAM_GENTL64_PATH");
    EXPECT_EQ(FindProducer("InEnvironment.cti"), "");
    EXPECT_EQ(orv::gentl::DefaultSearchPath().executableFolder, fs::read_symlink("/proc/self/exe").parent_path());
}
