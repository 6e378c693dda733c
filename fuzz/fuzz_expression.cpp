// Feeds arbitrary text to the expression compiler and runs whatever compiles, in an
// environment of hostile values. A compile fault must be an ExpressionError; a compiled
// program must fit its stack and give finite results.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <span>
#include <string_view>
#include <vector>

#include "core/errors.h"
#include "expression/expression.h"

namespace {

using namespace tressora;

constexpr float kHostile[] = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                              -std::numeric_limits<float>::infinity(), 3e38f, -3e38f, 0.0f, -0.0f, 1e-45f, 0.5f,
                              -7.25f, 1e7f, 12345.678f};
constexpr std::size_t kHostileCount = sizeof(kHostile) / sizeof(kHostile[0]);

class HostileMaps : public ExpressionMaps {
public:
    float value(std::uint32_t map, int channel, const ExpressionEnvironment&) const override {
        return kHostile[(map + static_cast<std::uint32_t>(channel)) % kHostileCount];
    }
    Vec3f color(std::uint32_t map, const ExpressionEnvironment&) const override {
        return {kHostile[map % kHostileCount], kHostile[(map + 1) % kHostileCount], 0.25f};
    }
};

void check(bool ok) {
    if (!ok) std::abort();
}

void run(const Expression& e, std::size_t seed) {
    std::vector<std::vector<float>> strandTables, pointTables;
    for (std::size_t i = 0; i < e.readChannels().size(); ++i) {
        strandTables.push_back({kHostile[(seed + i) % kHostileCount], 1.0f});
        // Every other channel has no point table, so the strand table answers.
        pointTables.push_back(i % 2 ? std::vector<float>{}
                                    : std::vector<float>{kHostile[(seed + 3 * i) % kHostileCount]});
    }
    std::vector<std::span<const float>> strandViews(strandTables.begin(), strandTables.end());
    std::vector<std::span<const float>> pointViews(pointTables.begin(), pointTables.end());
    HostileMaps maps;
    ExpressionEnvironment env;
    for (std::size_t s = 0; s < env.slots.size(); ++s) env.slots[s] = kHostile[(seed + s) % kHostileCount];
    env.strandChannels = strandViews;
    env.pointChannels = pointViews;
    env.maps = &maps;
    for (std::size_t strand : {0u, 1u, 5u}) {
        env.strand = strand;
        env.point = strand == 1 ? 0 : ExpressionEnvironment::kNoPoint;
        check(std::isfinite(e.evaluate(env)));
        const Vec3f v = e.evaluateVector(env);
        check(std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    static const std::vector<ExpressionVariable> variables = {
        {"scale", false, {2.0f, 0.0f, 0.0f}}, {"dir", true, {0.0f, 1.0f, 0.0f}}, {"huge", false, {3e38f, 0, 0}}};
    std::shared_ptr<const Expression> e;
    try {
        e = Expression::compile(text, variables, ExpressionWant::Either);
    } catch (const ExpressionError& error) {
        check(std::string_view(error.what()).substr(0, 12) == "expression '");  // every fault names its text
        return 0;
    }
    check(e->maxStack() <= kExpressionStackSize);
    check(e->program().size() <= kMaxExpressionInstructions);
    check(e->isVector() || !e->program().empty());
    run(*e, size);
    return 0;
}
