// SPDX-License-Identifier: GPL-3.0-or-later
#include "samplebytes.h"

#include <QtEndian>

#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>

namespace
{
// Halfway between FLT_MAX and 2^128: from here on rounding to nearest gives
// infinity. Converting such a double with a cast would be undefined behaviour.
const double floatOverflow = 3.4028235677973366e38;

float nearestFloat(double x)
{
    if (std::fabs(x) > FLT_MAX) {
        const float limit =
            std::fabs(x) < floatOverflow ? FLT_MAX : std::numeric_limits<float>::infinity();
        return std::signbit(x) ? -limit : limit;
    }
    return static_cast<float>(x);
}
} // namespace

QByteArray float32LittleEndian(const QVector<double> &samples)
{
    QByteArray bytes(samples.size() * 4, Qt::Uninitialized);
    uchar *out = reinterpret_cast<uchar *>(bytes.data());
    for (int j = 0; j < samples.size(); ++j) {
        const float f = nearestFloat(samples[j]);
        quint32 bits;
        std::memcpy(&bits, &f, sizeof bits);
        qToLittleEndian(bits, out + 4 * j);
    }
    return bytes;
}
