// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "app/sessionparameters.h"

#include <cstdint>

// A batch of simulated runs: the session record every run starts from, how
// many runs, the seed of the simulation's generator and the trial cap.
struct SimulationSettings {
    SessionParameters start;
    int runs = 1000;
    std::uint64_t seed = 1;
    // A run that has not reached its reversals after this many trials is
    // abandoned and counted as unfinished. A participant who never answers
    // right at the upper limit would otherwise keep the run going for ever.
    int maxTrials = 1000;
};
