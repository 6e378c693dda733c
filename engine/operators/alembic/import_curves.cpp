#include "operators/alembic/import_curves.h"

#include <cmath>
#include <filesystem>
#include <memory>
#include <mutex>

#include "core/errors.h"
#include "core/hash.h"
#include "core/strand_resample.h"
#include "graph/operator_registry.h"
#include "io/alembic_curves_reader.h"

namespace tressora {
namespace {

/// The file's modification time as a number that changes when the file does; 0 when missing.
std::uint64_t fileStamp(const std::string& path) {
    std::error_code error;
    const auto time = std::filesystem::last_write_time(path, error);
    return error ? 0 : static_cast<std::uint64_t>(time.time_since_epoch().count());
}

ParamSpec textParam(const char* name, const char* description) {
    ParamSpec spec;
    spec.name = name;
    spec.defaultValue = std::string();
    spec.description = description;
    return spec;
}

class ImportCurvesOperator final : public Operator {
public:
    std::string type() const override { return "ImportCurves"; }
    std::string role() const override { return "source"; }
    std::vector<Port> inputs() const override { return {}; }

    std::vector<ParamSpec> params() const override {
        ParamSpec samples;
        samples.name = "samples";
        samples.defaultValue = std::int64_t{24};
        samples.description = "Points per guide after resampling (0: keep as read)";
        samples.softMin = 0;
        return {textParam("path", "Alembic file with guide curves"),
                textParam("object", "Only curves under this object name (empty: all)"), samples};
    }

    std::uint64_t externalStamp() const override { return fileStamp(paramValues.getString("path", "")); }

    // The frame picks the sample, so it enters the key.
    std::uint64_t contextStamp(const NodeKeyLookup&, int, const EvalContext& context) const override {
        return combine(hash64(doubleBits(context.frame)), doubleBits(context.fps));
    }

    Value evaluate(EvalContext& context, const std::vector<Value>&) override {
        const std::string path = paramValues.getString("path", "");
        if (path.empty()) {
            context.addNote("no Alembic file chosen: set path");
            return Value(std::make_shared<const StrandSet>());
        }
        const std::shared_ptr<const ReadCurves> curves = read(path, paramValues.getString("object", ""));
        if (curves->samples.empty()) {
            context.addNote("'" + path + "' has no samples of curves");
            return Value(std::make_shared<const StrandSet>());
        }
        const ReadCurvesSample& sample = nearest(*curves, context.frame / context.fps);

        // Strands of fewer than 2 points are left out; the rest optionally resampled.
        const StrandSet& read = sample.strands;
        std::vector<std::size_t> kept;
        for (std::size_t i = 0; i < read.strandCount(); ++i)
            if (read.pointRange(i).size() >= 2) kept.push_back(i);
        StrandSet strands = kept.size() == read.strandCount() ? read : read.subset(kept);
        const std::int64_t count = paramValues.getInt("samples", 24);
        if (count >= 2) strands = resampleStrands(strands, static_cast<std::size_t>(count));
        return Value(std::make_shared<const StrandSet>(std::move(strands)));
    }

    void adoptState(Operator& previous) override {
        auto* other = dynamic_cast<ImportCurvesOperator*>(&previous);
        if (!other) return;
        std::scoped_lock lock(mutex_, other->mutex_);
        cache_ = other->cache_;
    }

private:
    struct Cached {
        std::string path, object;
        std::uint64_t stamp = 0;
        std::shared_ptr<const ReadCurves> curves;
    };

    /// The file's curves, read once per path, object and modification time.
    std::shared_ptr<const ReadCurves> read(const std::string& path, const std::string& object) {
        const std::uint64_t stamp = fileStamp(path);
        {
            std::lock_guard lock(mutex_);
            if (cache_.curves && cache_.path == path && cache_.object == object && cache_.stamp == stamp)
                return cache_.curves;
        }
        std::shared_ptr<const ReadCurves> curves;
        try {
            curves = std::make_shared<const ReadCurves>(readAlembicCurves(path, object));
        } catch (const std::exception& e) {
            throw GraphError(std::string("ImportCurves: ") + e.what());
        }
        std::lock_guard lock(mutex_);
        cache_ = {path, object, stamp, curves};
        return curves;
    }

    static const ReadCurvesSample& nearest(const ReadCurves& curves, double time) {
        std::size_t best = 0;
        for (std::size_t i = 1; i < curves.samples.size(); ++i)
            if (std::abs(curves.samples[i].time - time) < std::abs(curves.samples[best].time - time)) best = i;
        return curves.samples[best];
    }

    std::mutex mutex_;
    Cached cache_;
};

}  // namespace

void registerImportCurvesOperator(OperatorRegistry& registry) {
    OperatorInfo info;
    info.category = "source";
    info.description = "Curves from an Alembic file, as strands or guides.";
    info.keywords = "alembic abc curves file";
    registry.add("ImportCurves", std::move(info), [] { return std::make_unique<ImportCurvesOperator>(); });
}

void registerAlembicOperators(OperatorRegistry& registry) { registerImportCurvesOperator(registry); }

}  // namespace tressora
