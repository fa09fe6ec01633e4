#include "orvcam/Figures.h"

#include "gentl/NuvarkCustom.h"

#include <iterator>

namespace orv::cam {

namespace {

using Statistics = OrvCam::StreamStatistics;

struct Row {
    OrvCam::NamedFigure figure;
    STREAM_INFO_CMD command;
};

constexpr Row kRows[] = {
    {{"delivered", "frames", true, &Statistics::delivered}, STREAM_INFO_NUM_DELIVERED},
    {{"incomplete", "frames", true, &Statistics::incomplete}, NUVARK_STREAM_INFO_NUM_INCOMPLETE},
    {{"missed", "frames", true, &Statistics::missed}, NUVARK_STREAM_INFO_NUM_MISSED},
    {{"underruns", "frames", true, &Statistics::underruns}, STREAM_INFO_NUM_UNDERRUN},
    {{"started", "frames", true, &Statistics::started}, STREAM_INFO_NUM_STARTED},
    {{"droppedByCamera", "frames", true, &Statistics::droppedByCamera}, NUVARK_STREAM_INFO_NUM_DROPPED_BY_CAMERA},
    {{"packets", "packets", true, &Statistics::packets}, NUVARK_STREAM_INFO_NUM_PACKETS},
    {{"fullPackets", "packets", true, &Statistics::fullPackets}, NUVARK_STREAM_INFO_NUM_FULL},
    {{"requested", "packets", true, &Statistics::requested}, NUVARK_STREAM_INFO_NUM_REQUESTED},
    {{"resent", "packets", true, &Statistics::resent}, NUVARK_STREAM_INFO_NUM_RESENT},
    {{"missing", "packets", true, &Statistics::missing}, NUVARK_STREAM_INFO_NUM_MISSING},
    {{"duplicates", "packets", true, &Statistics::duplicates}, NUVARK_STREAM_INFO_NUM_DUPLICATES},
    {{"late", "packets", true, &Statistics::late}, NUVARK_STREAM_INFO_NUM_LATE},
    {{"withoutBuffer", "packets", true, &Statistics::withoutBuffer}, NUVARK_STREAM_INFO_NUM_WITHOUT_BUFFER},
    {{"refused", "packets", true, &Statistics::refused}, NUVARK_STREAM_INFO_NUM_REFUSED},
    {{"unusable", "packets", true, &Statistics::unusable}, NUVARK_STREAM_INFO_NUM_UNUSABLE},
    {{"oversized", "packets", true, &Statistics::oversized}, NUVARK_STREAM_INFO_NUM_OVERSIZED},
    {{"kernelDrops", "messages", true, &Statistics::kernelDrops}, NUVARK_STREAM_INFO_KERNEL_DROPS},
    {{"receiveBuffer", "bytes", false, &Statistics::receiveBuffer}, NUVARK_STREAM_INFO_RECEIVE_BUFFER},
    {{"wantedReceiveBuffer", "bytes", false, &Statistics::wantedReceiveBuffer}, NUVARK_STREAM_INFO_WANTED_BUFFER},
    {{"packetSize", "bytes", false, &Statistics::packetSize}, NUVARK_STREAM_INFO_PACKET_SIZE},
};
static_assert(sizeof kRows / sizeof kRows[0] == sizeof(Statistics) / sizeof(std::uint64_t), "one row per figure");

} // namespace

void ReadFigures(const std::function<std::uint64_t(STREAM_INFO_CMD, std::uint64_t)> &ask, bool isOurs,
                 Statistics *statistics)
{
    // From the last to the first: a part is read before what it is a part of, and so is never the larger one.
    for (auto row = std::rbegin(kRows); row != std::rend(kRows); ++row) {
        std::uint64_t &figure = statistics->*row->figure.member;
        if (isOurs || row->command < STREAM_INFO_CUSTOM_ID)
            figure = ask(row->command, figure);
    }
}

} // namespace orv::cam

const std::vector<OrvCam::NamedFigure> &OrvCam::NamedFigures()
{
    static const std::vector<NamedFigure> figures = [] {
        std::vector<NamedFigure> all;
        for (const auto &row : orv::cam::kRows)
            all.push_back(row.figure);
        return all;
    }();
    return figures;
}
