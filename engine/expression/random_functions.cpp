#include "expression/random_functions.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "core/hash.h"
#include "expression/math_functions.h"

namespace tressora::exprlib {

float hashNumbers(const float* values, int count) {
    std::uint64_t h = kNumberHashStart;
    for (int i = 0; i < count; ++i) {
        const float v = values[i] == 0.0f ? 0.0f : values[i];
        h = combine(h, floatBits(v));
    }
    return unitFromBits(h);
}

float randSeeded(float randSlot, float seed) {
    return unitFromBits(combine(hash64(floatBits(randSlot)), floatBits(seed)));
}

namespace {

/// A weight as the selection functions read it: NaN and negatives weigh nothing, an
/// infinite weight as much as the largest float.
double weightOf(float w) {
    if (!(w > 0.0f)) return 0.0;
    return std::min(static_cast<double>(w), static_cast<double>(std::numeric_limits<float>::max()));
}

}  // namespace

float pick(float index, float lo, float hi, const float* weights, int weightCount) {
    std::int64_t low = wholeNumber(lo);
    std::int64_t high = wholeNumber(hi);
    if (low > high) std::swap(low, high);
    const std::int64_t n = high - low + 1;
    const double u = hashNumbers(&index, 1);
    const std::int64_t given = std::min<std::int64_t>(weightCount, n);
    double weighted = 0.0;
    for (std::int64_t k = 0; k < given; ++k) weighted += weightOf(weights[k]);
    const double total = weighted + static_cast<double>(n - given);
    if (!(total > 0.0)) return static_cast<float>(low);
    const double target = u * total;
    double running = 0.0;
    for (std::int64_t k = 0; k < given; ++k) {
        const double w = weightOf(weights[k]);
        running += w;
        if (w > 0.0 && target < running) return static_cast<float>(low + k);
    }
    // Past the weights given, every value weighs 1.
    std::int64_t k = given + static_cast<std::int64_t>(std::floor(target - weighted));
    k = std::clamp<std::int64_t>(k, given, n - 1);
    return static_cast<float>(low + k);
}

float choose(float t, const float* values, int count) {
    if (count <= 0) return 0.0f;
    if (std::isnan(t)) t = 0.0f;
    const float s = std::clamp(t, 0.0f, 1.0f) * static_cast<float>(count);
    const int i = std::clamp(static_cast<int>(s), 0, count - 1);
    return values[i];
}

float wchoose(float t, const float* pairs, int pairCount) {
    if (pairCount <= 0) return 0.0f;
    double total = 0.0;
    for (int k = 0; k < pairCount; ++k) total += weightOf(pairs[2 * k + 1]);
    if (!(total > 0.0)) return pairs[0];
    if (std::isnan(t)) t = 0.0f;
    const double target = std::clamp(static_cast<double>(t), 0.0, 1.0) * total;
    double running = 0.0;
    int last = 0;
    for (int k = 0; k < pairCount; ++k) {
        const double w = weightOf(pairs[2 * k + 1]);
        if (w <= 0.0) continue;
        running += w;
        last = k;
        if (target < running) return pairs[2 * k];
    }
    return pairs[2 * last];
}

float cycle(float index, float lo, float hi) {
    std::int64_t low = wholeNumber(lo);
    std::int64_t high = wholeNumber(hi);
    if (low > high) std::swap(low, high);
    const std::int64_t n = high - low + 1;
    std::int64_t k = wholeNumber(index) % n;
    if (k < 0) k += n;
    return static_cast<float>(low + k);
}

}  // namespace tressora::exprlib
