#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace orvsim {

/// How the camera misbehaves. All zero: it does not. Rates are shares of 0 to 1.
struct Faults {
    // stream, per packet
    double dropRate = 0;
    std::int64_t dropBurst = 0; ///< packets that are lost behind each one that is dropped by its rate
    double reorderRate = 0;     ///< the packet changes places with its successor
    double duplicateRate = 0;
    double truncateRate = 0;      ///< the packet loses its last bytes
    double corruptRate = 0;       ///< header fields with random bits
    double foreignRate = 0;       ///< a packet from another port, or with random content, goes before it
    std::int64_t dropPacket = -1; ///< packet id that is dropped from every frame once (not when sent again); -1: none
    double dropLeaderRate = 0;    ///< per frame
    double dropTrailerRate = 0;
    std::int64_t partTable = 0;   ///< how the part table of multi-part leaders lies, a PartTableLie
    std::int64_t partOffsets = 0; ///< offsets in a part's packets count from 0 the block's, 1 the part's beginning
    // stream, per frame
    double repeatIdRate = 0;           ///< the frame carries the id of the one before
    double skipIdRate = 0;             ///< an id is left out
    std::int64_t firstBlockId = 1;     ///< 65400 lets 16-bit ids wrap soon
    std::int64_t stallEvery = 0;       ///< frames; 0: never
    std::int64_t stallMs = 0;          ///< pause in the middle of such a frame
    std::int64_t resendMode = 0;       ///< 0 sends again, 1 refuses (packet unavailable), 2 ignores
    std::int64_t payloadSizeError = 0; ///< bytes that PayloadSize says too many (or, below 0, too few)
    // control
    std::int64_t answerDelayMs = 0; ///< every acknowledge
    double answerTwiceRate = 0;
    double answerWrongIdRate = 0;
    double answerErrorRate = 0;          ///< status "busy" without having done anything
    double answerNotRate = 0;            ///< the command is done, the acknowledge lost
    std::int64_t vanishAfterMs = 0;      ///< after control was taken; 0: stays
    std::int64_t vanishForMs = 0;        ///< 0: for good
    std::int64_t loseControlAfterMs = 0; ///< control is taken away; 0: never
    std::int64_t commandMs = 0;          ///< user set commands take this long, told by PENDING_ACK
};

/// What is wrong with the part table of a multi-part leader.
enum class PartTableLie : std::int64_t {
    None,
    Cut,         ///< it ends within the last part
    PartTooMany, ///< a part is counted that it does not describe
    LongPart,    ///< the first part is said to be of 2^40 bytes more than it is
    ShortPart    ///< the first part is said to be half as long as it is
};

/// One fault: its member, its feature, its option and its range, said once.
struct FaultRow {
    const char *feature;          ///< "SimDropRate"
    const char *option;           ///< "drop", for --drop and configuration files
    double Faults::*rate;         ///< a share of 0 to 1; or
    std::int64_t Faults::*number; ///< a number within the range
    std::int64_t minimum;
    std::int64_t maximum;
    const char *unit;
    const char *toolTip;
};
const std::vector<FaultRow> &FaultRows();

/// The fault with that option name, null when there is none.
const FaultRow *FindFault(const std::string &option);

/// Chance with a seed: the same seed and the same questions give the same answers. One thread.
class FaultDice {
public:
    explicit FaultDice(std::uint64_t seed) : m_engine(seed) {}
    /// True with the given probability. A rate of 0 draws nothing.
    bool Falls(double rate);
    /// 0 .. below - 1
    std::uint32_t Number(std::uint32_t below);

private:
    std::mt19937_64 m_engine;
};

} // namespace orvsim
