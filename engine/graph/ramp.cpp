#include "graph/ramp.h"

#include <algorithm>
#include <cmath>

namespace tressora {

namespace {

// Slope of a monotone cubic at key i (Fritsch-Carlson): zero at local extrema, the harmonic
// mean of the neighbouring secants elsewhere.
double tangent(const std::vector<std::pair<double, double>>& k, std::size_t i) {
    const auto secant = [&](std::size_t a) {
        const double dx = k[a + 1].first - k[a].first;
        return dx > 0.0 ? (k[a + 1].second - k[a].second) / dx : 0.0;
    };
    if (i == 0) return secant(0);
    if (i + 1 == k.size()) return secant(i - 1);
    const double a = secant(i - 1), b = secant(i);
    if (a * b <= 0.0) return 0.0;
    return 2.0 / (1.0 / a + 1.0 / b);
}

}  // namespace

double evaluateRamp(const Ramp& ramp, double x) {
    const auto& keys = ramp.keys;
    if (keys.empty()) return 0.0;
    // Keys may arrive in any order; the curve runs along their positions.
    std::vector<std::pair<double, double>> sorted;
    const std::vector<std::pair<double, double>>* k = &keys;
    if (!std::is_sorted(keys.begin(), keys.end(), [](auto& a, auto& b) { return a.first < b.first; })) {
        sorted = keys;
        std::stable_sort(sorted.begin(), sorted.end(), [](auto& a, auto& b) { return a.first < b.first; });
        k = &sorted;
    }
    if (std::isnan(x) || x <= k->front().first) return k->front().second;
    if (x >= k->back().first) return k->back().second;
    const auto upper = std::upper_bound(k->begin(), k->end(), x, [](double v, auto& key) { return v < key.first; });
    const std::size_t i = static_cast<std::size_t>(upper - k->begin()) - 1;
    const auto& [x0, y0] = (*k)[i];
    const auto& [x1, y1] = (*k)[i + 1];
    const double h = x1 - x0;
    if (!(h > 0.0)) return y1;
    const double t = (x - x0) / h;
    if (ramp.linear) return y0 + (y1 - y0) * t;
    const double m0 = tangent(*k, i) * h, m1 = tangent(*k, i + 1) * h;
    const double t2 = t * t, t3 = t2 * t;
    return (2 * t3 - 3 * t2 + 1) * y0 + (t3 - 2 * t2 + t) * m0 + (-2 * t3 + 3 * t2) * y1 + (t3 - t2) * m1;
}

}  // namespace tressora
