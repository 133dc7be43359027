// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

// The program's one pseudo-random source: integers uniformly distributed from
// 0 to 32767 inclusive. It feeds the noise carrier and the deviant's position.
// The program seeds it once at start-up from a non-deterministic value so that
// each session gets new noise and a new order of positions; tests and tools
// seed it explicitly to be reproducible.
namespace RandomSource
{

constexpr int maximum = 32767;

void seed(std::uint64_t value);

// The value of the last seed() call; the engine's default seed before any.
std::uint64_t lastSeed();
int next();

} // namespace RandomSource
