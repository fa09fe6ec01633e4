// Writes the seeds of a fuzz target as files: "gvcp_seeds DIRECTORY".
#include "fuzz/GvcpFuzz.h"

#include <cstdio>
#include <fstream>
#include <string>

int main(int count, char **words)
{
    if (count != 2) {
        std::fprintf(stderr, "usage: %s DIRECTORY\n", words[0]);
        return 2;
    }
    int number = 0;
    for (const std::vector<std::uint8_t> &seed : GvcpSeeds()) {
        std::ofstream file(std::string(words[1]) + "/session" + std::to_string(number++), std::ios::binary);
        file.write(reinterpret_cast<const char *>(seed.data()), static_cast<std::streamsize>(seed.size()));
        if (!file) {
            std::fprintf(stderr, "cannot write to %s\n", words[1]);
            return 1;
        }
    }
    return 0;
}
