#pragma once
// Scripts: the expression language with statements, real locals, branches and bounded loops,
// compiled into two instruction lists (per strand and per point) that run over the strands
// of a Script node. A script always finishes: loop bounds are fixed when it compiles and a
// run has a step budget.

#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "expression/curves.h"
#include "expression/expression.h"
#include "expression/instruction.h"

namespace tressora {

/// A compile fault of a script, with its line and column (both from 1).
class ScriptError : public std::runtime_error {
public:
    ScriptError(const std::string& message, int line, int column);
    const std::string& message() const { return message_; }
    int line() const { return line_; }
    int column() const { return column_; }

private:
    std::string message_;
    int line_ = 1;
    int column_ = 1;
};

/// The types a script node's param may have.
enum class ScriptParamType : std::uint8_t { Number, Length, Int, Bool, Enum, Color, Ramp };

/// "number", "length", ... as written in a node file's header; nothing for another word.
std::optional<ScriptParamType> scriptParamType(std::string_view word);

/// A param of the header, as far as compiling needs it.
struct ScriptParamDecl {
    std::string name;
    ScriptParamType type = ScriptParamType::Number;
    std::optional<double> min;
    std::optional<double> max;
};

enum class ScriptBlockKind : std::uint8_t { Strand = 0, Point = 1 };

inline constexpr std::uint32_t kNoScriptSlot = std::numeric_limits<std::uint32_t>::max();
/// The most instructions one block compiles to.
inline constexpr std::size_t kMaxScriptInstructions = 65534;
/// The most float slots a script's locals, params and outputs take.
inline constexpr std::size_t kMaxScriptSlots = 65535;
/// The largest loop bound.
inline constexpr int kMaxLoopBound = 100000;
/// The steps one run of a block may take for one strand or one point.
inline constexpr std::uint64_t kScriptStepBudget = std::uint64_t{1} << 22;

/// The functions scripts have beside the library (ScriptCall's `code`).
enum ScriptFunction : std::uint8_t {
    kScriptStrandPoint = 0,
    kScriptGuidePoint = 1,
    kScriptScalpNormal = 2,
    kScriptClosestOnScalp = 3,
};

/// What a script assigns: "P", "width", "color" or "channel.<name>", held in local slots
/// from `slot` while a block runs.
struct ScriptOutput {
    std::string name;
    std::uint32_t slot = kNoScriptSlot;
    int width = 1;
    bool written = false;
    bool listed = true;  ///< in the header's writes (false: width or color only read)
    ScriptBlockKind kind = ScriptBlockKind::Point;  ///< the block that writes it
    /// The channel's name for "channel.<name>", else empty.
    std::string channel() const { return name.rfind("channel.", 0) == 0 ? name.substr(8) : std::string(); }
};

/// A param as the program reads it: slots from `slot`, one or three (a colour); a ramp has
/// no slot but a curve, `ramp`, counted after the program's own curves.
struct ScriptParamSlot {
    std::string name;
    ScriptParamType type = ScriptParamType::Number;
    std::uint32_t slot = kNoScriptSlot;
    int ramp = -1;
    std::optional<double> min;
    std::optional<double> max;
};

struct ScriptBlock {
    bool present = false;
    std::vector<ExpressionInstr> code;
    int maxStack = 0;
};

/// A compiled script. Immutable; shared by every worker of a run.
struct ScriptProgram {
    ScriptBlock strand;
    ScriptBlock point;
    std::uint32_t slotCount = 0;
    std::vector<ScriptOutput> outputs;  ///< every entry of `writes`, in its order
    std::vector<ScriptParamSlot> params;
    std::uint32_t prevSlot = kNoScriptSlot;  ///< prev.P, when read
    std::vector<std::string> readChannels;   ///< PushChannel's table
    std::vector<std::string> mapNames;
    std::vector<MapProbe> mapProbes;
    std::vector<ExpressionCurve> curves;  ///< the curves of curve() calls; ramps come after
    ExpressionUses uses;
    bool readsTime = false;
    bool callsGuidePoint = false;
    bool callsScalp = false;

    const ScriptOutput* output(std::string_view name) const;
};

/// The script functions as a run answers them (the strand coming in, its guide, the scalp).
class ScriptFunctions {
public:
    /// Script function `code` on `count` argument floats; writes three floats to out.
    virtual void call(std::uint8_t code, const float* args, int count, float* out) const = 0;

protected:
    ~ScriptFunctions() = default;
};

/// Compiles a script against its header. Throws ScriptError.
ScriptProgram compileScript(std::string_view text, std::span<const ScriptParamDecl> params,
                            std::span<const std::string> writes);

/// Runs one block with the given locals (program.slotCount floats) and environment. The
/// tables are the program's curves followed by the ramps' curves. False when the block ran
/// past its step budget and stopped there. Allocates nothing.
bool runScriptBlock(const ScriptBlock& block, float* locals, const ExpressionEnvironment& env,
                    std::span<const ExpressionCurve> curves, std::span<const MapProbe> probes,
                    const ScriptFunctions& functions);

}  // namespace tressora
