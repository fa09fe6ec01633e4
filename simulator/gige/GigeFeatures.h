#pragma once

#include "simulator/features/FeatureTable.h"
#include "simulator/gige/GigeCamera.h"

#include <cstdint>
#include <functional>

namespace orvsim {

/// Adds the features of the standard's GigE Vision part (SFNC, TransportLayerControl and ActionControl) as rows over
/// the bootstrap registers. Geometry-like ones are locked while "TLParamsLocked" of the same table is set.
///
/// \param table     must outlive the rows' functions, that is itself
/// \param request   takes Change bits of commands that have no register to be read back
/// \param isLegacy  leave out what version 1.2 has no register for
void AddGigeFeatures(FeatureTable &table, std::function<void(std::uint32_t changes)> request,
                     const GigeOptions &options);

} // namespace orvsim
