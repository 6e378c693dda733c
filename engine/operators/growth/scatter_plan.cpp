#include "operators/growth/scatter_plan.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "core/errors.h"
#include "core/hash.h"

namespace tressora {

namespace {

constexpr double kMaxStrands = 50'000'000.0;
constexpr double kHeavyStrands = 2'000'000.0;
constexpr double kMaxPreviewPoints = 60'000'000.0;
constexpr double kMaxPoints = 400'000'000.0;
/// Up to this many strands every preview holds all of them.
constexpr double kFloorStrands = 5000.0;
constexpr double kLowestFloor = 0.03;
/// What a strand point costs in a whole evaluation of the default graph, at the least: its
/// position, width and colour in the result, and the copies that the nodes before it keep
/// in the cache. A count whose points need more than the process can use is refused before
/// any of them is made.
constexpr double kBytesPerPoint = 64.0;

template <class... Args>
std::string format(const char* pattern, Args... args) {
    char text[512];
    std::snprintf(text, sizeof text, pattern, args...);
    return text;
}

}  // namespace

ScatterPlan planScatter(const ScatterPlanInput& in) {
    ScatterPlan plan;
    const double count = in.plannedCount;
    if (!std::isfinite(count)) throw GraphError("Scatter: the density (or the scalp's area) is not a finite number");
    if (count > kMaxStrands)
        throw GraphError(in.grid ? "Scatter: the grid would create more than 50M strands"
                                 : "Scatter: density would create more than 50M strands");
    if (count > kHeavyStrands)
        plan.note = format("%.1fM strands: heavy (a human head has about 0.1-0.15M); renders, exports and a full "
                           "preview hold every one. Lower the %s, or thin it with a density map",
                           count / 1e6, in.grid ? "grid's rows and columns" : "density");

    const std::size_t perStrand = static_cast<std::size_t>(in.segments) + 1;
    const double points = static_cast<double>(perStrand) * count;
    double fraction = in.previewFraction;
    if (in.previewAll) fraction = std::max(fraction, 1.0);
    if (in.previewPointBudget > 0.0 && fraction * points > in.previewPointBudget) {
        fraction = in.previewPointBudget / points;
        plan.capped = true;
    }
    double floor = 1.0;
    if (!in.previewAll && count > kFloorStrands) {
        const double n = std::max(0.0, std::ceil(std::log2(count / kFloorStrands)));
        floor = std::max(std::pow(2.0, -n), kLowestFloor);
    }
    const double generate = fraction >= 1.0 ? 1.0 : std::max(fraction, floor);
    if (!(in.previewPointBudget > 0.0) && in.previewFraction < 1.0f && generate * points > kMaxPreviewPoints)
        throw GraphError(format("Scatter: the preview would have %.0fM points (%.0fk strands x %zu): lower the preview "
                                "density, density or the Resample's segments",
                                generate * points / 1e6, generate * count / 1e3, perStrand));
    if (generate * points > kMaxPoints)
        throw GraphError(format("Scatter: %.0fM points (strands x %zu) is more than memory holds: lower the density "
                                "or the Resample's segments",
                                generate * points / 1e6, perStrand));
    if (in.memoryBytes > 0 && generate * points * kBytesPerPoint > static_cast<double>(in.memoryBytes))
        throw GraphError(format("Scatter: %.1fM strands asked for would need about %.1f GB, more than the %.1f GB "
                                "this process can use: lower the %s or the Resample's segments",
                                generate * count / 1e6, generate * points * kBytesPerPoint / 1e9,
                                static_cast<double>(in.memoryBytes) / 1e9,
                                in.grid ? "grid's rows and columns" : "density"));
    plan.fraction = static_cast<float>(fraction);
    plan.floorFraction = static_cast<float>(floor);
    plan.generate = static_cast<float>(generate);
    return plan;
}

int previewMark(std::uint64_t id, const ScatterPlan& plan) {
    const float u = unit(id);
    const float in = plan.fraction >= 1.0f ? 2.0f : plan.fraction;
    if (u < in) return u < plan.floorFraction ? 1 : 0;
    if (u < plan.floorFraction) return 2;
    return -1;
}

}  // namespace tressora
