#pragma once
// What an expression reads while it runs: 31 float slots for the strand and
// point being evaluated, the channel tables of the current strand set and the
// groom's maps. One environment per worker thread; the caller fills it.

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>

#include "core/vec.h"

namespace tressora {

/// The environment slots, in their fixed order. PushVar's `code` is one of these.
enum ExpressionSlot : std::uint8_t {
    kSlotU = 0, kSlotV, kSlotX, kSlotY, kSlotZ, kSlotNx, kSlotNy, kSlotNz, kSlotRand, kSlotIndex,
    kSlotLength, kSlotLongest, kSlotReach, kSlotStraightness, kSlotLift, kSlotTipX, kSlotTipY,
    kSlotTipZ, kSlotT, kSlotPt, kSlotPx, kSlotPy, kSlotPz, kSlotPointIndex, kSlotFrame, kSlotTime,
    kSlotId, kSlotFaceId, kSlotPrefX, kSlotPrefY, kSlotPrefZ,
    kExpressionSlotCount
};

struct ExpressionEnvironment;

/// The groom's maps as map() and cmap() see them. The maps layer implements it and
/// binds one per expression; calls come from many threads at once and must not block.
class ExpressionMaps {
public:
    virtual ~ExpressionMaps() = default;
    /// Channel `channel` (0 r, 1 g, 2 b, 3 a, 4 luminance) of map `map` (an index into
    /// the expression's mapNames) for the environment's element.
    virtual float value(std::uint32_t map, int channel, const ExpressionEnvironment& env) const = 0;
    /// The colour of map `map` for the environment's element.
    virtual Vec3f color(std::uint32_t map, const ExpressionEnvironment& env) const = 0;
};

/// The element an expression runs for. Channel tables are given per read channel, in the
/// order of the expression's readChannels: entry i of pointChannels (when the element has a
/// point and the entry is not empty) or else entry i of strandChannels (when not empty).
/// A missing table, channel or element reads 0.
struct ExpressionEnvironment {
    static constexpr std::size_t kNoPoint = std::numeric_limits<std::size_t>::max();

    std::array<float, kExpressionSlotCount> slots{};
    std::size_t strand = 0;          ///< index into strand channel tables
    std::size_t point = kNoPoint;    ///< index into point channel tables (flat over the set)
    std::span<const std::span<const float>> strandChannels;
    std::span<const std::span<const float>> pointChannels;
    const ExpressionMaps* maps = nullptr;  ///< null: map() and cmap() read 0

    float& operator[](ExpressionSlot s) { return slots[s]; }
    float operator[](ExpressionSlot s) const { return slots[s]; }
};

}  // namespace tressora
