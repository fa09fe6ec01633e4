// Writes the seeds of a fuzz target as files: "gvsp_seeds DIRECTORY".
#include "fuzz/Target.h"

#include <fstream>
#include <string>

int main(int count, char **words)
{
    if (count != 2) {
        std::fprintf(stderr, "usage: %s DIRECTORY\n", words[0]);
        return 2;
    }
    int number = 0;
    for (const orv::fuzz::Bytes &seed : orv::fuzz::Seeds()) {
        std::ofstream file(std::string(words[1]) + "/seed" + std::to_string(number++), std::ios::binary);
        file.write(reinterpret_cast<const char *>(seed.data()), static_cast<std::streamsize>(seed.size()));
        if (!file) {
            std::fprintf(stderr, "cannot write to %s\n", words[1]);
            return 1;
        }
        file.close();
        // Valid traffic that breaks a rule is to be seen before anything else is looked for.
        LLVMFuzzerTestOneInput(seed.data(), seed.size());
    }
    return 0;
}
