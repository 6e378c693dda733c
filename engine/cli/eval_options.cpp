#include "cli/eval_options.h"

#include <cmath>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

#include "cli/number_arguments.h"
#include "groom/export_writers.h"
#include "groom/groom_export.h"

namespace tressora::cli {
namespace {

/// "<frame>" or "<start>-<end>", each read by strtod, the text used up exactly. Frames are
/// finite: "nan", "inf" and numbers beyond a double's range are no frame.
void parseFrames(const char* text, EvalOptions& o) {
    const auto bad = [] { return std::invalid_argument("bad frame range"); };
    char* end = nullptr;
    const double first = std::strtod(text, &end);
    if (end == text || !std::isfinite(first)) throw bad();
    if (*end == '\0') {
        o.start = o.end = first;
        return;
    }
    if (*end != '-') throw bad();
    const char* second = end + 1;
    const double last = std::strtod(second, &end);
    if (end == second || *end != '\0' || !std::isfinite(last)) throw bad();
    o.start = first;
    o.end = last;
}

}  // namespace

EvalOptions parseEvalOptions(int argc, char** argv) {
    EvalOptions o;
    bool haveGroom = false;
    for (int i = 2; i < argc; ++i) {
        const std::string arg = argv[i];
        const auto value = [&]() -> std::string {
            if (i + 1 >= argc) throw std::invalid_argument(arg + " needs a value");
            return argv[++i];
        };
        if (arg == "-o" || arg == "--out") {
            o.output = value();
        } else if (arg == "-f" || arg == "--frames") {
            const std::string text = value();
            parseFrames(text.c_str(), o);
        } else if (arg == "--step") {
            o.step = argumentDouble(value());
        } else if (arg == "--density") {
            o.density = argumentFloat(value());
        } else if (arg == "--timings") {
            o.timings = true;
        } else if (arg == "--stats") {
            o.stats = true;
        } else if (arg == "--scales") {
            o.scales = value();
            if (o.scales != "mesh" && o.scales != "instancer" && o.scales != "both" && o.scales != "none")
                throw std::invalid_argument("--scales must be mesh, instancer, both or none");
        } else if (arg == "--layout") {
            o.layout = value();
            if (o.layout != "neutral" && o.layout != "unreal")
                throw std::invalid_argument("--layout must be neutral or unreal");
        } else if (!arg.empty() && arg[0] == '-') {
            throw std::invalid_argument("unknown option " + arg);
        } else if (haveGroom) {
            throw std::invalid_argument("unexpected argument " + arg);
        } else {
            o.groom = arg;
            haveGroom = true;
        }
    }

    if (o.groom.empty() || o.output.empty()) throw std::invalid_argument("eval needs a groom file and -o <output>");
    if (!(o.step > 0.0) || !std::isfinite(o.step)) throw std::invalid_argument("--step must be positive");
    if (o.start > o.end) throw std::invalid_argument("the end frame is before the start frame");
    if (!exportFrameRangeUsable(o.start, o.end, o.step)) throw std::invalid_argument("bad frame range");
    if (!(o.density >= 0.0f && o.density <= 1.0f)) throw std::invalid_argument("--density must be between 0 and 1");
    if (!isExportPath(o.output)) throw std::invalid_argument("the output must be .abc, .usda or .vrscene");
    if ((o.scales == "instancer" || o.scales == "both") && !isUsdPath(o.output))
        throw std::invalid_argument("an instancer goes to USD");
    if (o.layout == "unreal" && !isAlembicPath(o.output))
        throw std::invalid_argument("--layout unreal writes Alembic: the output must be .abc");
    return o;
}

}  // namespace tressora::cli
