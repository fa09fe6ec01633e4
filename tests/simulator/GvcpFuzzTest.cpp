// The fuzz target's function over inputs of a fixed seed: its rules hold in every build.
#include "fuzz/GvcpFuzz.h"

#include <gtest/gtest.h>

#include <random>

namespace {

using Bytes = std::vector<std::uint8_t>;

class Mutator {
public:
    std::size_t Number(std::size_t below) { return m_engine() % below; }

    Bytes Random()
    {
        Bytes bytes(Number(600));
        for (std::uint8_t &byte : bytes)
            byte = static_cast<std::uint8_t>(m_engine());
        return bytes;
    }

    /// A few bytes of the input changed, doubled or taken out, or its end cut off.
    Bytes Mutate(Bytes bytes)
    {
        for (std::size_t count = 1 + Number(6); count > 0 && !bytes.empty(); --count) {
            const auto place = bytes.begin() + static_cast<std::ptrdiff_t>(Number(bytes.size()));
            switch (Number(5)) {
            case 0:
                *place = static_cast<std::uint8_t>(m_engine());
                break;
            case 1:
                *place ^= static_cast<std::uint8_t>(1U << Number(8));
                break;
            case 2:
                bytes.insert(place, static_cast<std::uint8_t>(m_engine()));
                break;
            case 3:
                bytes.erase(place);
                break;
            default:
                if (Number(8) == 0)
                    bytes.erase(place, bytes.end());
            }
        }
        return bytes;
    }

private:
    std::mt19937_64 m_engine{20};
};

TEST(GvcpFuzz, RulesHoldForRandomAndMutatedSessions)
{
    Mutator mutator;
    const auto seeds = GvcpSeeds();
    for (const Bytes &seed : seeds)
        LLVMFuzzerTestOneInput(seed.data(), seed.size());
    for (int i = 0; i < 20000; ++i) {
        Bytes input = i % 8 == 0 ? mutator.Random() : mutator.Mutate(seeds[mutator.Number(seeds.size())]);
        if (i % 16 == 1) { // two sessions in one
            const Bytes more = mutator.Mutate(seeds[mutator.Number(seeds.size())]);
            input.insert(input.end(), more.begin(), more.end());
        }
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
}

} // namespace
