#pragma once
// The command line of `eval`: the option scan and the checks that follow it. Every fault of
// the command line is std::invalid_argument, so the driver shows the usage and exits with 2.

#include <string>

namespace tressora::cli {

struct EvalOptions {
    std::string groom;
    std::string output;
    double start = 1.0;
    double end = 1.0;
    double step = 1.0;
    float density = 1.0f;
    bool timings = false;
    bool stats = false;
    std::string scales = "mesh";
    std::string layout = "neutral";
};

/// Scans argv[2..] and checks the result. std::invalid_argument: "<option> needs a value",
/// "unknown option <arg>", "unexpected argument <arg>", "bad frame range", "--scales must be
/// mesh, instancer, both or none", "invalid stod argument" / "invalid stof argument", then the
/// checks in order: "eval needs a groom file and -o <output>", "--step must be positive" (also
/// for a step that is not finite), "the end frame is before the start frame", "bad frame range"
/// (a frame that is not finite, or a range with more frames than an export can number),
/// "--density must be between 0 and 1", "the output must be .abc, .usda or .vrscene", "an
/// instancer goes to USD", "--layout unreal writes Alembic: the output must be .abc".
/// "--layout must be neutral or unreal" is thrown by the scan. A number too large for its
/// type is std::out_of_range "stod argument out of range" / "stof argument out of range".
EvalOptions parseEvalOptions(int argc, char** argv);

}  // namespace tressora::cli
