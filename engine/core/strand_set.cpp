#include "core/strand_set.h"

#include <cstring>
#include <stdexcept>
#include <utility>

#include "core/hash.h"
#include "core/instances.h"
#include "core/parallel.h"

namespace tressora {
namespace {

std::atomic<std::uint64_t> gSteals{0};

// The offsets of an empty set, shared by every fresh set (and never written: a write copies
// it first, since this handle always holds it too).
CowArray<std::uint64_t> zeroOffsets() noexcept {
    static const std::shared_ptr<PodArray<std::uint64_t>>* zero = [] {
        auto array = std::make_shared<PodArray<std::uint64_t>>();
        array->pushBack(0);
        return new std::shared_ptr<PodArray<std::uint64_t>>(std::move(array));
    }();
    return CowArray<std::uint64_t>(*zero);
}

const StrandChannel* findChannel(const ChannelMap& channels, std::string_view name) {
    const auto it = channels.find(name);
    return it == channels.end() ? nullptr : &it->second;
}

// Gives every point of strands [0, count) the strand's value: out[offsets[s] - base + k] =
// values[s]. `offsets` holds count + 1 entries.
void spreadOverPoints(float* out, const std::uint64_t* offsets, const float* values, std::size_t count) {
    const std::uint64_t base = offsets[0];
    parallelRange(0, count, 256, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t s = lo; s < hi; ++s) {
            for (std::uint64_t p = offsets[s]; p < offsets[s + 1]; ++p) out[p - base] = values[s];
        }
    });
}

}  // namespace

StrandSet::StrandSet() : offsets_(zeroOffsets()) {}

StrandSet::StrandSet(const StrandSet& other) { copyFrom(other, false); }

StrandSet& StrandSet::operator=(const StrandSet& other) {
    if (this != &other) copyFrom(other, true);
    return *this;
}

StrandSet::StrandSet(StrandSet&& other) noexcept { *this = std::move(other); }

StrandSet& StrandSet::operator=(StrandSet&& other) noexcept {
    if (this == &other) return *this;
    std::scoped_lock lock(mutex_, other.mutex_);
    ids_ = std::move(other.ids_);
    roots_ = std::move(other.roots_);
    offsets_ = std::move(other.offsets_);
    points_ = std::move(other.points_);
    widths_ = std::move(other.widths_);
    strandChannels_ = std::move(other.strandChannels_);
    pointChannels_ = std::move(other.pointChannels_);
    instances_ = std::move(other.instances_);
    extent_ = std::move(other.extent_);
    chunkExtents_ = std::move(other.chunkExtents_);
    cachesValid_.store(other.cachesValid_.exchange(false));
    other.offsets_ = zeroOffsets();
    other.strandChannels_.clear();
    other.pointChannels_.clear();
    return *this;
}

StrandSet::~StrandSet() = default;

std::uint64_t StrandSet::stealCount() noexcept { return gSteals.load(std::memory_order_relaxed); }

void StrandSet::copyFrom(const StrandSet& other, bool steal) {
    // Other's mutex guards its caches and the flags that copying clears.
    std::lock_guard<std::mutex> lock(other.mutex_);
    std::uint64_t steals = 0;
    const auto take = [&](auto& mine, const auto& theirs) {
        if (!steal) {
            mine = theirs;
        } else if (mine.stealOrShare(theirs)) {
            ++steals;
        }
    };
    const auto takeChannels = [&](ChannelMap& mine, const ChannelMap& theirs) {
        ChannelMap copied;
        for (const auto& [name, channel] : theirs) {
            StrandChannel& c = copied[name];
            c.default_ = channel.default_;
            take(c.values_, channel.values_);
        }
        mine = std::move(copied);
    };
    take(ids_, other.ids_);
    take(roots_, other.roots_);
    take(offsets_, other.offsets_);
    take(points_, other.points_);
    take(widths_, other.widths_);
    takeChannels(strandChannels_, other.strandChannels_);
    takeChannels(pointChannels_, other.pointChannels_);
    instances_ = other.instances_;
    extent_ = other.extent_;
    chunkExtents_ = other.chunkExtents_;
    cachesValid_.store(other.cachesValid_.load());
    gSteals.fetch_add(steals, std::memory_order_relaxed);
}

void StrandSet::dropCaches() {
    if (!cachesValid_.load(std::memory_order_acquire)) return;
    std::lock_guard<std::mutex> lock(mutex_);
    cachesValid_.store(false, std::memory_order_release);
    extent_.reset();
    chunkExtents_.reset();
}

