#pragma once
// StrandSet: the strands that flow along the graph and into every writer. Any number of
// polylines in flat arrays: a stable 64-bit id and a root attachment per strand, offsets into
// one array of points, a width per point, and named float channels per strand and per point.
//
// Every array is a copy-on-write handle: copying a set copies handles only, and writing an
// array through one of the mutable accessors copies that array alone, and only while it is
// shared. A set is built by one owner, then published as std::shared_ptr<const StrandSet>;
// from then on it is only read, and reads take no lock (extent() excepted, see there).

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/cow_array.h"
#include "core/vec.h"

namespace tressora {

struct InstanceSet;

/// A named float array, one value per strand or per point, with the value that new strands
/// or points receive.
class StrandChannel {
public:
    float defaultValue() const noexcept { return default_; }
    std::span<const float> values() const noexcept { return values_.view(); }
    std::size_t size() const noexcept { return values_.size(); }

private:
    friend class StrandSet;
    CowArray<float> values_;
    float default_ = 0.0f;
};

/// Channels by name, in name order.
using ChannelMap = std::map<std::string, StrandChannel, std::less<>>;

/// The points of one strand: [begin, end) in the point arrays.
struct PointRange {
    std::size_t begin = 0;
    std::size_t end = 0;
    constexpr std::size_t size() const noexcept { return end - begin; }
    constexpr bool operator==(const PointRange&) const = default;
};

class StrandSet {
public:
    /// Bounds of some strands. Empty bounds have min above max.
    struct Extent {
        Vec3f min{std::numeric_limits<float>::max(), std::numeric_limits<float>::max(),
                  std::numeric_limits<float>::max()};
        Vec3f max{-std::numeric_limits<float>::max(), -std::numeric_limits<float>::max(),
                  -std::numeric_limits<float>::max()};
        float longest = 0.0f;  ///< the greatest polyline length of a strand covered
        bool finite = true;    ///< false once a NaN or infinite coordinate was met
        bool empty() const noexcept { return min.x > max.x; }
        bool operator==(const Extent&) const = default;
    };

    /// Strands per cached extent chunk.
    static constexpr std::size_t kExtentChunk = 2048;

    /// An empty set: no strands, offsets holding the single 0.
    StrandSet();
    /// Shares every array of `other`; neither set writes a shared array without copying it.
    StrandSet(const StrandSet& other);
    /// Like the copy, except that an array which `other` alone holds is taken, not shared:
    /// `other` is left with an empty array in its place (counted by stealCount()). Never
    /// copy-assign from a set that others may still read; construct a copy instead.
    StrandSet& operator=(const StrandSet& other);
    StrandSet(StrandSet&& other) noexcept;
    StrandSet& operator=(StrandSet&& other) noexcept;
    ~StrandSet();

    /// How many copy-assignments took an array instead of sharing it, process-wide.
    static std::uint64_t stealCount() noexcept;

    // ---- Reading: free of locks; spans stay valid until the set is next changed.

    std::size_t strandCount() const noexcept { return ids_.size(); }
    std::size_t pointCount() const noexcept { return points_.size(); }
    bool empty() const noexcept { return strandCount() == 0; }

    std::span<const std::uint64_t> ids() const noexcept { return ids_.view(); }
    std::span<const StrandRoot> roots() const noexcept { return roots_.view(); }
    /// strandCount + 1 offsets into the point arrays; strand i is [offsets[i], offsets[i+1]).
    std::span<const std::uint64_t> offsets() const noexcept { return offsets_.view(); }
    std::span<const Vec3f> points() const noexcept { return points_.view(); }
    std::span<const float> widths() const noexcept { return widths_.view(); }

    /// The points of strand i, root first. i must be below strandCount.
    PointRange pointRange(std::size_t strand) const noexcept {
        const std::uint64_t* o = offsets_.data();
        return {static_cast<std::size_t>(o[strand]), static_cast<std::size_t>(o[strand + 1])};
    }
    std::span<const Vec3f> strandPoints(std::size_t strand) const noexcept {
        const PointRange r = pointRange(strand);
        return points().subspan(r.begin, r.size());
    }
    std::span<const float> strandWidths(std::size_t strand) const noexcept {
        const PointRange r = pointRange(strand);
        return widths().subspan(r.begin, r.size());
    }

