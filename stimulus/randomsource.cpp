// SPDX-License-Identifier: GPL-3.0-or-later
#include "randomsource.h"

#include <random>

namespace
{
std::mt19937_64 &engine()
{
    static std::mt19937_64 generator;
    return generator;
}

std::uint64_t &seedGiven()
{
    static std::uint64_t value = std::mt19937_64::default_seed;
    return value;
}
} // namespace

void RandomSource::seed(std::uint64_t value)
{
    seedGiven() = value;
    engine().seed(value);
}

std::uint64_t RandomSource::lastSeed()
{
    return seedGiven();
}

int RandomSource::next()
{
    // Rejection-free: the top 15 bits of a 64-bit draw are uniform on 0..32767.
    return static_cast<int>(engine()() >> 49);
}
