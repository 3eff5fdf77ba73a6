// Chance without a generator: a draw is a function of the site's seed and of what is drawn for, never of the order in
// which draws are made. Only integer arithmetic and sums are used, so every machine draws the same bits.
#pragma once

#include <cstdint>
#include <initializer_list>

namespace sim {

// A well-mixed number of the seed and the keys; the order of the keys matters.
std::uint64_t mix(std::uint64_t seed, std::initializer_list<std::uint64_t> keys);

// In [0, 1).
double uniform(std::uint64_t hash);

// Mean 0, standard deviation 1: the sum of twelve uniform draws less 6, hence between -6 and 6.
double normal(std::uint64_t hash);
inline constexpr double widest_draw = 6;

}  // namespace sim
