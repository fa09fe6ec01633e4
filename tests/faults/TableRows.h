#pragma once

#include "simulator/core/Faults.h"

#include <cstdint>
#include <functional>
#include <vector>

/// In which form frames come.
enum class Form { Image, ShortIds, Chunks, AllIn, Parts };

/// What was counted over a row's frames.
struct Result {
    int complete = 0;
    int incomplete = 0;
    int wrong = 0;      ///< marked complete, but not every byte is right
    int unharmed = 0;   ///< marked incomplete with every byte there: only a lost trailer explains that
    int spoilt = 0;     ///< marked incomplete, with other bytes than its own and zeros, or more zeros than are missing
    int disordered = 0; ///< with a number not above its predecessor's
    std::int64_t requested = 0;
    std::int64_t resent = 0;
    std::int64_t refused = 0;
    std::int64_t duplicates = 0;
    std::int64_t late = 0;
    std::int64_t unusable = 0;
    std::int64_t missed = 0;
    std::int64_t underruns = 0;
    std::int64_t kernelDrops = 0;
};

/// One fault and what comes of it, over so many frames.
struct TableRow {
    const char *name;
    int frames;
    bool resend;
    std::function<void(orvsim::Faults &)> fault;
    /// What the fault is to come to, besides that no frame marked complete has a wrong byte.
    std::function<void(const Result &, int frames)> expect;
    Form form = Form::Image;
};

const std::vector<TableRow> &TableRows();
/// For frames of some hundred packets.
const std::vector<TableRow> &LargeRows();
