#include "io/alembic_writer.h"

#include <cmath>
#include <exception>
#include <map>
#include <set>
#include <stdexcept>
#include <vector>

#include "core/errors.h"
#include "core/strand_resample.h"
#include "io/alembic/geom_writer.h"
#include "io/alembic_groom_layout.h"
#include "io/alembic_neutral_curves.h"
#include "io/usd_identifiers.h"

namespace tressora {

using alembic_out::GroomCurves;
using alembic_out::NeutralCurves;

namespace {

/// What the first frame chose; every later frame must take the same road.
enum class Mode { none, strands, strandGroups, groom, groomGroups };

const char* refusal(Mode mode) {
    switch (mode) {
        case Mode::strands: return "the strands were written without groups";
        case Mode::strandGroups: return "the strands were written in groups";
        case Mode::groom: return "the groom was written without groups";
        case Mode::groomGroups: return "the groom was written in groups";
        default: return "";
    }
}

}  // namespace

struct AlembicWriter::State {
    AlembicWriterOptions options;
    std::unique_ptr<abc::ArchiveWriter> archive;
    std::uint32_t timeSampling = 0;
    alembic_out::GroomSpace space;
    Mode mode = Mode::none;
    bool failed = false;
    std::uint64_t frames = 0;

    // Neutral flavour: shapes by sanitised name, in first-frame order, and the scales.
    std::vector<std::pair<std::string, std::unique_ptr<NeutralCurves>>> shapes;
    std::unique_ptr<alembic_out::ScaleMeshObject> scales;
    // Groom flavour: the curves objects by group id (ungrouped: id 0), strands and guides.
    struct GroomObjects {
        std::string name;
        std::unique_ptr<GroomCurves> strands, guides;
    };
    std::map<std::int32_t, GroomObjects> groomObjects;

