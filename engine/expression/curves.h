#pragma once
// Curves through keys fixed when an expression compiles (curve, ccurve, linearcurve).
// A curve holds its keys sorted and its monotone tangents worked out once, so a call at
// run time is a search and one segment's formula.

#include <cstdint>
#include <vector>

namespace tressora {

/// How a segment runs from its left key to the next.
enum class CurveInterp : std::uint8_t {
    Hold = 0,       ///< the left key's value
    Linear = 1,     ///< a straight line
    Smooth = 2,     ///< smoothstep ease
    Spline = 3,     ///< Catmull-Rom over the neighbouring keys, ends clamped
    Monotone = 4,   ///< monotone cubic (Fritsch-Carlson tangents), never overshoots
};

struct CurveKey {
    float position = 0.0f;
    float value[3] = {0, 0, 0};  ///< one component used by number curves
    CurveInterp interp = CurveInterp::Linear;
};

/// A curve of numbers (width 1) or colours (width 3). Immutable once made.
class ExpressionCurve {
public:
    /// Sorts the keys by position (keys at one position keep their order) and works out the
    /// monotone tangents. Precondition: at least one key, width 1 or 3.
    ExpressionCurve(std::vector<CurveKey> keys, int width);

    /// The value at t: the first or last key's value outside the keys (and the first for a
    /// NaN t); between keys, the left key's interpolation. Writes width floats.
    void evaluate(float t, float* out) const;

    int width() const { return width_; }
    const std::vector<CurveKey>& keys() const { return keys_; }

private:
    std::vector<CurveKey> keys_;
    std::vector<float> tangents_;  // 3 per key, for monotone segments
    int width_ = 1;
};

}  // namespace tressora
