#include "maps/map_sampler.h"

#include <span>
#include <vector>

#include "core/hash.h"
#include "maps/painted_map.h"

namespace tressora {
namespace {

bool onScalp(const ScalpMesh* scalp, std::int32_t face) {
    return scalp && face >= 0 && static_cast<std::size_t>(face) < scalp->triangleCount();
}

/// The mean of some colours; 0 for none.
Rgba meanColour(std::span<const Rgba> colours) {
    Rgba sum{};
    for (const Rgba& c : colours)
        for (int k = 0; k < 4; ++k) sum[k] += c[k];
    if (!colours.empty())
        for (float& k : sum) k /= static_cast<float>(colours.size());
    return sum;
}

/// Blends three corner colours with the root's weights.
Rgba blend(const Rgba& a, const Rgba& b, const Rgba& c, float b1, float b2) {
    const float b0 = 1.0f - b1 - b2;
    Rgba out;
    for (int k = 0; k < 4; ++k) out[k] = a[k] * b0 + b[k] * b1 + c[k] * b2;
    return out;
}

class TextureSampler final : public MapSampler {
public:
    explicit TextureSampler(std::shared_ptr<const Texture> texture) : texture_(std::move(texture)) {}
    Rgba sample(const RootSample& root) const override {
        if (root.face < 0) return {};
        return texture_->sample(root.uv[0], root.uv[1]);
    }
    Rgba mean() const override { return texture_->mean(); }
    std::uint64_t stamp() const override { return combine(0x7A5, texture_->stamp()); }

private:
    std::shared_ptr<const Texture> texture_;
};

class ColorSetSampler final : public MapSampler {
public:
    ColorSetSampler(std::shared_ptr<const ScalpMesh> scalp, const std::vector<ScalpMesh::Color>* colors,
                    std::uint64_t hash)
        : scalp_(std::move(scalp)), colors_(colors), hash_(hash) {}
    Rgba sample(const RootSample& root) const override {
        if (!onScalp(scalp_.get(), root.face)) return {};
        const std::size_t corner = static_cast<std::size_t>(root.face) * 3;
        if (corner + 2 >= colors_->size()) return {};
        const auto& c = *colors_;
        return blend(c[corner], c[corner + 1], c[corner + 2], root.b1, root.b2);
    }
    Rgba mean() const override { return meanColour(*colors_); }
    std::uint64_t stamp() const override { return combine(0xC5E7, hash_); }

private:
    std::shared_ptr<const ScalpMesh> scalp_;  // keeps colors_ alive
    const std::vector<ScalpMesh::Color>* colors_;
    std::uint64_t hash_;
};

class VertexMapSampler final : public MapSampler {
public:
    VertexMapSampler(std::shared_ptr<const ScalpMesh> scalp, const PaintedMap& map)
        : scalp_(std::move(scalp)), stamp_(paintedMapStamp(map)) {
        // Expanded to RGBA once, so a sample is three loads and a blend.
        const std::size_t k = static_cast<std::size_t>(map.channels);
        const std::size_t points = k == 0 ? 0 : map.values.size() / k;
        rgba_.resize(points);
        for (std::size_t p = 0; p < points; ++p) rgba_[p] = expandChannels(map.values.data() + p * k, map.channels);
    }
    Rgba sample(const RootSample& root) const override {
        if (!onScalp(scalp_.get(), root.face)) return {};
        const ScalpMesh::Triangle& t = scalp_->triangles()[static_cast<std::size_t>(root.face)];
        const auto at = [&](std::int32_t p) {
            return static_cast<std::size_t>(p) < rgba_.size() ? rgba_[static_cast<std::size_t>(p)] : Rgba{};
        };
        return blend(at(t[0]), at(t[1]), at(t[2]), root.b1, root.b2);
    }
    Rgba mean() const override { return meanColour(rgba_); }
    std::uint64_t stamp() const override { return combine(combine(0x7E8, stamp_), scalp_->topologyHash()); }

private:
    std::shared_ptr<const ScalpMesh> scalp_;
    std::vector<Rgba> rgba_;
    std::uint64_t stamp_;
};

}  // namespace

RootSample rootSample(const ScalpMesh* scalp, const StrandSet& strands, std::size_t strand, bool withPosition) {
    RootSample s;
    const StrandRoot root = strands.roots()[strand];
    if (onScalp(scalp, root.face)) {
        s.face = root.face;
        s.b1 = root.u;
        s.b2 = root.v;
        s.uv = scalp->uvAt(root.face, root.u, root.v);
        if (withPosition) s.position = scalp->positionAt(root.face, root.u, root.v);
        return s;
    }
    const PointRange range = strands.pointRange(strand);
    if (withPosition && range.size() > 0) s.position = strands.points()[range.begin];
    return s;
}

MapComponent componentOfChannel(int channel) {
    switch (channel) {
        case 0: return MapComponent::Red;
        case 1: return MapComponent::Green;
        case 2: return MapComponent::Blue;
        case 3: return MapComponent::Alpha;
        default: return MapComponent::Luminance;
    }
}

float pickComponent(const Rgba& colour, MapComponent component) {
    switch (component) {
        case MapComponent::Red: return colour[0];
        case MapComponent::Green: return colour[1];
        case MapComponent::Blue: return colour[2];
        case MapComponent::Alpha: return colour[3];
        case MapComponent::Auto:
        case MapComponent::Luminance: return luminance(colour);
    }
    return luminance(colour);
}

std::shared_ptr<const MapSampler> textureSampler(std::shared_ptr<const Texture> texture) {
    return std::make_shared<const TextureSampler>(std::move(texture));
}

std::shared_ptr<const MapSampler> colorSetSampler(std::shared_ptr<const ScalpMesh> scalp, const std::string& name) {
    const std::vector<ScalpMesh::Color>* colors = scalp ? scalp->colorSet(name) : nullptr;
    if (!colors) return nullptr;
    const auto hash = scalp->colorHashes().find(name);
    const std::uint64_t h = combineText(hash == scalp->colorHashes().end() ? 0 : hash->second, name);
    return std::make_shared<const ColorSetSampler>(std::move(scalp), colors, h);
}

std::shared_ptr<const MapSampler> vertexMapSampler(std::shared_ptr<const ScalpMesh> scalp, const PaintedMap& map) {
    return std::make_shared<const VertexMapSampler>(std::move(scalp), map);
}

}  // namespace tressora
