// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QByteArray>
#include <QVector>

// The audio output's wire format: one IEEE 754 single-precision value per
// sample, 4 bytes, least significant byte first, no header. Each double is
// rounded to the nearest float (ties to even); there is no scaling, clipping
// or dither, so 1.5 stays 1.5 and NaN stays NaN. Magnitudes beyond the float
// range round to infinity as IEEE rounding does.
QByteArray float32LittleEndian(const QVector<double> &samples);