void StrandSet::storeCaches(std::shared_ptr<const Extent> overall,
                            std::shared_ptr<const std::vector<Extent>> chunks) const {
    std::lock_guard<std::mutex> lock(mutex_);
    extent_ = std::move(overall);
    chunkExtents_ = std::move(chunks);
    cachesValid_.store(true, std::memory_order_release);
}

const StrandChannel* StrandSet::strandChannel(std::string_view name) const { return findChannel(strandChannels_, name); }
const StrandChannel* StrandSet::pointChannel(std::string_view name) const { return findChannel(pointChannels_, name); }

std::span<std::uint64_t> StrandSet::mutableIds() {
    dropCaches();
    return ids_.writable(mutex_).span();
}

std::span<StrandRoot> StrandSet::mutableRoots() {
    dropCaches();
    return roots_.writable(mutex_).span();
}

std::span<std::uint64_t> StrandSet::mutableOffsets() {
    dropCaches();
    return offsets_.writable(mutex_).span();
}

std::span<Vec3f> StrandSet::mutablePoints() {
    dropCaches();
    return points_.writable(mutex_).span();
}

std::span<Vec3f> StrandSet::overwrittenPoints() {
    dropCaches();
    return points_.overwrite(points_.size(), mutex_);
}

std::span<float> StrandSet::mutableWidths() {
    dropCaches();
    return widths_.writable(mutex_).span();
}

std::span<float> StrandSet::writableChannel(ChannelMap& channels, std::string_view name, const char* kind) {
    const auto it = channels.find(name);
    if (it == channels.end()) {
        throw std::invalid_argument(std::string("StrandSet: there is no ") + kind + " channel '" + std::string(name) + "'");
    }
    dropCaches();
    return it->second.values_.writable(mutex_).span();
}

std::span<float> StrandSet::ensureChannel(ChannelMap& channels, std::string_view name, float defaultValue,
                                          std::size_t size) {
    dropCaches();
    auto it = channels.find(name);
    if (it == channels.end()) {
        it = channels.emplace(std::string(name), StrandChannel{}).first;
        it->second.values_.appendFill(size, defaultValue, mutex_);
    }
    it->second.default_ = defaultValue;
    return it->second.values_.writable(mutex_).span();
}

std::span<float> StrandSet::mutableStrandChannel(std::string_view name) {
    return writableChannel(strandChannels_, name, "strand");
}

std::span<float> StrandSet::mutablePointChannel(std::string_view name) {
    return writableChannel(pointChannels_, name, "point");
}

std::span<float> StrandSet::addStrandChannel(std::string_view name, float defaultValue) {
    return ensureChannel(strandChannels_, name, defaultValue, strandCount());
}

std::span<float> StrandSet::addPointChannel(std::string_view name, float defaultValue) {
    return ensureChannel(pointChannels_, name, defaultValue, pointCount());
}

bool StrandSet::removeChannel(ChannelMap& channels, std::string_view name) {
    const auto it = channels.find(name);
    if (it == channels.end()) return false;
    channels.erase(it);
    return true;
}

bool StrandSet::removeStrandChannel(std::string_view name) { return removeChannel(strandChannels_, name); }

bool StrandSet::removePointChannel(std::string_view name) { return removeChannel(pointChannels_, name); }

void StrandSet::setInstances(std::shared_ptr<const InstanceSet> instances) { instances_ = std::move(instances); }

void StrandSet::addStrand(std::uint64_t id, StrandRoot root, std::span<const Vec3f> points,
                          std::span<const float> widths) {
    if (!widths.empty() && widths.size() != points.size()) {
        throw std::invalid_argument("StrandSet::addStrand: widths must be empty or match points");
    }
    dropCaches();
    ids_.writable(mutex_).pushBack(id);
    roots_.writable(mutex_).pushBack(root);
    PodArray<std::uint64_t>& offsets = offsets_.writable(mutex_);
    offsets.pushBack(offsets[offsets.size() - 1] + points.size());
    if (widths.empty()) {
        widths_.appendFill(points.size(), 1.0f, mutex_);
    } else {
        widths_.append(widths, mutex_);
    }
    points_.append(points, mutex_);  // may be a view of this set's own points: append copes
    for (auto& [name, channel] : strandChannels_) channel.values_.writable(mutex_).pushBack(channel.default_);
    for (auto& [name, channel] : pointChannels_) channel.values_.appendFill(points.size(), channel.default_, mutex_);
}

