#pragma once
// The random and selection functions of the expression library. Everything random is
// hashed from its arguments with the engine's determinism hash, so a value depends on
// its inputs alone, never on the thread or the order of evaluation.

#include <cstdint>

namespace tressora::exprlib {

/// The start of hash(a, b, ...).
inline constexpr std::uint64_t kNumberHashStart = 0xEE83BFC8A6DE0083ull;

/// hash(a, b, ...): folds the bits of each number (-0 made 0) into kNumberHashStart;
/// the top 24 bits as a value in [0, 1).
float hashNumbers(const float* values, int count);
/// rand(seed): stable per strand (the rand slot) and per seed, in [0, 1).
float randSeeded(float randSlot, float seed);
/// pick(index, lo, hi, weights...): a whole number lo..hi from a hash of index. Weights
/// go to lo, lo + 1, ... in order; values past the weights given weigh 1; negative and
/// NaN weights are 0; with no weight above 0 the result is lo.
float pick(float index, float lo, float hi, const float* weights, int weightCount);
/// choose(t, values...): the value that t (0 to 1) falls on, n equal shares.
float choose(float t, const float* values, int count);
/// wchoose(t, value, weight, ...): as choose with shares by weight; pairs counts pairs.
/// With no weight above 0 the first value.
float wchoose(float t, const float* pairs, int pairCount);
/// cycle(index, lo, hi): lo + index wrapped into lo..hi, all whole numbers.
float cycle(float index, float lo, float hi);

}  // namespace tressora::exprlib
