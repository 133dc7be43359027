// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// One answered trial. A default-constructed record is empty: every field zero.
struct TrialRecord {
    double value = 0.0;        // tracked value presented, in stored units
    int stimPosition = 0;      // the deviant's sound, 2 or 3
    int responsePosition = 0;  // the chosen sound
    bool correct = false;      // response equals stimulus position
    double reactionTime = 0.0; // ms from the end of the fourth sound to the answer
};