void StrandSet::append(const StrandSet& other) {
    if (&other == this) {
        const StrandSet copy(other);
        append(copy);
        return;
    }
    dropCaches();
    const std::size_t oldStrands = strandCount();
    const std::size_t oldPoints = pointCount();
    ids_.append(other.ids(), mutex_);
    roots_.append(other.roots(), mutex_);
    points_.append(other.points(), mutex_);
    widths_.append(other.widths(), mutex_);

    const std::size_t added = other.strandCount();
    if (added != 0) {
        const std::span<std::uint64_t> tail = offsets_.extend(added, mutex_);
        const std::uint64_t* theirs = other.offsets_.data();
        parallelRange(0, added, 0x10000, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t i = lo; i < hi; ++i) tail[i] = theirs[i + 1] + oldPoints;
        });
    }

    mergePointChannels(other, oldStrands, oldPoints);
    mergeStrandChannels(other, oldStrands);

    if (other.instances_) {
        auto merged = instances_ ? std::make_shared<InstanceSet>(*instances_) : std::make_shared<InstanceSet>();
        merged->append(*other.instances_);
        instances_ = std::move(merged);
    }
}

void StrandSet::mergePointChannels(const StrandSet& other, std::size_t oldStrands, std::size_t oldPoints) {
    const std::size_t added = other.pointCount();
    for (auto& [name, channel] : pointChannels_) {
        if (const StrandChannel* theirs = other.pointChannel(name)) {
            channel.values_.append(theirs->values(), mutex_);
        } else if (const StrandChannel* perStrand = other.strandChannel(name)) {
            // The other side keeps this value per strand: each of its strands gives it to its points.
            const std::span<float> tail = channel.values_.extend(added, mutex_);
            spreadOverPoints(tail.data(), other.offsets_.data(), perStrand->values().data(), other.strandCount());
        } else {
            channel.values_.appendFill(added, channel.default_, mutex_);
        }
    }
    for (const auto& [name, theirs] : other.pointChannels_) {
        if (pointChannels_.count(name) != 0) continue;
        StrandChannel channel;
        channel.default_ = theirs.default_;
        const std::span<float> values = channel.values_.overwrite(oldPoints + added, mutex_);
        if (const StrandChannel* perStrand = strandChannel(name)) {
            // Strand channels are merged after point channels, so this one still has the old strands only.
            spreadOverPoints(values.data(), offsets_.data(), perStrand->values().data(), oldStrands);
        } else {
            blockFill(values.data(), oldPoints, theirs.default_);
        }
        blockCopyElements(values.data() + oldPoints, theirs.values().data(), added);
        pointChannels_.emplace(name, std::move(channel));
    }
}

void StrandSet::mergeStrandChannels(const StrandSet& other, std::size_t oldStrands) {
    const std::size_t added = other.strandCount();
    for (auto& [name, channel] : strandChannels_) {
        if (const StrandChannel* theirs = other.strandChannel(name)) {
            channel.values_.append(theirs->values(), mutex_);
        } else {
            channel.values_.appendFill(added, channel.default_, mutex_);
        }
    }
    for (const auto& [name, theirs] : other.strandChannels_) {
        if (strandChannels_.count(name) != 0) continue;
        StrandChannel channel;
        channel.default_ = theirs.default_;
        const std::span<float> values = channel.values_.overwrite(oldStrands + added, mutex_);
        blockFill(values.data(), oldStrands, theirs.default_);
        blockCopyElements(values.data() + oldStrands, theirs.values().data(), added);
        strandChannels_.emplace(name, std::move(channel));
    }
}

void StrandSet::reserve(std::size_t strands, std::size_t points) {
    ids_.reserve(strands, mutex_);
    roots_.reserve(strands, mutex_);
    offsets_.reserve(strands + 1, mutex_);
    points_.reserve(points, mutex_);
    widths_.reserve(points, mutex_);
}

void StrandSet::clear() {
    dropCaches();
    ids_.clear();
    roots_.clear();
    points_.clear();
    widths_.clear();
    if (offsets_.owned()) {
        PodArray<std::uint64_t>& offsets = offsets_.writable(mutex_);
        offsets.clear();
        offsets.pushBack(0);
    } else {
        offsets_ = zeroOffsets();
    }
    for (auto& [name, channel] : strandChannels_) channel.values_.reset();
    for (auto& [name, channel] : pointChannels_) channel.values_.reset();
    instances_.reset();
}

void StrandSet::resizeStrands(std::size_t count) {
    const std::size_t old = strandCount();
    if (count == old) return;
    dropCaches();
    const std::uint64_t points = count < old ? offsets()[count] : pointCount();
    ids_.resize(count, 0, mutex_);
    roots_.resize(count, StrandRoot{}, mutex_);
    offsets_.resize(count + 1, points, mutex_);
    for (auto& [name, channel] : strandChannels_) channel.values_.resize(count, channel.default_, mutex_);
    if (count < old) resizePoints(points);
}

