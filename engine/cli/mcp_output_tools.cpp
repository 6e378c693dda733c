// The agent tools that run a groom and write it out: evaluate, render_preview, save_groom and
// export. Files go only under the server's folder, each through a temporary file that replaces
// the target when whole; an export is the same export the command line's eval runs.

#include "cli/mcp_output_tools.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <optional>
#include <tuple>

#include "cli/base64.h"
#include "cli/driver.h"
#include "cli/mcp_tools.h"
#include "groom/groom_export.h"
#include "groom/groom_file.h"
#include "io/preview_renderer.h"

namespace tressora::cli {
namespace fs = std::filesystem;

namespace {

constexpr std::uint64_t kMaxAgentExportFrames = 1000;

std::string lowerExtension(const std::string& path) {
    std::string ext = fs::path(path).extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return ext;
}

/// The frame and density arguments of evaluate and render_preview: a given frame becomes the
/// groom's frame for good.
float takeFrameAndDensity(OpenGroom& groom, const nlohmann::json& args) {
    if (args.contains("frame")) groom.frame = args["frame"].get<double>();
    const double density = args.value("density", 1.0);
    if (!(density >= 0.0 && density <= 1.0)) throw ToolError("density must be 0 to 1");
    return static_cast<float>(density);
}

ToolResult evaluate(McpTools& tools, const nlohmann::json& args) {
    OpenGroom& groom = tools.findGroom(args);
    const float density = takeFrameAndDensity(groom, args);
    nlohmann::json result = tools.summary(groom, density, args.value("node", std::string()), true);
    result["groom"] = groom.name;
    result["frame"] = groom.frame;
    return McpTools::answer(result);
}

ToolResult renderPreviewTool(McpTools& tools, const nlohmann::json& args) {
    OpenGroom& groom = tools.findGroom(args);
    const float density = takeFrameAndDensity(groom, args);
    PreviewRequest request;
    request.views = {"three_quarter"};
    if (args.contains("views")) {
        request.views.clear();
        for (const nlohmann::json& v : args["views"]) {
            if (!v.is_string()) throw ToolError("views are names: front, side, back, three_quarter, top");
            request.views.push_back(v.get<std::string>());
        }
    }
    request.size = static_cast<int>(std::clamp<std::int64_t>(args.value("size", std::int64_t{512}), -1, 1 << 20));
    const std::int64_t maxStrands = args.value("max_strands", std::int64_t{50000});
    request.maxStrands = static_cast<std::uint64_t>(std::clamp<std::int64_t>(maxStrands, 100, 300000));
    std::string saveTo;
    if (args.contains("save_to")) {
        saveTo = tools.pathForWriting(args["save_to"].get<std::string>());
        if (lowerExtension(saveTo) != ".png") throw ToolError("save_to must be a .png file");
    }

    GroomSession& session = *groom.session;
    request.zUp = session.scene().upAxis == "Z";
    nlohmann::json errors = nlohmann::json::array();
    std::shared_ptr<const StrandSet> strands;
    try {
        session.setFrame(groom.frame);
        EvalRequest eval;
        eval.frame = groom.frame;
        eval.density = density;
        eval.node = args.value("node", std::string());
        strands = session.evaluate(eval);
    } catch (const std::exception& e) {
        errors.push_back(e.what());
    }
    const std::shared_ptr<const ScalpMesh> scalp = session.scalp();
    const PreviewImage image = renderPreview(strands.get(), scalp.get(), request);

    nlohmann::json info = {{"groom", groom.name},     {"views", request.views},    {"width", image.width},
                           {"height", image.height},  {"columns", image.columns},  {"strands", image.strands},
                           {"strandsDrawn", image.strandsDrawn}};
    if (image.stride > 1)
        info["note"] = "drew 1 in " + std::to_string(image.stride) + " strands (max_strands " +
                       std::to_string(request.maxStrands) + "): the preview looks thinner than the groom";
    if (!errors.empty()) info["errors"] = errors;
    if (!saveTo.empty()) {
        McpTools::writeFile(saveTo, std::string_view(reinterpret_cast<const char*>(image.png.data()), image.png.size()));
        info["saved"] = tools.shownPath(saveTo);
    }
    ToolResult result = McpTools::answer(info);
    const nlohmann::json picture = {{"type", "image"}, {"data", base64(image.png)}, {"mimeType", "image/png"}};
    result.content.insert(result.content.begin(), picture);
    return result;
}

ToolResult saveGroom(McpTools& tools, const nlohmann::json& args) {
    OpenGroom& groom = tools.findGroom(args);
    const std::string path = tools.pathForWriting(args.at("path").get<std::string>());
    if (lowerExtension(path) != ".groom") throw ToolError("a groom file ends in .groom");
    writeGroom(path, groom.session->document());
    groom.path = path;
    std::error_code error;
    const std::uintmax_t bytes = fs::file_size(path, error);
    return McpTools::answer({{"groom", groom.name}, {"path", tools.shownPath(path)}, {"bytes", error ? 0 : bytes}});
}

/// A whole text as a finite number, or nothing.
std::optional<double> numberText(std::string_view text) {
    double value = 0.0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || fault != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) return {};
    return value;
}

/// "12", "1-24" or "-5--1": a leading "-" is the first number's sign.
std::pair<double, double> frameRange(const std::string& text) {
    const std::size_t dash = text.find('-', text.starts_with('-') ? 1 : 0);
    const std::optional<double> first = numberText(std::string_view(text).substr(0, dash));
    const std::optional<double> last =
        dash == std::string::npos ? first : numberText(std::string_view(text).substr(dash + 1));
    if (!first || !last) throw ToolError("frames is a frame (\"12\") or a range (\"1-24\")");
    return {*first, *last};
}

ToolResult exportCurves(McpTools& tools, const nlohmann::json& args) {
    OpenGroom& groom = tools.findGroom(args);
    const std::string path = tools.pathForWriting(args.at("path").get<std::string>());
    double start = groom.frame, end = groom.frame;
    if (args.contains("frames")) {
        const nlohmann::json& frames = args["frames"];
        if (frames.is_number()) start = end = frames.get<double>();
        else std::tie(start, end) = frameRange(frames.get<std::string>());
    }
    ExportRequest request;
    request.output = path;
    request.start = start;
    request.end = end;
    request.step = args.value("step", 1.0);
    request.density = static_cast<float>(args.value("density", 1.0));
    request.scales = args.value("scales", std::string("mesh"));
    if (!(request.density >= 0.0f && request.density <= 1.0f)) throw ToolError("density must be 0 to 1");
    request.application = std::string("tressora-cli ") + kVersion;
    if (request.step > 0.0 && end >= start && exportFrameCount(start, end, request.step) > kMaxAgentExportFrames)
        throw ToolError("at most 1000 frames in one export");

    const auto started = std::chrono::steady_clock::now();
    const ExportResult written = exportFrames(*groom.session, request);
    const auto micros =
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - started).count();
    const std::string ext = lowerExtension(path);
    const char* format = ext == ".vrscene" ? "vrscene" : (ext == ".abc" ? "alembic" : "usd");
    return McpTools::answer({{"groom", groom.name},
                             {"path", tools.shownPath(path)},
                             {"format", format},
                             {"frames", written.frames},
                             {"strandsPerFrame", written.frames ? written.strands / written.frames : 0},
                             {"ms", static_cast<std::int64_t>(std::llround(static_cast<double>(micros) / 1000.0))}});
}

