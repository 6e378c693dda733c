#include "core/point_index.h"

#include "core/nearest_list.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace tressora {
namespace {

constexpr std::uint32_t kLeafSize = 8;
constexpr float kInf = std::numeric_limits<float>::infinity();

}  // namespace

PointIndex::PointIndex(std::span<const Vec3f> points) {
    const std::size_t n = points.size();
    if (n == 0) return;
    std::vector<std::uint32_t> order(n);
    std::iota(order.begin(), order.end(), 0u);
    // NaN coordinates sort as +infinity so the partition's ordering stays strict.
    auto key = [&](std::uint32_t i, int axis) {
        const float v = points[i][axis];
        return std::isnan(v) ? kInf : v;
    };

    struct Work {
        std::uint32_t node, first, last;
    };
    nodes_.reserve(2 * n / kLeafSize + 2);
    nodes_.push_back({});
    std::vector<Work> stack{{0, 0, static_cast<std::uint32_t>(n)}};
    while (!stack.empty()) {
        const Work w = stack.back();
        stack.pop_back();
        float lo[3] = {kInf, kInf, kInf}, hi[3] = {-kInf, -kInf, -kInf};
        for (std::uint32_t k = w.first; k < w.last; ++k)
            for (int a = 0; a < 3; ++a) {
                lo[a] = std::min(lo[a], points[order[k]][a]);
                hi[a] = std::max(hi[a], points[order[k]][a]);
            }
        Node node;
        std::copy(lo, lo + 3, node.lo);
        std::copy(hi, hi + 3, node.hi);
        int axis = 0;
        for (int a = 1; a < 3; ++a)
            if (hi[a] - lo[a] > hi[axis] - lo[axis]) axis = a;
        const std::uint32_t count = w.last - w.first;
        if (count <= kLeafSize || !(hi[axis] - lo[axis] > 0.0f)) {
            node.first = w.first;
            node.count = count;
            nodes_[w.node] = node;
            continue;
        }
        const std::uint32_t mid = w.first + count / 2;
        std::nth_element(order.begin() + w.first, order.begin() + mid, order.begin() + w.last,
                         [&](std::uint32_t a, std::uint32_t b) {
                             const float ka = key(a, axis), kb = key(b, axis);
                             return ka < kb || (ka == kb && a < b);
                         });
        node.first = static_cast<std::uint32_t>(nodes_.size());
        node.count = 0;
        nodes_.push_back({});
        nodes_.push_back({});
        nodes_[w.node] = node;
        stack.push_back({node.first, w.first, mid});
        stack.push_back({node.first + 1, mid, w.last});
    }
    points_.resize(n);
    for (std::size_t k = 0; k < n; ++k) points_[k] = points[order[k]];
    indices_ = std::move(order);
}

float PointIndex::boxDistanceSquared(const Node& node, Vec3f q) const {
    // Each axis gap is at most that axis' distance to any point inside, and rounding keeps
    // that order, so this never exceeds a point's computed squared distance.
    float s[3];
    for (int a = 0; a < 3; ++a) {
        const float d = std::max(std::max(node.lo[a] - q[a], q[a] - node.hi[a]), 0.0f);
        s[a] = d * d;
    }
    return (s[0] + s[1]) + s[2];
}

template <class Visit>
void PointIndex::walk(Vec3f q, float& bound, Visit&& visit) const {
    if (nodes_.empty() || std::isnan(q.x) || std::isnan(q.y) || std::isnan(q.z)) return;
    struct Entry {
        std::uint32_t node;
        float distance;
    };
    Entry stack[64];
    int top = 0;
    stack[top++] = {0, boxDistanceSquared(nodes_[0], q)};
    while (top > 0) {
        const Entry e = stack[--top];
        // Boxes at exactly the bound are still opened: they may hold a tie of lower index.
        if (e.distance > bound) continue;
        const Node& node = nodes_[e.node];
        if (node.count != 0) {
            for (std::uint32_t k = node.first; k < node.first + node.count; ++k)
                visit(k, lengthSquared(q - points_[k]));
            continue;
        }
        const float dl = boxDistanceSquared(nodes_[node.first], q);
        const float dr = boxDistanceSquared(nodes_[node.first + 1], q);
        if (dl <= dr) {
            if (dr <= bound) stack[top++] = {node.first + 1, dr};
            if (dl <= bound) stack[top++] = {node.first, dl};
        } else {
            if (dl <= bound) stack[top++] = {node.first, dl};
            if (dr <= bound) stack[top++] = {node.first + 1, dr};
        }
    }
}

std::uint32_t PointIndex::nearest(Vec3f query, float& outDistanceSquared) const {
    std::uint32_t best = npos;
    float bound = kInf;
    walk(query, bound, [&](std::uint32_t k, float d2) {
        if (best == npos ? !std::isnan(d2) : nearerThan(d2, indices_[k], bound, best)) {
            best = indices_[k];
            bound = d2;
        }
    });
    outDistanceSquared = best == npos ? kInf : bound;
    return best;
}

std::size_t PointIndex::kNearest(Vec3f query, std::size_t k, std::uint32_t* outIndices,
                                 float* outDistancesSquared) const {
    k = std::min(k, size());
    if (k == 0) return 0;
    std::size_t found = 0;
    float bound = kInf;
    // The outputs double as a sorted buffer of the best k so far.
    walk(query, bound, [&](std::uint32_t pos, float d2) {
        if (std::isnan(d2)) return;
        found = offerNearest(d2, indices_[pos], outDistancesSquared, outIndices, found, k);
        if (found == k) bound = outDistancesSquared[k - 1];
    });
    return found;
}

void PointIndex::within(Vec3f query, float radius, std::vector<std::pair<std::uint32_t, float>>& out) const {
    float bound = radius * radius;
    const std::size_t start = out.size();
    walk(query, bound, [&](std::uint32_t pos, float d2) {
        if (d2 <= bound) out.emplace_back(indices_[pos], d2);
    });
    std::sort(out.begin() + static_cast<std::ptrdiff_t>(start), out.end(),
              [](const auto& a, const auto& b) { return nearerThan(a.second, a.first, b.second, b.first); });
}

}  // namespace tressora
