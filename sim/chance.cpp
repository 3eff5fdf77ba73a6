#include "sim/chance.h"

namespace sim {
namespace {

// The finaliser of SplitMix64 (Steele, Lea and Flood, "Fast splittable pseudorandom number generators", 2014).
std::uint64_t scramble(std::uint64_t value) {
  value += 0x9E3779B97F4A7C15U;
  value = (value ^ (value >> 30U)) * 0xBF58476D1CE4E5B9U;
  value = (value ^ (value >> 27U)) * 0x94D049BB133111EBU;
  return value ^ (value >> 31U);
}

}  // namespace

std::uint64_t mix(std::uint64_t seed, std::initializer_list<std::uint64_t> keys) {
  std::uint64_t hash = scramble(seed);
  for (const std::uint64_t key : keys) {
    hash = scramble(hash ^ scramble(key));
  }
  return hash;
}

double uniform(std::uint64_t hash) {
  return static_cast<double>(hash >> 11U) * 0x1.0p-53;
}

double normal(std::uint64_t hash) {
  double sum = -6;
  for (std::uint64_t i = 0; i < 12; ++i) {
    sum += uniform(mix(hash, {i}));
  }
  return sum;
}

}  // namespace sim
