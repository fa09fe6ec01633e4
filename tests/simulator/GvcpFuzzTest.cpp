// The fuzz target's function over inputs of a fixed seed: its rules hold in every build.
#include "fuzz/GvcpFuzz.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace {

using Bytes = std::vector<std::uint8_t>;

class Mutator {
public:
    std::size_t Number(std::size_t below) { return m_engine() % below; }

    Bytes Random()
    {
        Bytes bytes(Number(600));
        std::generate(bytes.begin(), bytes.end(), [this] { return static_cast<std::uint8_t>(m_engine()); });
        return bytes;
    }

    /// A few bytes of the input changed, doubled or taken out, or its end cut off.
    Bytes Mutate(Bytes bytes)
    {
        for (std::size_t count = 1 + Number(6); count > 0 && !bytes.empty(); --count) {
            const auto place = bytes.begin() + static_cast<std::ptrdiff_t>(Number(bytes.size()));
            const std::size_t kind = Number(40);
            if (kind < 16)
                *place ^= static_cast<std::uint8_t>(kind < 8 ? m_engine() : 1U << kind % 8);
            else if (kind < 24)
                bytes.insert(place, static_cast<std::uint8_t>(m_engine()));
            else
                bytes.erase(place, kind == 39 ? bytes.end() : place + 1);
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
