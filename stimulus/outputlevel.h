// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cmath>
#include <limits>

// The volume and mute state of an audio output as its sound server reports
// them. Unknown when no server answers or the output is not one it knows.
struct OutputLevel {
    bool known = false;
    int percent = 0; // averaged over the channels and rounded, as the server's tools show it
    // The server's dB figure for that average; NaN at 0 % (minus infinity) and
    // for an output whose volume has no dB scale.
    double decibels = std::numeric_limits<double>::quiet_NaN();
    bool muted = false;

    // The participant hears nothing through such an output.
    bool silent() const { return known && (muted || percent == 0); }

    bool operator==(const OutputLevel &o) const
    {
        if (known != o.known)
            return false;
        const bool sameDb =
            (std::isnan(decibels) && std::isnan(o.decibels)) || decibels == o.decibels;
        return !known || (percent == o.percent && sameDb && muted == o.muted);
    }
    bool operator!=(const OutputLevel &o) const { return !(*this == o); }
};
