#pragma once

#include "simulator/features/Feature.h"
#include "simulator/features/XmlWriter.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace orvsim {

/// A register as the description states it: what the nodes of IntReg, MaskedIntReg, FloatReg and StringReg share.
struct RegisterNode {
    enum class Kind { Integer, Float, String };

    Kind kind = Kind::Integer;
    std::string name;
    std::uint32_t address = 0;
    std::string addressShift = {}; ///< node whose value is added to the address; empty: none
    std::uint32_t length = 4;      ///< bytes
    FeatureAccess access = FeatureAccess::ReadOnly;
    std::string port = "Device";
    bool isSigned = false;
    /// A part of the register, 0 the least significant bit of the big-endian number; all of it when nothing.
    std::optional<std::pair<int, int>> lowAndHighBit = {};
    bool isVolatile = false;
    int pollingMs = 0;
    std::vector<std::string> invalidators = {}; ///< features whose change can change what the register holds
};

/// "RO", "RW", "WO"
std::string AccessModeOf(const RegisterNode &node);
/// The part that every register has, from the address to the invalidators. For a StringReg that is all.
void WriteRegisterBlock(XmlWriter &xml, const RegisterNode &node);
/// A register that a feature's node refers to.
void WriteRegister(XmlWriter &xml, const RegisterNode &node);

} // namespace orvsim
