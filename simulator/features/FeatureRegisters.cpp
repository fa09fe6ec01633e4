// The registers behind the features of a table.
#include "simulator/features/FeatureCheck.h"
#include "simulator/features/FeatureTable.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <utility>

namespace orvsim {

namespace {

constexpr std::uint32_t kFlagBytes = 4;
constexpr std::uint32_t kFloatBytes = 8;

std::uint64_t BitsOf(double value)
{
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

double DoubleOf(std::uint64_t bits)
{
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

RegisterAccess AccessOf(const Feature &feature)
{
    switch (feature.access) {
    case FeatureAccess::ReadOnly:
        return RegisterAccess::ReadOnly;
    case FeatureAccess::ReadWrite:
        return RegisterAccess::ReadWrite;
    default:
        return RegisterAccess::WriteOnly;
    }
}

std::uint32_t ValueBytes(const Feature &feature)
{
    if (feature.type == FeatureType::String)
        return (feature.textBytes + 3) / 4 * 4;
    if (!HoldsInteger(feature))
        return kFloatBytes;
    const bool isPlain = feature.type == FeatureType::Integer || feature.type == FeatureType::Float;
    return isPlain ? feature.integerBytes : 4;
}

/// Adds registers one behind the other.
class Placer {
public:
    Placer(RegisterSpace &space, std::uint32_t firstAddress) : m_space(space), m_next(firstAddress) {}

    FeatureSlots Place(const Feature &feature);
    /// The registers beside the value of a feature whose value lies in somebody else's.
    FeatureSlots PlaceBeside(const Feature &feature, const RegisterField &field);
    /// Availability and lock, which every source can have.
    void PlaceFlags(const Feature &feature, FeatureSlots &slots);

private:
    std::uint32_t Take(std::uint32_t length) { return std::exchange(m_next, m_next + length); }
    std::uint32_t AddReadable(std::uint32_t length, std::function<std::uint64_t()> get);
    void AddValue(const Feature &feature, FeatureSlots &slots);
    void AddIntegerValue(const Feature &feature, const FeatureSlots &slots);
    void AddRange(const Feature &feature, FeatureSlots &slots);

    RegisterSpace &m_space;
    std::uint32_t m_next;
};

std::uint32_t Placer::AddReadable(std::uint32_t length, std::function<std::uint64_t()> get)
{
    const std::uint32_t address = Take(length);
    m_space.AddNumber(address, length, RegisterAccess::ReadOnly, std::move(get));
    return address;
}

FeatureSlots Placer::Place(const Feature &feature)
{
    FeatureSlots slots;
    slots.valueBytes = ValueBytes(feature);
    slots.value = Take(slots.valueBytes);
    slots.isSigned = HoldsInteger(feature) && (slots.valueBytes == 8 || RangeOf(feature).minimum < 0);
    AddValue(feature, slots);
    AddRange(feature, slots);
    return slots;
}

FeatureSlots Placer::PlaceBeside(const Feature &feature, const RegisterField &field)
{
    FeatureSlots slots;
    slots.value = field.address;
    slots.valueBytes = field.length;
    const bool isWhole = field.lowBit == 0 && field.highBit == 63;
    slots.isSigned = HoldsInteger(feature) && (isWhole || (feature.integerRange && RangeOf(feature).minimum < 0));
    AddRange(feature, slots);
    return slots;
}

void Placer::AddIntegerValue(const Feature &feature, const FeatureSlots &slots)
{
    const bool isShortSigned = slots.isSigned && slots.valueBytes == 4;
    std::function<std::uint64_t()> get;
    if (feature.getInteger)
        get = [&feature] { return static_cast<std::uint64_t>(feature.getInteger()); };
    m_space.AddNumber(slots.value, slots.valueBytes, AccessOf(feature), get,
                      [&feature, isShortSigned](std::uint64_t raw) {
                          std::string problem;
                          const auto value = isShortSigned ? std::int64_t{static_cast<std::int32_t>(raw)}
                                                           : static_cast<std::int64_t>(raw);
                          return SetInteger(feature, value, problem);
                      });
}

void Placer::AddValue(const Feature &feature, FeatureSlots &slots)
{
    if (HoldsInteger(feature))
        return AddIntegerValue(feature, slots);
    const RegisterAccess access = AccessOf(feature);
    if (feature.type == FeatureType::String) {
        return m_space.AddText(slots.value, slots.valueBytes, access, feature.getText,
                               [&feature](const std::string &text) {
                                   std::string problem;
                                   return SetString(feature, text, problem);
                               });
    }
    std::function<std::uint64_t()> get;
    if (feature.getFloat)
        get = [&feature] { return BitsOf(feature.getFloat()); };
    m_space.AddNumber(slots.value, slots.valueBytes, access, get, [&feature](std::uint64_t bits) {
        std::string problem;
        return SetFloat(feature, DoubleOf(bits), problem);
    });
}

void Placer::AddRange(const Feature &feature, FeatureSlots &slots)
{
    if (feature.isRangeFixed)
        return;
    if (feature.integerRange && HoldsInteger(feature)) {
        const auto add = [&](std::int64_t IntegerRange::*member) {
            return AddReadable(slots.valueBytes, [&feature, member] {
                return static_cast<std::uint64_t>(feature.integerRange().*member);
            });
        };
        slots.minimum = add(&IntegerRange::minimum);
        slots.maximum = add(&IntegerRange::maximum);
        slots.increment = add(&IntegerRange::increment);
    } else if (feature.floatRange && !HoldsInteger(feature)) {
        slots.minimum = AddReadable(kFloatBytes, [&feature] { return BitsOf(feature.floatRange().minimum); });
        slots.maximum = AddReadable(kFloatBytes, [&feature] { return BitsOf(feature.floatRange().maximum); });
    }
}

void Placer::PlaceFlags(const Feature &feature, FeatureSlots &slots)
{
    if (feature.isAvailable)
        slots.isAvailable = AddReadable(kFlagBytes, [&feature] { return std::uint64_t{feature.isAvailable()}; });
    if (feature.isLocked)
        slots.isLocked = AddReadable(kFlagBytes, [&feature] { return std::uint64_t{feature.isLocked()}; });
}

std::vector<std::uint8_t> BytesOf(const RegisterSpace &space, const RegisterField &field)
{
    std::vector<std::uint8_t> bytes(field.length);
    if (space.Read(field.address, field.length, bytes.data()) != Outcome::Ok)
        std::fill(bytes.begin(), bytes.end(), std::uint8_t{0});
    return bytes;
}

std::uint64_t MaskOf(const RegisterField &field)
{
    const int width = field.highBit - field.lowBit + 1;
    return width >= 64 ? ~std::uint64_t{0} : ((std::uint64_t{1} << width) - 1) << field.lowBit;
}

std::uint64_t WordOf(const RegisterSpace &space, const RegisterField &field)
{
    std::uint64_t word = 0;
    for (const std::uint8_t byte : BytesOf(space, field))
        word = word << 8 | byte;
    return word;
}

Outcome WriteField(RegisterSpace &space, const RegisterField &field, std::int64_t value)
{
    const std::uint64_t mask = MaskOf(field);
    const std::uint64_t old = WordOf(space, field); // zero where it cannot be read
    const std::uint64_t word = (old & ~mask) | ((static_cast<std::uint64_t>(value) << field.lowBit) & mask);
    std::vector<std::uint8_t> bytes(field.length);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<std::uint8_t>(word >> (8 * (bytes.size() - 1 - i)));
    return space.Write(field.address, field.length, bytes.data());
}

/// A field of somebody else's register is read and set through that register.
void UseField(Feature &feature, RegisterSpace &space, const RegisterField &field)
{
    feature.textBytes = field.length;
    feature.getText = [&space, field] {
        const std::vector<std::uint8_t> bytes = BytesOf(space, field);
        return std::string(bytes.begin(), std::find(bytes.begin(), bytes.end(), std::uint8_t{0}));
    };
    feature.getInteger = [&space, field] {
        return static_cast<std::int64_t>((WordOf(space, field) & MaskOf(field)) >> field.lowBit);
    };
    feature.setInteger = [&space, field](std::int64_t value) { return WriteField(space, field, value); };
}

} // namespace

void FeatureTable::PlaceRegisters(RegisterSpace &space, std::uint32_t firstAddress)
{
    Placer placer(space, firstAddress);
    for (std::size_t i = 0; i < m_features.size(); ++i) {
        Feature &feature = m_features[i];
        if (const auto *field = std::get_if<RegisterField>(&feature.source)) {
            UseField(feature, space, *field);
            m_slots[i] = placer.PlaceBeside(feature, *field);
        } else if (std::holds_alternative<Slot>(feature.source) || std::holds_alternative<Scaled>(feature.source)) {
            m_slots[i] = placer.Place(feature);
        }
        placer.PlaceFlags(feature, m_slots[i]);
    }
}

} // namespace orvsim
