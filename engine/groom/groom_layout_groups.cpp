#include "groom/groom_layout_groups.h"

#include <cmath>
#include <map>
#include <string>

#include "core/parallel.h"
#include "core/point_index.h"
#include "operators/growth/guide_conversion.h"

namespace tressora {
namespace {

std::int32_t groupOf(float value) { return std::isfinite(value) ? static_cast<std::int32_t>(std::lround(value)) : 0; }

std::vector<std::int32_t> strandGroups(const StrandSet& strands, const StrandChannel& channel) {
    const std::span<const float> values = channel.values();
    std::vector<std::int32_t> out(strands.strandCount());
    for (std::size_t i = 0; i < out.size(); ++i) out[i] = groupOf(values[i]);
    return out;
}

// Each guide's group: its own groupId attribute, else the group of the nearest strand root.
std::vector<std::int32_t> guideGroups(const StrandSet& guides, const StrandSet& strands,
                                      const std::vector<std::int32_t>& strandGroup) {
    std::vector<std::int32_t> out(guides.strandCount(), strandGroup.empty() ? 0 : strandGroup.front());
    if (const StrandChannel* own = guides.strandChannel("groupId"); own && own->values().size() == out.size()) {
        for (std::size_t g = 0; g < out.size(); ++g) out[g] = groupOf(own->values()[g]);
        return out;
    }
    std::vector<Vec3f> roots(strands.strandCount());
    for (std::size_t s = 0; s < roots.size(); ++s) roots[s] = strands.strandPoints(s).front();
    const PointIndex index(roots);
    parallelRange(0, out.size(), 64, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t g = lo; g < hi; ++g) {
            const std::span<const Vec3f> points = guides.strandPoints(g);
            if (points.empty()) continue;
            float distance = 0.0f;
            const std::uint32_t nearest = index.nearest(points.front(), distance);
            if (nearest != PointIndex::npos) out[g] = strandGroup[nearest];
        }
    });
    return out;
}

}  // namespace

GroomLayoutFrame groomLayoutFrame(std::shared_ptr<const StrandSet> strands, const GuideSet* guides, float guideWidth) {
    GroomLayoutFrame frame;
    std::shared_ptr<const StrandSet> guideStrands;
    if (guides && guides->guideCount() > 0) guideStrands = strandsFromGuides(*guides, guideWidth, true);
    const StrandChannel* channel = strands ? strands->strandChannel("groupId") : nullptr;
    if (!channel || channel->values().size() != strands->strandCount() || strands->strandCount() == 0) {
        frame.strands = std::move(strands);
        frame.guides = std::move(guideStrands);
        return frame;
    }
    frame.grouped = true;
    const std::vector<std::int32_t> strandGroup = strandGroups(*strands, *channel);
    std::map<std::int32_t, std::pair<std::vector<std::size_t>, std::vector<std::size_t>>> members;
    for (std::size_t s = 0; s < strandGroup.size(); ++s) members[strandGroup[s]].first.push_back(s);
    if (guideStrands) {
        const std::vector<std::int32_t> guideGroup = guideGroups(*guideStrands, *strands, strandGroup);
        for (std::size_t g = 0; g < guideGroup.size(); ++g) {
            // A guide whose own group has no strands has nothing to guide in this file.
            if (const auto it = members.find(guideGroup[g]); it != members.end()) it->second.second.push_back(g);
        }
    }
    for (const auto& [id, indices] : members) {
        AlembicGroomGroup group;
        group.name = "group" + std::to_string(id);
        group.id = id;
        frame.parts.push_back(std::make_unique<StrandSet>(strands->subset(indices.first)));
        group.strands = frame.parts.back().get();
        if (!indices.second.empty()) {
            frame.parts.push_back(std::make_unique<StrandSet>(guideStrands->subset(indices.second)));
            group.guides = frame.parts.back().get();
        }
        frame.groups.push_back(std::move(group));
    }
    return frame;
}

}  // namespace tressora
