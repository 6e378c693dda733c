#include "core/spatial_order.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <stdexcept>

#include "core/parallel.h"

namespace tressora {
namespace {

/// The bits of v (below 2^10) spread to every third place.
std::uint32_t spreadBits(std::uint32_t v) {
    v = (v | (v << 16)) & 0x030000FFu;
    v = (v | (v << 8)) & 0x0300F00Fu;
    v = (v | (v << 4)) & 0x030C30C3u;
    v = (v | (v << 2)) & 0x09249249u;
    return v;
}

bool finite(Vec3f p) { return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z); }

}  // namespace

std::vector<std::uint32_t> spatialOrder(std::span<const Vec3f> points) {
    const std::size_t n = points.size();
    if (n > std::numeric_limits<std::uint32_t>::max())
        throw std::length_error("spatialOrder: more points than 32-bit indices can number");
    std::vector<std::uint32_t> order(n);
    if (n < 64) {
        std::iota(order.begin(), order.end(), 0u);
        return order;
    }

    Vec3f lo{std::numeric_limits<float>::max(), std::numeric_limits<float>::max(), std::numeric_limits<float>::max()};
    Vec3f hi = lo * -1.0f;
    for (const Vec3f& p : points) {
        if (!finite(p)) continue;
        for (int a = 0; a < 3; ++a) {
            lo[a] = std::min(lo[a], p[a]);
            hi[a] = std::max(hi[a], p[a]);
        }
    }

    // Two to sixteen points a cell on average (cells come in powers of eight), at most 10
    // bits an axis: cells about as wide as the tree's leaves for a million queries on a head.
    int bits = 1;
    while (bits < 10 && (std::size_t{1} << (3 * (bits + 1))) <= n / 2) ++bits;
    const std::uint32_t side = 1u << bits;
    float scale[3];
    for (int a = 0; a < 3; ++a) {
        const float extent = hi[a] - lo[a];
        // A flat or overflowing extent puts every point in the first cell along that axis.
        scale[a] = extent > 0.0f && std::isfinite(extent) ? static_cast<float>(side) / extent : 0.0f;
    }

    std::vector<std::uint32_t> cell(n);
    parallelRange(0, n, 16384, [&](std::size_t begin, std::size_t end) {
        for (std::size_t i = begin; i < end; ++i) {
            const Vec3f p = points[i];
            if (!finite(p)) {
                cell[i] = 0;
                continue;
            }
            std::uint32_t c[3];
            for (int a = 0; a < 3; ++a) {
                const float t = (p[a] - lo[a]) * scale[a];
                c[a] = std::min(static_cast<std::uint32_t>(std::max(t, 0.0f)), side - 1);
            }
            cell[i] = spreadBits(c[0]) | (spreadBits(c[1]) << 1) | (spreadBits(c[2]) << 2);
        }
    });

    // A stable counting sort by cell.
    std::vector<std::uint32_t> start(std::size_t{1} << (3 * bits), 0);
    for (std::uint32_t c : cell) ++start[c];
    std::uint32_t running = 0;
    for (std::uint32_t& s : start) {
        const std::uint32_t count = s;
        s = running;
        running += count;
    }
    for (std::size_t i = 0; i < n; ++i) order[start[cell[i]]++] = static_cast<std::uint32_t>(i);
    return order;
}

}  // namespace tressora
