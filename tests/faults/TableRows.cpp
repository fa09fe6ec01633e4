#include "faults/TableRows.h"

#include <gtest/gtest.h>

namespace {

using orvsim::Faults;

void AllComplete(const Result &result, int frames)
{
    EXPECT_EQ(result.complete, frames);
    EXPECT_EQ(result.incomplete, 0);
}
void SomeIncomplete(const Result &result, int)
{
    EXPECT_GT(result.incomplete, 0);
    EXPECT_LE(result.unharmed, result.incomplete / 2) << "a third of the lost packets are neither leader nor data";
    EXPECT_GT(result.complete, 0);
}
void UnharmedIncomplete(const Result &result, int)
{
    EXPECT_GT(result.incomplete, 0);
    EXPECT_EQ(result.unharmed, result.incomplete) << "no byte of the picture is lost with the trailer";
}
void NoneComplete(const Result &result, int frames)
{
    EXPECT_EQ(result.complete, 0);
    EXPECT_EQ(result.incomplete, frames);
}
/// What was lost was sent again.
void AllMended(const Result &result, int frames)
{
    AllComplete(result, frames);
    EXPECT_GT(result.resent, 0);
}
/// Without asking for anything again: but for what the kernel had no room for.
void AllReceived(const Result &result, int frames)
{
    EXPECT_EQ(result.complete + result.incomplete, frames);
    EXPECT_LE(result.incomplete, result.kernelDrops);
    EXPECT_EQ(result.requested, 0);
}
/// And none is lost as a whole.
void AllThere(const Result &result, int frames)
{
    AllComplete(result, frames);
    EXPECT_EQ(result.missed, 0);
}
/// Each corrupted packet, of which there are five to a frame, harms the frame that lacks it, and at most one more by
/// what its header has come to say.
void AFewIncomplete(const Result &result, int frames)
{
    EXPECT_LE(result.incomplete, frames / 10) << "1 % of five packets, twice";
    EXPECT_EQ(result.complete + result.incomplete, frames);
}
void NearlyAllComplete(const Result &result, int frames)
{
    EXPECT_GE(result.complete, frames * 99 / 100);
    EXPECT_EQ(result.complete + result.incomplete, frames);
    EXPECT_GT(result.unusable, 0);
    EXPECT_GT(result.resent, 0);
}

/// A fault of one number.
std::function<void(Faults &)> With(double Faults::*rate, double value)
{
    return [=](Faults &faults) { faults.*rate = value; };
}
std::function<void(Faults &)> With(std::int64_t Faults::*number, std::int64_t value)
{
    return [=](Faults &faults) { faults.*number = value; };
}

/// Of a dozen packets, which are more than a small frame has.
void Bursts(Faults &faults)
{
    faults.dropRate = 0.002;
    faults.dropBurst = 11;
}

} // namespace