    /// The set as the archive gets it: resampled when asked for.
    const StrandSet* prepared(const StrandSet* set, std::vector<std::unique_ptr<StrandSet>>& keep) const {
        if (!set || options.resampleCount == 0) return set;
        keep.push_back(std::make_unique<StrandSet>(resampleStrands(*set, static_cast<std::size_t>(options.resampleCount))));
        return keep.back().get();
    }
};

AlembicWriter::AlembicWriter(const std::string& path, AlembicWriterOptions options) {
    if (!(options.scale > 0.0f) || !std::isfinite(options.scale))
        throw std::invalid_argument("the scale must be positive");
    if (options.resampleCount == 1 || options.resampleCount < 0)
        throw std::invalid_argument("strands need at least 2 points");
    auto state = std::make_unique<State>();
    abc::ArchiveInfo info;
    info.application = options.application;
    info.description = "groom strands";
    info.fps = options.framesPerSecond;
    state->archive = std::make_unique<abc::ArchiveWriter>(path, info);
    try {
        state->timeSampling =
            state->archive->addTimeSampling(abc::TimeSampling::uniform(options.secondsPerFrame, options.startTime));
    } catch (const std::exception& e) {
        throw AlembicError(std::string("cannot write '") + path + "': " + e.what());
    }
    state->space.scale = options.scale;
    state->options = std::move(options);
    state_ = std::move(state);
}

AlembicWriter::~AlembicWriter() = default;

std::uint64_t AlembicWriter::frameCount() const { return state_ ? state_->frames : 0; }

void AlembicWriter::setGroomSpace(const std::string& upAxis, double centimetersPerUnit) {
    if (!state_) throw AlembicError("writer is closed");
    if (state_->frames > 0 || state_->mode != Mode::none) throw AlembicError("the space is set before the first frame");
    if (upAxis != "Y" && upAxis != "Z")
        throw std::invalid_argument("the up axis is \"Y\" or \"Z\", not \"" + upAxis + "\"");
    if (!(centimetersPerUnit > 0.0) || !std::isfinite(centimetersPerUnit))
        throw std::invalid_argument("the centimeters per unit must be positive");
    state_->space.sourceZUp = upAxis == "Z";
    state_->space.centimetersPerUnit = centimetersPerUnit;
}

namespace {

/// Checks the writer is open and the call fits the mode of the first frame.
AlembicWriter::State& enter(std::unique_ptr<AlembicWriter::State>& state, Mode mode) {
    if (!state) throw AlembicError("writer is closed");
    if (state->failed) throw AlembicError("cannot write frame: an earlier frame failed");
    if (state->mode != Mode::none && state->mode != mode) throw AlembicError(refusal(state->mode));
    return *state;
}

/// Runs one frame's writing; any failure leaves the writer failed and reads as a frame failure.
template <class Body>
void guardedFrame(AlembicWriter::State& s, Mode mode, Body&& body) {
    try {
        body();
    } catch (const std::exception& e) {
        s.failed = true;
        throw AlembicError(std::string("cannot write frame: ") + e.what());
    }
    s.mode = mode;
    ++s.frames;
}

}  // namespace

void AlembicWriter::writeFrame(const StrandSet& strands, const ScalpUvs* scalp, const ScaleMesh* scaleMesh) {
    State& s = enter(state_, Mode::strands);
    guardedFrame(s, Mode::strands, [&] {
        std::vector<std::unique_ptr<StrandSet>> keep;
        if (s.shapes.empty()) {
            const std::string name = sanitizeIdentifier(s.options.rootName.empty() ? "groom" : s.options.rootName);
            s.shapes.emplace_back(name, std::make_unique<NeutralCurves>(s.archive->top(), name, s.timeSampling));
            if (scaleMesh && !scaleMesh->triangles.empty())
                s.scales = std::make_unique<alembic_out::ScaleMeshObject>(s.archive->top(), s.timeSampling);
        }
        s.shapes.front().second->write(s.prepared(&strands, keep), scalp, s.options.scale);
        if (s.scales) s.scales->write(scaleMesh, s.options.scale);
    });
}

void AlembicWriter::writeFrame(std::span<const AlembicStrandGroup> groups, const ScalpUvs* scalp) {
    State& s = enter(state_, Mode::strandGroups);
    // Names are checked before anything is written, so a refused frame leaves the writer usable.
    std::map<std::string, const StrandSet*> byName;
    std::vector<std::string> order;
    for (const AlembicStrandGroup& group : groups) {
        const std::string name = sanitizeIdentifier(group.name);
        if (!byName.emplace(name, group.strands).second) throw AlembicError("two groups named '" + name + "'");
        order.push_back(name);
    }
    if (s.mode != Mode::none)
        for (const std::string& name : order) {
            bool known = false;
            for (const auto& shape : s.shapes) known = known || shape.first == name;
            if (!known)
                throw AlembicError("the group '" + name +
                                   "' was not in the first frame; an archive keeps the groups of its first frame");
        }
    guardedFrame(s, Mode::strandGroups, [&] {
        if (s.mode == Mode::none)
            for (const std::string& name : order)
                s.shapes.emplace_back(name, std::make_unique<NeutralCurves>(s.archive->top(), name, s.timeSampling));
        std::vector<std::unique_ptr<StrandSet>> keep;
        for (auto& [name, shape] : s.shapes) {
            const auto found = byName.find(name);
            shape->write(s.prepared(found == byName.end() ? nullptr : found->second, keep), scalp, s.options.scale);
        }
    });
}

namespace {

/// Writes one groom group's strands and guides, creating their objects on the first frame.
void writeGroomGroup(AlembicWriter::State& s, const std::string& strandsName, const std::string& guidesName,
                     const std::string& groupName, std::int32_t groupId, const StrandSet* strands,
                     const StrandSet* guides, const ScalpUvs* scalp, bool first);

}  // namespace

void AlembicWriter::writeGroomFrame(const StrandSet& strands, const StrandSet* guides, const ScalpUvs* scalp) {
    State& s = enter(state_, Mode::groom);
    guardedFrame(s, Mode::groom, [&] {
        const std::string name = s.options.rootName.empty() ? "groom" : s.options.rootName;
        writeGroomGroup(s, "strands", "guides", name, -1, &strands, guides, scalp, s.mode == Mode::none);
    });
}

void AlembicWriter::writeGroomFrame(std::span<const AlembicGroomGroup> groups, const ScalpUvs* scalp) {
    State& s = enter(state_, Mode::groomGroups);
    std::set<std::int32_t> ids;
    for (const AlembicGroomGroup& group : groups)
        if (!ids.insert(group.id).second) throw AlembicError("two groups with the id " + std::to_string(group.id));
    if (s.mode != Mode::none)
        for (const AlembicGroomGroup& group : groups)
            if (!s.groomObjects.count(group.id))
                throw AlembicError("the group with the id " + std::to_string(group.id) +
                                   " was not in the first frame; an archive keeps the groups of its first frame");
    guardedFrame(s, Mode::groomGroups, [&] {
        const bool first = s.mode == Mode::none;
        std::map<std::int32_t, const AlembicGroomGroup*> byId;
        for (const AlembicGroomGroup& group : groups) byId[group.id] = &group;
        if (first) {
            for (const AlembicGroomGroup& group : groups) {
                const std::string name = sanitizeIdentifier(group.name);
                writeGroomGroup(s, "strands_" + name, "guides_" + name, group.name, group.id, group.strands,
                                group.guides, scalp, true);
            }
            return;
        }
        for (auto& [id, objects] : s.groomObjects) {
            const auto found = byId.find(id);
            const AlembicGroomGroup* group = found == byId.end() ? nullptr : found->second;
            writeGroomGroup(s, {}, {}, group ? group->name : objects.name, id, group ? group->strands : nullptr,
                            group ? group->guides : nullptr, scalp, false);
        }
    });
}

namespace {

void writeGroomGroup(AlembicWriter::State& s, const std::string& strandsName, const std::string& guidesName,
                     const std::string& groupName, std::int32_t groupId, const StrandSet* strands,
                     const StrandSet* guides, const ScalpUvs* scalp, bool first) {
    std::vector<std::unique_ptr<StrandSet>> keep;
    const StrandSet* set = s.prepared(strands, keep);
    const ExportView strandView = buildExportView(set ? *set : StrandSet(), scalp, 0, s.options.colouring);
    const ExportView guideView = buildExportView(guides ? *guides : StrandSet(), nullptr, 0, s.options.colouring);
    const std::int32_t key = groupId < 0 ? 0 : groupId;
    auto& objects = s.groomObjects[key];
    if (first) {
        objects.name = groupName;
        objects.strands = std::make_unique<GroomCurves>(
            s.archive->top(), strandsName, s.timeSampling, false,
            alembic_out::groomAttributesOf(set, strandView, false, s.options.writeAo));
        if (guides)
            objects.guides = std::make_unique<GroomCurves>(
                s.archive->top(), guidesName, s.timeSampling, true,
                alembic_out::groomAttributesOf(guides, guideView, true, false));
    }
    objects.strands->write(set, strandView, groupName, groupId, s.space);
    if (objects.guides) objects.guides->write(guides, guideView, groupName, groupId, s.space);
}

}  // namespace

void AlembicWriter::close() {
    if (!state_) throw AlembicError("writer is closed");
    std::unique_ptr<State> state = std::move(state_);
    // After a failed frame the archive is discarded: destroying it removes the temporary file.
    if (state->failed) return;
    state->archive->close();
}

}  // namespace tressora