void StrandSet::resizePoints(std::size_t count) {
    if (count == pointCount()) return;
    dropCaches();
    points_.resize(count, Vec3f{}, mutex_);
    widths_.resize(count, 1.0f, mutex_);
    for (auto& [name, channel] : pointChannels_) channel.values_.resize(count, channel.default_, mutex_);
}

bool StrandSet::validate(std::string* message) const {
    const auto fail = [message](std::string text) {
        if (message) *message = std::move(text);
        return false;
    };
    const std::size_t strands = strandCount();
    const std::size_t points = pointCount();
    const std::span<const std::uint64_t> offsets = this->offsets();
    if (offsets.size() != strands + 1) return fail("offsets size must be strandCount + 1");
    if (roots_.size() != strands) return fail("roots size must equal strandCount");
    if (offsets[0] != 0) return fail("offsets must start at 0");
    if (offsets[strands] != points) return fail("last offset must equal pointCount");
    for (std::size_t i = 0; i < strands; ++i) {
        if (offsets[i + 1] < offsets[i]) return fail("offsets must be non-decreasing");
    }
    if (widths_.size() != points) return fail("widths size must equal pointCount");
    for (const auto& [name, channel] : strandChannels_) {
        if (channel.size() != strands) return fail("strand channel '" + name + "' has wrong size");
    }
    for (const auto& [name, channel] : pointChannels_) {
        if (channel.size() != points) return fail("point channel '" + name + "' has wrong size");
    }
    return true;
}

std::uint64_t StrandSet::fingerprint() const {
    const std::size_t strands = strandCount();
    const std::uint64_t* ids = ids_.data();
    const std::uint64_t* offsets = offsets_.data();
    const StrandRoot* roots = roots_.data();
    std::uint64_t h = hash64(strands);
    for (std::size_t i = 0; i < strands; ++i) {
        h = combine(h, ids[i]);
        h = combine(h, offsets[i + 1]);
        h = combine(h, static_cast<std::uint64_t>(static_cast<std::int64_t>(roots[i].face)));
        h = combine(h, floatBits(roots[i].u));
        h = combine(h, floatBits(roots[i].v));
    }
    for (const Vec3f& p : points()) {
        h = combine(h, floatBits(p.x));
        h = combine(h, floatBits(p.y));
        h = combine(h, floatBits(p.z));
    }
    for (float w : widths()) h = combine(h, floatBits(w));
    const auto channels = [&h](const ChannelMap& map) {
        for (const auto& [name, channel] : map) {
            for (unsigned char c : name) h = combine(h, c);
            for (float v : channel.values()) h = combine(h, floatBits(v));
        }
    };
    channels(strandChannels_);
    channels(pointChannels_);
    // Instances, when carried, are part of the result too.
    if (instances_) h = combine(h, instances_->fingerprint());
    return h;
}

bool StrandSet::sameContent(const StrandSet& other) const {
    if (this == &other) return true;
    if (strandCount() != other.strandCount() || pointCount() != other.pointCount()) return false;
    const auto sameNames = [](const ChannelMap& a, const ChannelMap& b) {
        if (a.size() != b.size()) return false;
        for (auto i = a.begin(), j = b.begin(); i != a.end(); ++i, ++j)
            if (i->first != j->first) return false;
        return true;
    };
    if (!sameNames(strandChannels_, other.strandChannels_) || !sameNames(pointChannels_, other.pointChannels_))
        return false;
    std::vector<std::pair<const void*, std::size_t>> mine, theirs;
    forEachBlock([&mine](const void* data, std::size_t bytes) { mine.emplace_back(data, bytes); });
    other.forEachBlock([&theirs](const void* data, std::size_t bytes) { theirs.emplace_back(data, bytes); });
    if (mine.size() != theirs.size()) return false;
    for (std::size_t k = 0; k < mine.size(); ++k) {
        if (mine[k].second != theirs[k].second) return false;
        if (mine[k].first != theirs[k].first && std::memcmp(mine[k].first, theirs[k].first, mine[k].second) != 0)
            return false;
    }
    if (!instances_ != !other.instances_) return false;
    return !instances_ || instances_ == other.instances_ || instances_->fingerprint() == other.instances_->fingerprint();
}

std::size_t StrandSet::byteSize() const {
    std::size_t bytes = 0;
    forEachBlock([&bytes](const void*, std::size_t n) { bytes += n; });
    return bytes;
}

}  // namespace tressora