nlohmann::json densityField(const char* description) { return field("number", description); }

}  // namespace

void registerOutputTools(McpTools& tools) {
    tools.add({"evaluate", "Evaluate",
               "Evaluates the groom and reports strand and point counts, guides, bounds, errors, the nodes' notes and the "
               "slowest nodes' milliseconds. Every changing tool already answers with a summary; this one adds timings, a "
               "frame, a density and a node to look at instead of the output.",
               objectSchema({{"groom", groomField()},
                             {"frame", field("number", "The frame (default the groom's, 1).")},
                             {"density", densityField("Share of strands to evaluate, 0-1 (default 1).")},
                             {"node", field("string", "Evaluate up to this node instead of the output.")}}),
               evaluate});
    nlohmann::json views = field("array", "Views to draw, laid out in a grid: front, side (from +X), back, three_quarter, "
                                          "top. Default [\"three_quarter\"].");
    views["items"] = {{"type", "string"}, {"enum", {"front", "side", "back", "three_quarter", "top"}}};
    tools.add({"render_preview", "Render a preview",
               "Draws the groom as a PNG image you can look at: the scalp shaded and the strands as lines in the hair's "
               "color, from one or several views in a grid. A simple CPU preview (no lighting model or shadows), not a "
               "render: use it to check shape, length, direction and color. Big grooms are thinned to max_strands.",
               objectSchema({{"groom", groomField()},
                             {"views", views},
                             {"size", field("integer", "The image's width in pixels (64-1024, default 512).")},
                             {"max_strands", field("integer", "Draw at most about this many strands (default 50000).")},
                             {"frame", field("number", "The frame.")},
                             {"density", densityField("Share of strands, 0-1 (default 1).")},
                             {"node", field("string", "Draw this node's strands instead of the output's.")},
                             {"save_to", field("string", "Also write the PNG to this file inside the server's folder.")}}),
               renderPreviewTool});
    tools.add({"save_groom", "Save a groom file",
               "Saves the groom as a .groom file (graph, guides, scalp) that Maya, the app, Blender, tressora-cli and the "
               "render procedurals open.",
               objectSchema({{"groom", groomField()},
                             {"path", field("string", "The .groom file, relative to the server's folder.")}},
                            {"path"}),
               saveGroom});
    nlohmann::json scales = field("string", "How scales are written (USD instancer); default mesh.");
    scales["enum"] = {"mesh", "instancer", "both", "none"};
    tools.add({"export", "Export curves",
               "Writes the groom's strands as curves to Alembic (.abc) or USD (.usda, .usd) over a frame range, as "
               "tressora-cli eval does: widths, root UVs, colors and channels; or as a V-Ray scene (.vrscene: the hair "
               "and its V-Ray hair shader).",
               objectSchema({{"groom", groomField()},
                             {"path", field("string", "The output file: .abc, .usda, .usd or .vrscene.")},
                             {"frames", {{"type", {"number", "string"}},
                                         {"description", "A frame (12) or a range (\"1-24\"); default the groom's frame."}}},
                             {"step", field("number", "Frames between samples (default 1).")},
                             {"density", densityField("Share of strands, 0-1 (default 1).")},
                             {"scales", scales}},
                            {"path"}),
               exportCurves});
}

}  // namespace tressora::cli
