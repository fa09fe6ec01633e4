// Answers as cameras send them: one camera, two, one in a foreign subnet, one without a MAC; and their registers.
#include "fuzz/DiscoveryFuzz.h"
#include "fuzz/Target.h"
#include "producer/gige/Discovery.h"

#include <string>

namespace orv::fuzz {

namespace {

using namespace discoveryinput;
using namespace nuvark::gige;

void PutText(ByteWriter &out, std::string text, std::size_t size)
{
    text.resize(size, '\0');
    out.Bytes({reinterpret_cast<const std::uint8_t *>(text.data()), size});
}

void PutAddress(ByteWriter &out, std::uint32_t address)
{
    const Bytes reserved(12, 0);
    out.Bytes(SpanOf(reserved));
    out.U32(address);
}

/// \param macEnd  the last of the MAC's bytes; 0 for a camera without one.
Bytes Discovered(std::uint32_t address, std::uint8_t macEnd)
{
    ByteWriter out;
    out.U16(0);
    out.U16(AcknowledgeOf(Command::Discovery));
    out.U16(248);
    out.U16(DiscoveryCollector::kDiscoveryId);
    out.U32(0x00020000);
    out.U32(0x80000000);
    out.U16(0);
    out.U16(macEnd != 0 ? 0x0200 : 0);
    out.U16(0);
    out.U16(macEnd);
    out.U32(7);
    out.U32(5);
    PutAddress(out, address);
    PutAddress(out, 0xFFFFFF00);
    PutAddress(out, 0);
    PutText(out, "Nuvark", 32);
    PutText(out, "Seed", 32);
    PutText(out, "1.0", 32);
    PutText(out, "none", 48);
    PutText(out, "SN-" + std::to_string(macEnd), 16);
    PutText(out, "left", 16);
    return out.Take();
}

Bytes Register(std::uint16_t id, std::uint32_t value, std::uint16_t status = 0)
{
    ByteWriter out;
    out.U16(status);
    out.U16(AcknowledgeOf(Command::ReadRegister));
    out.U16(4);
    out.U16(id);
    out.U32(value);
    return out.Take();
}

class Search {
public:
    Search &Hear(std::uint8_t way, const Bytes &datagram)
    {
        m_out.U8(way);
        PutPiece(m_out, SpanOf(datagram));
        return *this;
    }
    Bytes Done() { return m_out.Take(); }

private:
    ByteWriter m_out;
};

} // namespace

std::vector<Bytes> Seeds()
{
    Search all;
    all.Hear(0, Discovered(kSenders[0], 1));
    for (std::uint16_t id = 1; id <= 5; ++id)
        all.Hear(0, Register(id, id));
    Search two;
    two.Hear(0, Discovered(kSenders[0], 1)).Hear(1, Discovered(kSenders[1], 2)).Hear(0, Discovered(kSenders[0], 1));
    two.Hear(1, Register(2, 0x50000000)).Hear(kTimePasses, Register(1, 0, 0x8006)).Hear(1, Register(3, 1));
    return {
        all.Done(),
        two.Done(),
        Search().Hear(0, Discovered(kSenders[0], 0)).Hear(1, Discovered(kSenders[1], 0)).Done(),
        Search().Hear(2, Discovered(kSenders[2], 3)).Done(),
        Search().Hear(0, Discovered(0xAC100005, 4)).Hear(kTimePasses, Register(1, 1)).Done(),
        Search().Hear(3, Discovered(0, 5)).Hear(3, Register(1, 1)).Done(),
    };
}

} // namespace orv::fuzz
