// Plays the saved inputs of one fuzz target, whose function ends the program where a rule is broken.
#include "fuzz/Target.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

std::vector<std::filesystem::path> SavedInputs()
{
    std::vector<std::filesystem::path> files;
    std::error_code error; // no such folder: no files
    for (const auto &entry : std::filesystem::directory_iterator(ORV_FUZZ_CORPUS, error)) {
        if (entry.is_regular_file())
            files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

orv::fuzz::Bytes ContentOf(const std::filesystem::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return orv::fuzz::Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

TEST(Corpus, EverySavedInputKeepsTheRules)
{
    const std::vector<std::filesystem::path> files = SavedInputs();
    ASSERT_FALSE(files.empty()) << "nothing in " << ORV_FUZZ_CORPUS;
    for (const std::filesystem::path &path : files) {
        std::fprintf(stderr, "%s\n", path.filename().c_str()); // the last one, when the program ends here
        const orv::fuzz::Bytes input = ContentOf(path);
        EXPECT_FALSE(input.empty()) << path;
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
}

} // namespace
