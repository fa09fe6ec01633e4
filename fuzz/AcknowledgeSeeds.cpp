// Sessions as cameras answer them: at once, late, busy, with a notice before, refusing; and their events.
#include "fuzz/AcknowledgeFuzz.h"
#include "fuzz/Target.h"
#include "producer/gige/Gvcp.h"

#include <initializer_list>

namespace orv::fuzz {

namespace {

using namespace acknowledgeinput;
using nuvark::gige::Command;

struct Answer {
    Command command;
    Bytes payload;
    std::uint16_t status = 0;
    std::uint8_t way = kRightId;
    std::uint16_t code = 0; ///< other than the command's acknowledge
};

Bytes Words(std::initializer_list<std::uint32_t> words)
{
    ByteWriter out;
    for (const std::uint32_t word : words)
        out.U32(word);
    return out.Take();
}

Bytes Joined(Bytes first, const Bytes &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

Bytes Datagram(const Answer &answer)
{
    ByteWriter out;
    out.U16(answer.status);
    out.U16(answer.code != 0 ? answer.code : nuvark::gige::AcknowledgeOf(answer.command));
    out.U16(static_cast<std::uint16_t>(answer.payload.size()));
    out.U16(1);
    out.Bytes(SpanOf(answer.payload));
    return out.Take();
}

class Session {
public:
    Session &Do(Step step, std::uint32_t address, std::uint16_t count, const std::vector<Answer> &answers)
    {
        m_out.U8(step);
        m_out.U32(address);
        m_out.U16(count);
        m_out.U8(static_cast<std::uint8_t>(answers.size()));
        for (const Answer &answer : answers) {
            m_out.U8(answer.way);
            PutPiece(m_out, SpanOf(Datagram(answer)));
        }
        return *this;
    }
    Session &Take(Step step, const Bytes &datagram)
    {
        m_out.U8(step);
        PutPiece(m_out, SpanOf(datagram));
        return *this;
    }
    Bytes Done() { return m_out.Take(); }

private:
    ByteWriter m_out;
};

/// An EVENT or EVENTDATA command.
Bytes Message(std::uint16_t command, std::uint8_t flags, const Bytes &payload)
{
    ByteWriter out;
    out.U8(0x42);
    out.U8(flags);
    out.U16(command);
    out.U16(static_cast<std::uint16_t>(payload.size()));
    out.U16(5);
    out.Bytes(SpanOf(payload));
    return out.Take();
}

Answer Pending(std::uint16_t milliseconds)
{
    return {Command::WriteRegister, Words({milliseconds}), 0, kRightId, nuvark::gige::kPendingAcknowledge};
}

} // namespace

std::vector<Bytes> Seeds()
{
    const Bytes event = Words({0x00009001, 0x00010007, 0, 1234});
    const Bytes sizedEvent = Words({0x00109002, 0x00010008, 0, 1235});
    const Bytes longEvent = Words({0x00189003, 0x00010000, 0, 9, 0, 1236});
    const Bytes discovery(248, 0);
    return {
        Session().Do(kReadRegister, 0x0A00, 1, {{Command::ReadRegister, Words({2})}}).Done(),
        Session()
            .Do(kReadRegister, 0x0A00, 1,
                {{Command::ReadRegister, Words({1}), 0, 0}, {Command::ReadRegister, Words({2})}})
            .Do(kReadMemory, 0x0200, 8, {{Command::ReadMemory, Words({0x0200, 1, 2, 3})}})
            .Done(),
        Session()
            .Do(kWriteRegister, 0xA004, 1, {Pending(1), {Command::WriteRegister, Words({1})}})
            .Do(kWriteRegister, 0xA004, 1, {{Command::WriteRegister, Words({0}), 0x8006}})
            .Done(),
        Session()
            .Do(kReadRegisters, 0x0900, 2, {{Command::ReadRegister, Words({1, 2, 3})}})
            .Do(kWriteRegisters, 0x0900, 2, {{Command::WriteRegister, Words({3})}})
            .Do(kWriteRegisters, 0x0900, 2, {{Command::WriteRegister, Words({1}), 0x8003}})
            .Do(kReadRegisters, 0x0900, 2, {{Command::ReadRegister, Words({1}), 0x8004}})
            .Done(),
        Session()
            .Do(kReadRegister, 0x0A00, 1, {{Command::ReadRegister, {}, 0x8007}, {Command::ReadRegister, Words({2})}})
            .Do(kWriteMemory, 0x00E8, 4, {{Command::WriteMemory, Words({4})}})
            .Do(kReadMemory, 0x0200, 8, {{Command::ReadMemory, Words({0x0204, 1, 2, 3})}})
            .Done(),
        Session().Take(kMessage, Message(0x00C0, 1, event)).Take(kMessage, Message(0x00C0, 0, event)).Done(),
        Session().Take(kMessage, Message(0x00C0, 1, Joined(sizedEvent, sizedEvent))).Done(),
        Session().Take(kMessage, Message(0x00C0, 0x11, Joined(longEvent, longEvent))).Done(),
        Session().Take(kMessage, Message(0x00C2, 1, Joined(event, Words({1, 2, 3})))).Done(),
        Session().Take(kMessage, Message(0x00C2, 0x11, longEvent)).Done(),
        Session().Take(kBare, Datagram({Command::ReadRegister, Words({1})})).Done(),
        Session().Take(kBare, Datagram({Command::ReadMemory, Words({0, 0x01020304, 5, 4})})).Done(),
        Session().Take(kBare, Datagram({Command::Discovery, discovery})).Done(),
        Session().Take(kBare, Datagram({Command::WriteRegister, Words({3}), 0x8001})).Done(),
    };
}

} // namespace orv::fuzz
