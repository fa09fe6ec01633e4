#pragma once

#include "simulator/features/Outcome.h"

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace orvsim {

enum class FeatureType { Integer, Float, Enumeration, Boolean, Command, String };
enum class FeatureAccess { ReadOnly, ReadWrite, WriteOnly };
enum class Visibility { Beginner, Expert, Guru, Invisible };

struct IntegerRange {
    std::int64_t minimum = 0;
    std::int64_t maximum = 0;
    std::int64_t increment = 1;
};
struct FloatRange {
    double minimum = 0;
    double maximum = 0;
};

struct EnumerationEntry {
    std::string name;
    std::int64_t value = 0;
    std::string toolTip = {};
};

/// Where the value lies. Slot: a register of its own that the feature table places.
struct Slot {};
/// A register that somebody else put into the register space; the feature's own functions are not used. Texts are
/// read-only.
struct RegisterField {
    std::uint32_t address = 0;
    std::uint32_t length = 4; ///< bytes
    int lowBit = 0;           ///< of the big-endian number, 0 the least significant
    int highBit = 31;         ///< a whole register of 4 bytes: 0 to 31
};
/// A big-endian field of the data that travels behind a frame.
struct ChunkField {
    std::uint32_t chunkId = 0;
    std::uint32_t offset = 0; ///< bytes within the chunk's data
    std::uint32_t length = 8;
};
/// A big-endian field of an event. The offsets count from the event item's start as the transport delivers it: in its
/// standard form, and in the extended one where it has two (see FeatureTable::SetEventForm).
struct EventField {
    std::uint32_t eventId = 0;
    std::uint32_t offset = 0;
    std::uint32_t length = 8;
    std::uint32_t extendedOffset = 0; ///< not below `offset`
};
/// An Integer that the host computes; read-only. The variables are features of the same table or of `hidden` integers.
struct Formula {
    std::string text;                                           ///< every operation in parentheses
    std::vector<std::pair<std::string, std::string>> variables; ///< name in the formula, name of the feature
};
/// A read-only Float that the host converts from the integer in its slot (getInteger, integerRange). Its own getFloat
/// serves the access by text. The schema wants the way back as well.
struct Scaled {
    std::string toRegister;   ///< of FROM
    std::string fromRegister; ///< of TO
};
using FeatureSource = std::variant<Slot, RegisterField, ChunkField, EventField, Formula, Scaled>;

/// One feature of the camera: a row that makes its registers, its node in the description and its option name.
///
/// The functions run with the camera's mutex held and must not block. A setter gets only values within the range or of
/// entries, and only when the feature is neither locked nor unavailable.
struct Feature {
    std::string name;
    std::string category; ///< of the category tree's second level: "AnalogControl"
    FeatureType type = FeatureType::Integer;
    FeatureAccess access = FeatureAccess::ReadWrite;
    Visibility visibility = Visibility::Beginner;
    std::string toolTip;
    std::string unit = {};
    std::string representation = {}; ///< as the schema spells it: "Linear", "HexNumber", "IPV4Address"; empty: none
    FeatureSource source = Slot{};

    std::function<std::int64_t()> getInteger = {};        ///< Integer, Enumeration, Boolean
    std::function<Outcome(std::int64_t)> setInteger = {}; ///< Command: runs it
    std::function<IntegerRange()> integerRange = {};      ///< Integer
    std::uint32_t integerBytes = 4; ///< 4 (unsigned unless the range starts below 0) or 8 (signed)
    std::function<double()> getFloat = {};
    std::function<Outcome(double)> setFloat = {};
    std::function<FloatRange()> floatRange = {};
    std::function<std::string()> getText = {};
    std::function<Outcome(const std::string &)> setText = {};
    std::uint32_t textBytes = 64;
    std::vector<EnumerationEntry> entries = {};

    bool isRangeFixed = false; ///< the range never changes: it stands in the description as numbers
    bool isVolatile = false;   ///< changes by itself: consumers must not cache it
    bool isStreamable = false; ///< belongs into user sets and configuration files
    int pollingMs = 0;
    std::function<bool()> isAvailable = {}; ///< null: always
    std::function<bool()> isLocked = {};    ///< null: never
    std::vector<std::string> selects = {};  ///< names of the features that this one, a selector, chooses among
    /// Names of features whose change can change this one's value, range, availability or lock. Selectors and the lock
    /// while streaming need not be listed.
    std::vector<std::string> dependsOn = {};
    bool isHidden = false; ///< a node that others refer to; in no category
    /// Not a name of the standard feature naming; names that begin with "Sim" are custom without it.
    bool isCustom = false;
};

} // namespace orvsim
