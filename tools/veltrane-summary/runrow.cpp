// SPDX-License-Identifier: GPL-3.0-or-later
#include "runrow.h"

#include <cmath>
#include <limits>

double RunRow::unitsPerFraction() const
{
    if (trackedQuantity == 1)
        return 100.0;
    return hasSidecar && carrierHz > 0.0 ? carrierHz : std::numeric_limits<double>::quiet_NaN();
}

double RunRow::levelDb(int trial) const
{
    return 20.0 * std::log10(trials[trial].value / unitsPerFraction());
}