const std::vector<TableRow> &TableRows()
{
    static const std::vector<TableRow> rows = {
        {"none", 2000, true, [](Faults &) {}, AllComplete},
        {"1 % dropped", 10000, true, With(&Faults::dropRate, 0.01), AllMended},
        {"1 % dropped", 2000, false, With(&Faults::dropRate, 0.01),
         [](const Result &r, int frames) {
             SomeIncomplete(r, frames);
             EXPECT_EQ(r.requested, 0);
         }},
        {"bursts of 12 dropped", 2000, true, Bursts, AllThere},
        {"bursts of 12 dropped", 2000, false, Bursts,
         [](const Result &r, int frames) {
             SomeIncomplete(r, frames);
             EXPECT_GT(r.missed, 0);
         }},
        {"one packet of each frame", 1000, true, With(&Faults::dropPacket, 2), AllComplete},
        {"5 % leaders dropped", 1000, true, With(&Faults::dropLeaderRate, 0.05), AllComplete},
        {"5 % leaders dropped", 1000, false, With(&Faults::dropLeaderRate, 0.05), SomeIncomplete},
        {"5 % trailers dropped", 1000, true, With(&Faults::dropTrailerRate, 0.05), AllComplete},
        {"5 % trailers dropped", 1000, false, With(&Faults::dropTrailerRate, 0.05), UnharmedIncomplete},
        {"1 % dropped, refused", 1000, true,
         [](Faults &f) {
             f.dropRate = 0.01;
             f.resendMode = 1;
         },
         [](const Result &r, int frames) {
             SomeIncomplete(r, frames);
             EXPECT_GT(r.refused, 0);
             EXPECT_EQ(r.resent, 0);
         }},
        {"1 % dropped, ignored", 1000, true,
         [](Faults &f) {
             f.dropRate = 0.01;
             f.resendMode = 2;
         },
         [](const Result &r, int frames) {
             SomeIncomplete(r, frames);
             EXPECT_GT(r.requested, 0);
             EXPECT_EQ(r.resent, 0);
         }},
        {"5 % reordered", 2000, true, With(&Faults::reorderRate, 0.05), AllComplete},
        {"5 % reordered", 2000, false, With(&Faults::reorderRate, 0.05), AllComplete},
        {"5 % duplicated", 2000, true, With(&Faults::duplicateRate, 0.05),
         [](const Result &r, int frames) {
             AllComplete(r, frames);
             EXPECT_GT(r.duplicates + r.late, 0);
         }},
        {"2 % truncated", 2000, true, With(&Faults::truncateRate, 0.02), AllComplete},
        {"2 % truncated", 2000, false, With(&Faults::truncateRate, 0.02), SomeIncomplete},
        {"1 % corrupted headers", 2000, true, With(&Faults::corruptRate, 0.01), NearlyAllComplete},
        {"1 % corrupted headers", 2000, false, With(&Faults::corruptRate, 0.01), AFewIncomplete},
        {"5 % foreign packets", 2000, true, With(&Faults::foreignRate, 0.05), AllComplete},
        {"numbers wrap", 1000, true, With(&Faults::firstBlockId, 65400), AllThere, Form::ShortIds},
        {"wrap, 1 % dropped", 1000, true,
         [](Faults &f) {
             f.firstBlockId = 65400;
             f.dropRate = 0.01;
         },
         AllComplete, Form::ShortIds},
        {"5 % numbers repeated", 1000, true, With(&Faults::repeatIdRate, 0.05),
         [](const Result &r, int frames) {
             AllComplete(r, frames);
             EXPECT_GT(r.late, 0) << "a frame under a number that is through";
         }},
        {"5 % numbers left out", 1000, true, With(&Faults::skipIdRate, 0.05),
         [](const Result &r, int frames) {
             AllComplete(r, frames);
             EXPECT_GT(r.missed, 0);
             EXPECT_LE(r.requested, 2 * r.missed) << "one packet each, twice on a busy machine";
         }},
        {"left out, ignored", 1000, true,
         [](Faults &f) {
             f.skipIdRate = 0.05;
             f.resendMode = 2;
         },
         [](const Result &r, int frames) {
             AllComplete(r, frames);
             EXPECT_GT(r.missed, 0);
             EXPECT_GT(r.requested, 0);
             EXPECT_LT(r.requested, 5 * r.missed) << "not for ever";
         }},
        {"every 100th stalls 250 ms", 500, true,
         [](Faults &f) {
             f.stallEvery = 100;
             f.stallMs = 250;
         },
         AllComplete},
        {"chunks", 500, true, [](Faults &) {}, AllComplete, Form::Chunks},
        {"chunks, 1 % dropped", 500, true, With(&Faults::dropRate, 0.01), AllComplete, Form::Chunks},
        {"chunks, 1 % dropped", 500, false, With(&Faults::dropRate, 0.01), SomeIncomplete, Form::Chunks},
        {"chunks, bursts of 12", 500, true, Bursts, AllThere, Form::Chunks},
        {"chunks, 2 % truncated", 500, true, With(&Faults::truncateRate, 0.02), AllComplete, Form::Chunks},
        {"chunks, 2 % truncated", 500, false, With(&Faults::truncateRate, 0.02), SomeIncomplete, Form::Chunks},
        // The one packet is the frame: when it is dropped there is nothing to mark, only a number that is missed, or
        // asked for.
        {"all-in", 500, true, [](Faults &) {}, AllComplete, Form::AllIn},
        {"all-in, 1 % dropped", 1000, true, With(&Faults::dropRate, 0.01), AllThere, Form::AllIn},
        {"all-in, 1 % dropped", 1000, false, With(&Faults::dropRate, 0.01),
         [](const Result &r, int frames) {
             AllComplete(r, frames);
             EXPECT_GT(r.missed, 0);
         },
         Form::AllIn},
        {"all-in, 2 % truncated", 500, true, With(&Faults::truncateRate, 0.02), AllComplete, Form::AllIn},
        {"all-in, 2 % truncated", 500, false, With(&Faults::truncateRate, 0.02), SomeIncomplete, Form::AllIn},
        {"parts", 500, true, [](Faults &) {}, AllComplete, Form::Parts},
        {"parts, own offsets", 500, true, With(&Faults::partOffsets, 1), AllComplete, Form::Parts},
        {"parts, 1 % dropped", 500, true, With(&Faults::dropRate, 0.01), AllComplete, Form::Parts},
        {"parts, 1 % dropped", 500, false, With(&Faults::dropRate, 0.01), SomeIncomplete, Form::Parts},
        {"parts, bursts of 12", 500, true, Bursts, AllThere, Form::Parts},
        {"parts, 5 % of leaders", 500, true, With(&Faults::dropLeaderRate, 0.05), AllComplete, Form::Parts},
        {"parts, 5 % of leaders", 500, false, With(&Faults::dropLeaderRate, 0.05), SomeIncomplete, Form::Parts},
        {"parts, one of the second", 200, true, With(&Faults::dropPacket, 5), AllComplete, Form::Parts},
        {"parts, one of the second", 200, false, With(&Faults::dropPacket, 5), NoneComplete, Form::Parts},
        {"parts, 2 % truncated", 500, true, With(&Faults::truncateRate, 0.02), AllComplete, Form::Parts},
        {"parts, 2 % truncated", 500, false, With(&Faults::truncateRate, 0.02), SomeIncomplete, Form::Parts},
        {"part table cut", 200, true, With(&Faults::partTable, 1), NoneComplete, Form::Parts},
        {"part table cut", 200, false, With(&Faults::partTable, 1), NoneComplete, Form::Parts},
        {"a part too many", 200, false, With(&Faults::partTable, 2), NoneComplete, Form::Parts},
        {"a part too long", 200, false, With(&Faults::partTable, 3), NoneComplete, Form::Parts},
        {"a part too short", 200, false, With(&Faults::partTable, 4), NoneComplete, Form::Parts},
    };
    return rows;
}

