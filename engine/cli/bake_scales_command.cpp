#include "cli/bake_scales_command.h"

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <ostream>
#include <sstream>
#include <stdexcept>

#include "cli/number_arguments.h"
#include "groom/groom_export.h"
#include "groom/groom_file.h"
#include "groom/groom_session.h"
#include "groom/prototypes_json.h"
#include "groom/scene_caches.h"
#include "io/png_writer.h"
#include "io/scale_maps.h"

namespace tressora::cli {
namespace {

struct BakeOptions {
    std::string groom;
    std::string prefix;
    double frame = 1.0;
    ScaleMapOptions maps;
};

Vec3f toColour(const std::string& text) {
    Vec3f c;
    const char* at = text.c_str();
    for (int k = 0; k < 3; ++k) {
        char* end = nullptr;
        c[k] = std::strtof(at, &end);
        if (end == at || !std::isfinite(c[k]) || (k < 2 && *end != ',') || (k == 2 && *end != '\0'))
            throw std::invalid_argument("--background needs r,g,b");
        at = end + 1;
    }
    return c;
}

BakeOptions parse(int argc, char** argv) {
    BakeOptions o;
    bool haveGroom = false;
    for (int i = 2; i < argc; ++i) {
        const std::string arg = argv[i];
        const auto value = [&]() -> std::string {
            if (i + 1 >= argc) throw std::invalid_argument(arg + " needs a value");
            return argv[++i];
        };
        if (arg == "-o" || arg == "--out") {
            o.prefix = value();
        } else if (arg == "-f" || arg == "--frame") {
            o.frame = argumentDouble(value());
            if (!std::isfinite(o.frame)) throw std::invalid_argument(arg + " must be a finite number");
        } else if (arg == "--resolution") {
            o.maps.resolution = argumentInt(value());
        } else if (arg == "--max-height") {
            o.maps.maxHeight = static_cast<float>(argumentDouble(value()));
        } else if (arg == "--padding") {
            o.maps.padding = argumentInt(value());
        } else if (arg == "--background") {
            o.maps.background = toColour(value());
        } else if (!arg.empty() && arg[0] == '-') {
            throw std::invalid_argument("unknown option " + arg);
        } else if (haveGroom) {
            throw std::invalid_argument("unexpected argument " + arg);
        } else {
            o.groom = arg;
            haveGroom = true;
        }
    }
    if (o.groom.empty() || o.prefix.empty()) throw std::invalid_argument("bake-scales needs a groom file and -o <prefix>");
    if (o.maps.resolution < 16 || o.maps.resolution > 8192)
        throw std::invalid_argument("the scale maps' resolution must be 16 to 8192");
    if (o.maps.padding < 0) throw std::invalid_argument("--padding must be 0 or more");
    return o;
}


}  // namespace

int bakeScalesCommand(int argc, char** argv, std::ostream& out, std::ostream&) {
    const BakeOptions o = parse(argc, argv);
    const auto started = std::chrono::steady_clock::now();
    GroomScene scene = readGroom(o.groom);
    attachSceneCaches(scene);
    GroomSession session(std::move(scene));
    session.setFrame(o.frame);
    const std::shared_ptr<const StrandSet> strands = session.evaluate(o.frame);
    const std::shared_ptr<const InstanceSet> instances = strands ? strands->instances() : nullptr;
    if (!instances || instances->instances.empty())
        throw std::runtime_error("the groom has no scales at frame " + frameText(o.frame));
    const ScaleMesh mesh = bakeScaleMesh(*instances, storedPrototypes(session.scene().prototypes));
    if (mesh.records.empty()) throw std::runtime_error("the groom has no scales at frame " + frameText(o.frame));
    if (!session.scalp()) throw std::runtime_error("the skin has no uvs to bake the scales onto");
    const ScaleMaps maps = bakeScaleMaps(mesh, *session.scalp(), o.maps);

    std::vector<PngImage> images;
    std::vector<std::string> paths;
    for (const ScaleTileMaps& tile : maps.tiles) {
        images.insert(images.end(), {tile.height, tile.normal, tile.colour});
        for (const char* map : {"ScaleHeight", "ScaleNormal", "ScaleColor"}) paths.push_back(scaleMapPath(o.prefix, map, tile.udim));
    }
    writeCompressedPngs(images, paths);

    std::string files;
    for (const std::string& path : paths) files += (files.empty() ? "" : ", ") + path;
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started).count();
    std::ostringstream covered;
    covered.precision(3);
    covered << maps.covered * 100.0;
    out << "wrote " << files << " for " << maps.scales << " scales, max height " << maps.maxHeight << ", "
        << covered.str() << "% of the skin covered, in " << ms << " ms\n";
    return 0;
}

}  // namespace tressora::cli
