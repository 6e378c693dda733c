// Feeds arbitrary text to the script compiler against a fixed header, and runs both blocks of
// whatever compiles in an environment of extreme values. A fault must be a ScriptError with a
// line and column; a program must fit its limits and finish within its step budget. (Locals may
// overflow to infinity on the way: the node makes what it writes finite.)

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "expression/script.h"

namespace {

using namespace tressora;

constexpr float kExtreme[] = {3e38f, -3e38f, 0.0f, -0.0f, 1e-45f, 0.5f, -7.25f, 1e7f, 12345.678f, 1.0f};
constexpr std::size_t kExtremeCount = sizeof(kExtreme) / sizeof(kExtreme[0]);

void check(bool ok) {
    if (!ok) std::abort();
}

/// Answers the script functions with the argument turned about, as a strand's points would be.
class Functions final : public ScriptFunctions {
public:
    void call(std::uint8_t code, const float* args, int count, float* out) const override {
        out[0] = args[0];
        out[1] = count == 3 ? args[2] : 1.0f;
        out[2] = static_cast<float>(code);
    }
};

const std::vector<ScriptParamDecl>& header() {
    static const std::vector<ScriptParamDecl> params = {
        {"amount", ScriptParamType::Length, 0.0, 5.0},
        {"count", ScriptParamType::Int, 0.0, 50.0},
        {"loose", ScriptParamType::Int, std::nullopt, std::nullopt},
        {"tint", ScriptParamType::Color, std::nullopt, std::nullopt},
        {"profile", ScriptParamType::Ramp, std::nullopt, std::nullopt},
        {"on", ScriptParamType::Bool, std::nullopt, std::nullopt},
    };
    return params;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    static const std::vector<std::string> writes = {"P", "width", "color", "channel.mass", "channel.tag"};
    ScriptProgram program;
    try {
        program = compileScript(text, header(), writes);
    } catch (const ScriptError& error) {
        check(!error.message().empty() && error.line() >= 1 && error.column() >= 1);
        return 0;
    }
    for (const ScriptBlock* block : {&program.strand, &program.point}) {
        check(block->code.size() <= kMaxScriptInstructions);
        check(block->maxStack <= static_cast<int>(kExpressionStackSize));
    }
    check(program.slotCount <= kMaxScriptSlots);

    std::vector<ExpressionCurve> curves = program.curves;
    const std::vector<CurveKey> ramp = {{0.0f, {0.0f, 0.0f, 0.0f}, CurveInterp::Linear},
                                        {1.0f, {1.0f, 0.0f, 0.0f}, CurveInterp::Linear}};
    for (const ScriptParamSlot& p : program.params)
        if (p.ramp >= 0) curves.emplace_back(ramp, 1);
    std::vector<float> locals(program.slotCount);
    for (std::size_t i = 0; i < locals.size(); ++i) locals[i] = kExtreme[(size + i) % kExtremeCount];
    ExpressionEnvironment env;
    for (std::size_t s = 0; s < env.slots.size(); ++s) env.slots[s] = kExtreme[(size + 3 * s) % kExtremeCount];
    const Functions functions;
    for (const ScriptBlock* block : {&program.strand, &program.point}) {
        if (!block->present) continue;
        runScriptBlock(*block, locals.data(), env, curves, program.mapProbes, functions);
    }
    return 0;
}