const std::vector<TableRow> &LargeRows()
{
    static const std::vector<TableRow> rows = {
        {"none", 50, true, [](Faults &) {}, AllThere},
        {"1 % dropped", 50, true, With(&Faults::dropRate, 0.01), AllMended},
        {"1 % dropped", 50, false, With(&Faults::dropRate, 0.01), NoneComplete},
        {"0.05 % dropped", 50, false, With(&Faults::dropRate, 0.0005), SomeIncomplete},
        {"bursts of 12 dropped", 50, true, Bursts, AllMended},
        {"a burst of 1000 dropped", 50, true,
         [](Faults &f) {
             f.dropRate = 0.00005;
             f.dropBurst = 999;
         },
         AllMended},
        {"20 % leaders dropped", 50, true, With(&Faults::dropLeaderRate, 0.2), AllMended},
        {"20 % leaders dropped", 50, false, With(&Faults::dropLeaderRate, 0.2), SomeIncomplete},
        {"20 % trailers dropped", 50, true, With(&Faults::dropTrailerRate, 0.2), AllMended},
        {"20 % trailers dropped", 50, false, With(&Faults::dropTrailerRate, 0.2), UnharmedIncomplete},
        {"5 % reordered", 50, true, With(&Faults::reorderRate, 0.05), AllComplete},
        {"5 % reordered", 50, false, With(&Faults::reorderRate, 0.05), AllReceived},
        {"5 % duplicated", 50, true, With(&Faults::duplicateRate, 0.05),
         [](const Result &r, int frames) {
             AllComplete(r, frames);
             EXPECT_GT(r.duplicates, 0);
         }},
        {"2 % truncated", 50, true, With(&Faults::truncateRate, 0.02), AllMended},
        {"2 % truncated", 50, false, With(&Faults::truncateRate, 0.02), NoneComplete},
        {"0.1 % corrupted headers", 50, true, With(&Faults::corruptRate, 0.001), NearlyAllComplete},
        {"5 % foreign packets", 50, true, With(&Faults::foreignRate, 0.05), AllComplete},
        {"every 20th stalls 250 ms", 50, true,
         [](Faults &f) {
             f.stallEvery = 20;
             f.stallMs = 250;
         },
         AllComplete},
        {"short numbers, 1 % dropped", 50, true, With(&Faults::dropRate, 0.01), AllMended, Form::ShortIds},
        {"chunks, 1 % dropped", 50, true, With(&Faults::dropRate, 0.01), AllMended, Form::Chunks},
        {"parts, 1 % dropped", 50, true, With(&Faults::dropRate, 0.01), AllMended, Form::Parts},
    };
    return rows;
}
