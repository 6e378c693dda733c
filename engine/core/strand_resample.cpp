#include "core/strand_resample.h"

#include <algorithm>
#include <string>
#include <vector>

#include "core/parallel.h"

namespace tressora {
namespace {

constexpr std::size_t kGrain = 256;

/// Where a new point lies on the old polyline: the old point before it and the fraction
/// towards the next one.
struct Station {
    std::size_t index = 0;
    float fraction = 0.0f;
};

void stationsOf(std::span<const Vec3f> points, std::size_t count, std::vector<double>& along, Station* out) {
    const std::size_t n = points.size();
    if (n < 2) {
        std::fill(out, out + count, Station{});
        return;
    }
    along.assign(n, 0.0);
    for (std::size_t k = 1; k < n; ++k) along[k] = along[k - 1] + length(points[k] - points[k - 1]);
    const double total = along.back();
    if (!(total > 0.0)) {
        std::fill(out, out + count, Station{});
        return;
    }
    std::size_t seg = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const double s = total * static_cast<double>(i) / static_cast<double>(count - 1);
        while (seg + 2 < n && along[seg + 1] < s) ++seg;
        const double span = along[seg + 1] - along[seg];
        const double f = span > 0.0 ? std::clamp((s - along[seg]) / span, 0.0, 1.0) : 0.0;
        out[i] = {seg, static_cast<float>(f)};
    }
    out[count - 1] = {n - 2, 1.0f};
}

template <class T>
T at(std::span<const T> values, std::size_t begin, std::size_t size, const Station& s) {
    const T a = values[begin + s.index];
    if (s.index + 1 >= size) return a;
    const T b = values[begin + s.index + 1];
    return a + (b - a) * s.fraction;
}

}  // namespace

StrandSet resampleStrands(const StrandSet& strands, std::size_t count) {
    count = std::max<std::size_t>(count, 2);
    const std::size_t strandCount = strands.strandCount();
    StrandSet out(strands);
    out.resizePoints(strandCount * count);
    std::span<std::uint64_t> offsets = out.mutableOffsets();
    for (std::size_t i = 0; i <= strandCount; ++i) offsets[i] = i * count;

    // Stations of every strand first; then each array is filled from them.
    std::vector<Station> stations(strandCount * count);
    parallelRange(0, strandCount, kGrain, [&](std::size_t lo, std::size_t hi) {
        std::vector<double> along;
        for (std::size_t i = lo; i < hi; ++i) stationsOf(strands.strandPoints(i), count, along, &stations[i * count]);
    });

    const std::span<const Vec3f> points = strands.points();
    const std::span<const float> widths = strands.widths();
    std::span<Vec3f> newPoints = out.mutablePoints();
    std::span<float> newWidths = out.mutableWidths();
    parallelRange(0, strandCount, kGrain, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) {
            const PointRange r = strands.pointRange(i);
            for (std::size_t k = 0; k < count; ++k) {
                const std::size_t o = i * count + k;
                if (r.size() == 0) {
                    newPoints[o] = {};
                    newWidths[o] = 1.0f;
                    continue;
                }
                newPoints[o] = at(points, r.begin, r.size(), stations[o]);
                newWidths[o] = r.end <= widths.size() ? at(widths, r.begin, r.size(), stations[o]) : 1.0f;
            }
        }
    });

    for (const auto& [name, channel] : strands.pointChannels()) {
        const std::span<const float> values = channel.values();
        std::span<float> target = out.mutablePointChannel(name);
        const float fallback = channel.defaultValue();
        parallelRange(0, strandCount, kGrain, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t i = lo; i < hi; ++i) {
                const PointRange r = strands.pointRange(i);
                for (std::size_t k = 0; k < count; ++k) {
                    const std::size_t o = i * count + k;
                    target[o] = r.size() != 0 && r.end <= values.size() ? at(values, r.begin, r.size(), stations[o])
                                                                        : fallback;
                }
            }
        });
    }
    return out;
}

}  // namespace tressora