    /// The channel of that name, or null when the set has none.
    const StrandChannel* strandChannel(std::string_view name) const;
    const StrandChannel* pointChannel(std::string_view name) const;
    const ChannelMap& strandChannels() const noexcept { return strandChannels_; }
    const ChannelMap& pointChannels() const noexcept { return pointChannels_; }

    /// The instances placed on these strands, or null.
    const std::shared_ptr<const InstanceSet>& instances() const noexcept { return instances_; }

    // ---- Writing one array: each accessor drops the extent caches, makes that array
    // writable (copying it only if shared) and returns it. Different arrays may be asked for
    // from different threads at once; a span is valid until the set's structure changes.

    std::span<std::uint64_t> mutableIds();
    std::span<StrandRoot> mutableRoots();
    /// Offsets may be rewritten together with resizePoints; validate() checks the result.
    std::span<std::uint64_t> mutableOffsets();
    std::span<Vec3f> mutablePoints();
    /// The points for a node that writes every one of them: writable like mutablePoints, but
    /// a shared array is not copied first, so the values are unspecified until written.
    std::span<Vec3f> overwrittenPoints();
    std::span<float> mutableWidths();
    /// The values of an existing channel; throws std::invalid_argument naming the channel when absent.
    std::span<float> mutableStrandChannel(std::string_view name);
    std::span<float> mutablePointChannel(std::string_view name);

    /// Makes a channel of that name (every strand or point at `defaultValue`) or, when it
    /// exists, keeps its values and sets its default; returns its writable values.
    /// Not to be called while other threads use the set.
    std::span<float> addStrandChannel(std::string_view name, float defaultValue = 0.0f);
    std::span<float> addPointChannel(std::string_view name, float defaultValue = 0.0f);
    /// Removes a channel; false when there was none.
    bool removeStrandChannel(std::string_view name);
    bool removePointChannel(std::string_view name);

    void setInstances(std::shared_ptr<const InstanceSet> instances);

    // ---- Changing the structure.

    /// Appends one strand. `widths` is empty (1.0 at every point) or one per point; anything
    /// else throws std::invalid_argument before the set is changed. Channels receive their
    /// defaults for the new strand and its points.
    void addStrand(std::uint64_t id, StrandRoot root, std::span<const Vec3f> points,
                   std::span<const float> widths = {});

    /// Appends all strands of `other` (which may be this set) with their channels: a channel
    /// on one side only is filled with its default on the other, except that a point channel
    /// missing on a side that has a strand channel of that name takes each strand's value.
    /// Instances are appended too. Both sets must be valid.
    void append(const StrandSet& other);

    /// Reserves room for this many strands and points in ids, roots, offsets, points, widths.
    void reserve(std::size_t strands, std::size_t points);

    /// Removes every strand and point and the instances; channels keep their names and defaults.
    void clear();

    /// Sets the number of strands. New strands have id 0, a default root, no points and the
    /// channel defaults; dropping strands also drops their points.
    void resizeStrands(std::size_t count);

    /// Sets the length of points (new ones zero), widths (new ones 1.0) and every point
    /// channel (new values its default), keeping what lies before. The caller then makes the
    /// offsets agree (mutableOffsets). A shared array is copied only up to the new length.
    void resizePoints(std::size_t count);

    /// Replaces target's whole content by the strands at `indices`, in that order, with all
    /// channels and the instances on them. Throws std::invalid_argument when an index is out
    /// of range or target is this set. This set must be valid. Parallel over the chosen strands.
    void subset(std::span<const std::size_t> indices, StrandSet& target) const;
    StrandSet subset(std::span<const std::size_t> indices) const;

