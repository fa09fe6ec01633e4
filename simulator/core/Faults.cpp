#include "simulator/core/Faults.h"

namespace orvsim {

namespace {

FaultRow Rate(const char *feature, const char *option, double Faults::*rate, const char *toolTip)
{
    return {feature, option, rate, nullptr, 0, 1, "", toolTip};
}

FaultRow Number(const char *feature, const char *option, std::int64_t Faults::*number, std::int64_t minimum,
                std::int64_t maximum, const char *unit, const char *toolTip)
{
    return {feature, option, nullptr, number, minimum, maximum, unit, toolTip};
}

constexpr std::int64_t kHourMs = 3'600'000;

} // namespace

const std::vector<FaultRow> &FaultRows()
{
    static const std::vector<FaultRow> rows = {
        Rate("SimDropRate", "drop", &Faults::dropRate, "Share of the stream's packets that are never sent."),
        Number("SimDropBurst", "drop-burst", &Faults::dropBurst, 0, 1'000'000, "",
               "Further packets that are lost behind each one that SimDropRate drops, also of the next frames."),
        Rate("SimReorderRate", "reorder", &Faults::reorderRate, "Share of the packets that their successor overtakes."),
        Rate("SimDuplicateRate", "duplicate", &Faults::duplicateRate, "Share of the packets that are sent twice."),
        Rate("SimTruncateRate", "truncate", &Faults::truncateRate, "Share of the packets that lose their last bytes."),
        Rate("SimCorruptRate", "corrupt", &Faults::corruptRate,
             "Share of the packets with random bits in their header fields."),
        Rate("SimForeignRate", "foreign", &Faults::foreignRate,
             "Share of the packets before which a packet of no known stream is sent to the same port."),
        Number("SimDropPacket", "drop-packet", &Faults::dropPacket, -1, 0x7fffffff, "",
               "Packet id that is missing from every frame until it is sent again; -1 for none."),
        Rate("SimDropLeaderRate", "drop-leader", &Faults::dropLeaderRate, "Share of the frames without a leader."),
        Rate("SimDropTrailerRate", "drop-trailer", &Faults::dropTrailerRate, "Share of the frames without a trailer."),
        Number("SimPartTable", "part-table", &Faults::partTable, 0, 4, "",
               "Part tables of multi-part leaders: 0 right, 1 cut, 2 with a part too many, 3 with a part far too long, "
               "4 with a part too short."),
        Number("SimPartOffsets", "part-offsets", &Faults::partOffsets, 0, 1, "",
               "Offsets in a part's packets: 0 from the block's beginning, 1 from the part's. Devices differ."),
        Rate("SimRepeatIdRate", "repeat-id", &Faults::repeatIdRate,
             "Share of the frames that carry the block id of the frame before."),
        Rate("SimSkipIdRate", "skip-id", &Faults::skipIdRate,
             "Share of the frames before which a block id is left out."),
        Number("SimFirstBlockId", "first-block-id", &Faults::firstBlockId, 1, 0x7fffffff, "",
               "Block id of an acquisition's first frame; 65400 lets 16-bit ids wrap soon."),
        Number("SimStallEvery", "stall-every", &Faults::stallEvery, 0, 1'000'000, "",
               "Frames from one stall of the stream to the next; 0 for none."),
        Number("SimStallTime", "stall-ms", &Faults::stallMs, 0, 60'000, "ms",
               "Pause in the middle of a frame that stalls."),
        Number("SimResendMode", "resend-mode", &Faults::resendMode, 0, 2, "",
               "Requests for lost packets: 0 answers, 1 refuses, 2 ignores them."),
        Number("SimPayloadSizeError", "payload-size-error", &Faults::payloadSizeError, -(1 << 20), 1 << 20, "B",
               "Bytes that PayloadSize says too many, or too few below 0."),
        Number("SimAnswerDelay", "answer-delay-ms", &Faults::answerDelayMs, 0, 10'000, "ms",
               "Time that every acknowledge is late."),
        Rate("SimAnswerTwiceRate", "answer-twice", &Faults::answerTwiceRate,
             "Share of the acknowledges that are sent twice."),
        Rate("SimAnswerWrongIdRate", "answer-wrong-id", &Faults::answerWrongIdRate,
             "Share of the acknowledges with another request's id."),
        Rate("SimAnswerErrorRate", "answer-error", &Faults::answerErrorRate,
             "Share of the commands that are answered busy and not carried out."),
        Rate("SimAnswerNotRate", "answer-not", &Faults::answerNotRate,
             "Share of the commands that are carried out without an acknowledge."),
        Number("SimVanishAfter", "vanish-after-ms", &Faults::vanishAfterMs, 0, kHourMs, "ms",
               "Time under control after which the camera falls silent; 0 for never."),
        Number("SimVanishFor", "vanish-for-ms", &Faults::vanishForMs, 0, kHourMs, "ms",
               "Time until a silent camera comes back as if switched on; 0 for never."),
        Number("SimLoseControlAfter", "lose-control-after-ms", &Faults::loseControlAfterMs, 0, kHourMs, "ms",
               "Time under control after which the camera drops its client; 0 for never."),
        Number("SimCommandTime", "command-ms", &Faults::commandMs, 0, 60'000, "ms",
               "Time that user set commands take."),
    };
    return rows;
}

const FaultRow *FindFault(const std::string &option)
{
    for (const FaultRow &row : FaultRows()) {
        if (option == row.option)
            return &row;
    }
    return nullptr;
}

bool FaultDice::Falls(double rate)
{
    return rate > 0 && std::uniform_real_distribution<double>(0, 1)(m_engine) < rate;
}

std::uint32_t FaultDice::Number(std::uint32_t below)
{
    return static_cast<std::uint32_t>(m_engine() % below);
}

} // namespace orvsim
