#pragma once
// The flat guides that travel along guide ports: per guide its id, root, curve, tube data
// and attributes, with no group structure. Points are stored like a StrandSet's: one array
// for all guides, guide i running from offsets[i] up to offsets[i + 1].

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "core/guide.h"
#include "core/vec.h"

namespace tressora {

class GuideHierarchy;

/// A guide's tube as the flat set carries it.
struct GuideTube {
    std::vector<float> width;
    std::vector<float> aspect;
    std::vector<float> twist;
    std::string shape;
    Vec3f frameUp;

    bool operator==(const GuideTube&) const = default;
};

class GuideSet {
public:
    std::size_t guideCount() const { return ids_.size(); }
    std::size_t pointCount() const { return points_.size(); }
    std::span<const std::uint64_t> ids() const { return ids_; }
    std::span<const StrandRoot> roots() const { return roots_; }
    std::span<const std::uint64_t> offsets() const { return offsets_; }
    std::span<const Vec3f> points() const { return points_; }
    /// The point range [first, last) of guide i, and its points.
    std::pair<std::uint64_t, std::uint64_t> pointRange(std::size_t i) const { return {offsets_[i], offsets_[i + 1]}; }
    std::span<const Vec3f> guidePoints(std::size_t i) const;
    const GuideTube& tube(std::size_t i) const { return tubes_[i]; }

    /// Per-guide attribute values by name (one per guide; 0 for guides without it).
    const std::map<std::string, std::vector<float>>& attributes() const { return attributes_; }
    /// Per-point layers by name (one per point; 0 for guides without it).
    const std::map<std::string, std::vector<float>>& pointAttributes() const { return pointAttributes_; }
    const std::vector<float>* attribute(const std::string& name) const;
    const std::vector<float>* pointAttribute(const std::string& name) const;

    /// The colour the guides draw in, linear RGB.
    Vec3f color() const { return color_; }
    void setColor(Vec3f color) { color_ = color; }

    /// Appends a guide. Attributes and layers new to the set start at 0 on earlier guides;
    /// a layer whose length is not the guide's point count is padded or cut to it.
    void addGuide(std::uint64_t id, StrandRoot root, std::span<const Vec3f> points, GuideTube tube,
                  const std::map<std::string, float>& attributes = {},
                  const std::map<std::string, std::vector<float>>& pointAttributes = {});

    /// A 64-bit hash of the whole content, by bit patterns.
    std::uint64_t fingerprint() const;

    /// The guides of the given groups of a hierarchy (all guides when `groups` is empty),
    /// in the hierarchy's order, with the first chosen group's colour.
    static GuideSet fromHierarchy(const GuideHierarchy& hierarchy, std::span<const std::uint32_t> groups = {});

private:
    std::vector<std::uint64_t> ids_;
    std::vector<StrandRoot> roots_;
    std::vector<std::uint64_t> offsets_{0};
    std::vector<Vec3f> points_;
    std::vector<GuideTube> tubes_;
    std::map<std::string, std::vector<float>> attributes_;
    std::map<std::string, std::vector<float>> pointAttributes_;
    Vec3f color_{0.25f, 0.85f, 0.55f};
};

}  // namespace tressora
