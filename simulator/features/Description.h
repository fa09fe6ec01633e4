#pragma once

#include "simulator/features/FeatureTable.h"

#include <string>

namespace orvsim {

struct DescriptionHead {
    std::string vendor;
    std::string model;
    std::string toolTip;
};

/// The GenICam description (schema 1.1) of a table whose registers are placed: the category tree, a node per feature,
/// the registers behind them, chunk and event ports. Child elements stand in the schema's order, formulas are fully
/// parenthesised, every reference has its node; registers that others change name those as invalidators.
///
/// \throw nothing; a table that refers to missing features is a programming error (assertion).
std::string MakeDescription(const FeatureTable &table, const DescriptionHead &head);

} // namespace orvsim
