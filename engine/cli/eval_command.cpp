#include "cli/eval_command.h"

#include <chrono>
#include <ostream>

#include "cli/driver.h"
#include "cli/eval_options.h"
#include "groom/groom_export.h"
#include "groom/groom_file.h"
#include "groom/scene_caches.h"

namespace tressora::cli {

int evalCommand(int argc, char** argv, std::ostream& out, std::ostream&) {
    const EvalOptions options = parseEvalOptions(argc, argv);
    const auto started = std::chrono::steady_clock::now();

    GroomScene scene = readGroom(options.groom);
    attachSceneCaches(scene);
    GroomSession session(std::move(scene));

    ExportRequest request;
    request.output = options.output;
    request.start = options.start;
    request.end = options.end;
    request.step = options.step;
    request.density = options.density;
    request.scales = options.scales;
    request.layout = options.layout;
    request.progress = &out;
    request.stats = options.stats;
    request.timings = options.timings;
    request.application = std::string("tressora-cli ") + kVersion;
    const ExportResult result = exportFrames(session, request);

    const auto ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started).count();
    out << "wrote " << result.frames << " frame(s), " << (result.frames ? result.strands / result.frames : 0)
        << " strands per frame on average, to " << options.output << " in " << ms << " ms\n";
    return 0;
}

}  // namespace tressora::cli
