#pragma once

#include "simulator/features/Description.h"
#include "simulator/features/FeatureTable.h"
#include "simulator/features/RegisterSpace.h"
#include "tests/simulator/GenApiBridge.h"

#include <array>
#include <string>

namespace orvsim {

/// A table with a feature of every kind and every option, on plain members.
class ToyCamera {
public:
    ToyCamera();

    std::string Xml() const;
    GenApiBridge Open();

    /// Sets by text; "" when that went well, else the problem.
    std::string Set(const std::string &name, const std::string &text);

    RegisterSpace registers;
    FeatureTable table;

    std::int64_t width = 640;
    std::int64_t offset = 0;
    std::int64_t isStreaming = 0;
    std::int64_t level = -5;
    std::int64_t count = 5'000'000'000;
    std::int64_t key = 0;
    double exposureUs = 10000.25;
    std::int64_t channel = 0;
    std::array<double, 2> gains{1.5, 2.5};
    std::int64_t format = 1;
    bool isDeep = false;
    std::int64_t isMirrored = 0;
    int triggers = 0;
    std::int64_t isSaving = 0;
    std::string userName = "toy";
    std::int64_t iris = 280;
    std::uint32_t packetWord = 0x40000000 | 1500;
    std::string hostName = "host";

private:
    void AddIntegers();
    void AddFloats();
    void AddChoices();
    void AddCommands();
    void AddTexts();
    void AddComputed();
    void AddFields();
};

} // namespace orvsim