    /// Replaces target's content by the strands whose id draws below `fraction` (unit(id)):
    /// a strand kept at one fraction is kept at every higher one, whatever the frame or node.
    void thinned(float fraction, StrandSet& target) const;
    StrandSet thinned(float fraction) const;

    /// Checks the invariants in a fixed order and stops at the first broken one: false, and
    /// the message in *message when given. Never throws.
    bool validate(std::string* message = nullptr) const;

    /// The bounds of all strands: cached, or computed in parallel over 2048-strand chunks
    /// and cached. Safe to call from several threads on a published set.
    Extent extent() const;

    /// The bounds after the strands at `changedStrands` (ascending; repeats allowed) changed
    /// since `previous`: only the chunks holding them are computed again when previous has
    /// cached chunks of the same layout; otherwise the same as extent().
    Extent extentAfter(const StrandSet& previous, std::span<const std::size_t> changedStrands) const;

    /// A 64-bit hash of the whole content by bits (0.0 and -0.0 differ): equal fingerprints
    /// tell that two evaluations gave the same strands.
    std::uint64_t fingerprint() const;
    /// Whether the two sets hold the same content by bits, as equal fingerprints would say,
    /// found by comparing arrays (shared arrays at once) rather than hashing them: the cheap
    /// way to learn that a re-run gave what it gave before.
    bool sameContent(const StrandSet& other) const;

    /// Calls visitor(const void* data, std::size_t bytes) for ids, roots, offsets, points,
    /// widths, then every strand channel and every point channel in name order, skipping
    /// empty arrays.
    template <class Visitor>
    void forEachBlock(Visitor&& visitor) const {
        const auto visit = [&visitor](const void* data, std::size_t bytes) {
            if (bytes != 0) visitor(data, bytes);
        };
        visit(ids_.data(), ids_.size() * sizeof(std::uint64_t));
        visit(roots_.data(), roots_.size() * sizeof(StrandRoot));
        visit(offsets_.data(), offsets_.size() * sizeof(std::uint64_t));
        visit(points_.data(), points_.size() * sizeof(Vec3f));
        visit(widths_.data(), widths_.size() * sizeof(float));
        for (const auto& [name, channel] : strandChannels_) visit(channel.values().data(), channel.size() * sizeof(float));
        for (const auto& [name, channel] : pointChannels_) visit(channel.values().data(), channel.size() * sizeof(float));
    }

    /// The bytes of all arrays, as forEachBlock visits them.
    std::size_t byteSize() const;

    /// The number of extent chunks for the current strand count.
    std::size_t chunkCount() const noexcept { return (strandCount() + kExtentChunk - 1) / kExtentChunk; }

private:
    void dropCaches();
    std::span<float> writableChannel(ChannelMap& channels, std::string_view name, const char* kind);
    static bool removeChannel(ChannelMap& channels, std::string_view name);
    std::span<float> ensureChannel(ChannelMap& channels, std::string_view name, float defaultValue, std::size_t size);
    void storeCaches(std::shared_ptr<const Extent> overall, std::shared_ptr<const std::vector<Extent>> chunks) const;
    void copyFrom(const StrandSet& other, bool steal);
    void mergePointChannels(const StrandSet& other, std::size_t oldStrands, std::size_t oldPoints);
    void mergeStrandChannels(const StrandSet& other, std::size_t oldStrands);

    CowArray<std::uint64_t> ids_;
    CowArray<StrandRoot> roots_;
    CowArray<std::uint64_t> offsets_;
    CowArray<Vec3f> points_;
    CowArray<float> widths_;
    ChannelMap strandChannels_;
    ChannelMap pointChannels_;
    std::shared_ptr<const InstanceSet> instances_;

    // Guards the caches and every handle's change to owned; taken before a pool's mutex.
    mutable std::mutex mutex_;
    mutable std::shared_ptr<const Extent> extent_;
    mutable std::shared_ptr<const std::vector<Extent>> chunkExtents_;
    mutable std::atomic<bool> cachesValid_{false};
};

}  // namespace tressora
