#include "expression/curves.h"

#include <algorithm>
#include <cmath>

#include "expression/math_functions.h"

namespace tressora {

ExpressionCurve::ExpressionCurve(std::vector<CurveKey> keys, int width)
    : keys_(std::move(keys)), width_(width) {
    std::stable_sort(keys_.begin(), keys_.end(),
                     [](const CurveKey& a, const CurveKey& b) { return a.position < b.position; });
    const std::size_t n = keys_.size();
    tangents_.assign(3 * n, 0.0f);
    if (n < 2) return;
    for (int c = 0; c < width_; ++c) {
        // Fritsch-Carlson: secants, averaged where they agree in sign, then limited.
        std::vector<float> secant(n - 1);
        for (std::size_t k = 0; k + 1 < n; ++k) {
            const float dx = keys_[k + 1].position - keys_[k].position;
            secant[k] = dx > 0.0f ? (keys_[k + 1].value[c] - keys_[k].value[c]) / dx : 0.0f;
        }
        const auto m = [&](std::size_t k) -> float& { return tangents_[3 * k + c]; };
        m(0) = secant[0];
        m(n - 1) = secant[n - 2];
        for (std::size_t k = 1; k + 1 < n; ++k) {
            m(k) = secant[k - 1] * secant[k] > 0.0f ? 0.5f * (secant[k - 1] + secant[k]) : 0.0f;
        }
        for (std::size_t k = 0; k + 1 < n; ++k) {
            if (secant[k] == 0.0f) {
                m(k) = 0.0f;
                m(k + 1) = 0.0f;
                continue;
            }
            const float a = m(k) / secant[k], b = m(k + 1) / secant[k];
            if (a < 0.0f) m(k) = 0.0f;
            if (b < 0.0f) m(k + 1) = 0.0f;
            const float r = a * a + b * b;
            if (r > 9.0f) {
                const float tau = 3.0f / std::sqrt(r);
                m(k) = tau * a * secant[k];
                m(k + 1) = tau * b * secant[k];
            }
        }
    }
}

void ExpressionCurve::evaluate(float t, float* out) const {
    const std::size_t n = keys_.size();
    const CurveKey& first = keys_.front();
    const CurveKey& last = keys_.back();
    const CurveKey* pick = nullptr;
    if (std::isnan(t) || t <= first.position) pick = &first;
    else if (t >= last.position) pick = &last;
    if (pick) {
        for (int c = 0; c < width_; ++c) out[c] = pick->value[c];
        return;
    }
    // The segment [k, k + 1] with keys[k].position <= t < keys[k + 1].position.
    const auto after = std::upper_bound(keys_.begin(), keys_.end(), t,
                                        [](float x, const CurveKey& key) { return x < key.position; });
    const std::size_t k = static_cast<std::size_t>(after - keys_.begin()) - 1;
    const CurveKey& a = keys_[k];
    const CurveKey& b = keys_[k + 1];
    const float span = b.position - a.position;
    const float u = (t - a.position) / span;
    for (int c = 0; c < width_; ++c) {
        const float y0 = a.value[c], y1 = b.value[c];
        switch (a.interp) {
        case CurveInterp::Hold: out[c] = y0; break;
        case CurveInterp::Linear: out[c] = y0 + (y1 - y0) * u; break;
        case CurveInterp::Smooth: out[c] = y0 + (y1 - y0) * (u * u * (3.0f - 2.0f * u)); break;
        case CurveInterp::Spline: {
            const float before = k > 0 ? keys_[k - 1].value[c] : y0;
            const float beyond = k + 2 < n ? keys_[k + 2].value[c] : y1;
            out[c] = exprlib::catmullRom(before, y0, y1, beyond, u);
            break;
        }
        case CurveInterp::Monotone: {
            const float u2 = u * u, u3 = u2 * u;
            const float h00 = 2 * u3 - 3 * u2 + 1, h10 = u3 - 2 * u2 + u;
            const float h01 = -2 * u3 + 3 * u2, h11 = u3 - u2;
            out[c] = h00 * y0 + h10 * span * tangents_[3 * k + c] + h01 * y1 +
                     h11 * span * tangents_[3 * (k + 1) + c];
            break;
        }
        }
    }
}

}  // namespace tressora
