#include "core/guide_set.h"

#include <algorithm>
#include <set>

#include "core/guide_hierarchy.h"
#include "core/hash.h"

namespace tressora {

std::span<const Vec3f> GuideSet::guidePoints(std::size_t i) const {
    return std::span<const Vec3f>(points_).subspan(offsets_[i], offsets_[i + 1] - offsets_[i]);
}

const std::vector<float>* GuideSet::attribute(const std::string& name) const {
    const auto it = attributes_.find(name);
    return it == attributes_.end() ? nullptr : &it->second;
}

const std::vector<float>* GuideSet::pointAttribute(const std::string& name) const {
    const auto it = pointAttributes_.find(name);
    return it == pointAttributes_.end() ? nullptr : &it->second;
}

void GuideSet::addGuide(std::uint64_t id, StrandRoot root, std::span<const Vec3f> points, GuideTube tube,
                        const std::map<std::string, float>& attributes,
                        const std::map<std::string, std::vector<float>>& pointAttributes) {
    const std::size_t before = points_.size();
    ids_.push_back(id);
    roots_.push_back(root);
    points_.insert(points_.end(), points.begin(), points.end());
    offsets_.push_back(points_.size());
    tubes_.push_back(std::move(tube));
    for (const auto& entry : attributes)
        if (!attributes_.count(entry.first)) attributes_[entry.first].assign(ids_.size() - 1, 0.0f);
    for (auto& [name, values] : attributes_) {
        const auto it = attributes.find(name);
        values.push_back(it == attributes.end() ? 0.0f : it->second);
    }
    for (const auto& entry : pointAttributes)
        if (!pointAttributes_.count(entry.first)) pointAttributes_[entry.first].assign(before, 0.0f);
    for (auto& [name, values] : pointAttributes_) {
        const auto it = pointAttributes.find(name);
        std::vector<float> layer = it == pointAttributes.end() ? std::vector<float>{} : it->second;
        layer.resize(points.size(), 0.0f);
        values.insert(values.end(), layer.begin(), layer.end());
    }
}

std::uint64_t GuideSet::fingerprint() const {
    std::uint64_t h = hash64(ids_.size());
    for (std::size_t i = 0; i < ids_.size(); ++i) {
        h = combine(h, ids_[i]);
        h = combine(h, offsets_[i + 1]);
        h = combine(h, static_cast<std::uint64_t>(static_cast<std::int64_t>(roots_[i].face)));
        h = combine(h, floatBits(roots_[i].u));
        h = combine(h, floatBits(roots_[i].v));
        const GuideTube& t = tubes_[i];
        for (const auto* list : {&t.width, &t.aspect, &t.twist}) {
            h = combine(h, list->size());
            for (float v : *list) h = combine(h, floatBits(v));
        }
        h = combineText(h, t.shape);
        for (int a = 0; a < 3; ++a) h = combine(h, floatBits(t.frameUp[a]));
    }
    for (const Vec3f& p : points_)
        for (int a = 0; a < 3; ++a) h = combine(h, floatBits(p[a]));
    for (const auto* channels : {&attributes_, &pointAttributes_})
        for (const auto& [name, values] : *channels) {
            h = combineText(h, name);
            for (float v : values) h = combine(h, floatBits(v));
        }
    for (int a = 0; a < 3; ++a) h = combine(h, floatBits(color_[a]));
    return h;
}

GuideSet GuideSet::fromHierarchy(const GuideHierarchy& hierarchy, std::span<const std::uint32_t> groups) {
    GuideSet set;
    const std::set<std::uint32_t> chosen(groups.begin(), groups.end());
    if (!groups.empty()) {
        if (const GuideGroup* g = hierarchy.findGroup(groups.front())) set.color_ = g->color;
    } else if (!hierarchy.groups().empty()) {
        set.color_ = hierarchy.groups().front().color;
    }
    for (const Guide& g : hierarchy.guides()) {
        if (!chosen.empty() && !chosen.count(g.group)) continue;
        set.addGuide(g.id, g.root, g.points, {g.width, g.aspect, g.twist, g.shape, g.frameUp}, g.attributes,
                     g.pointAttributes);
    }
    return set;
}

}  // namespace tressora
