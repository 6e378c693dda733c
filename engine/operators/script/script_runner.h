#pragma once
// Running a compiled script over a set of strands: the per strand block once for each strand,
// then the per point block for each point from the root up, strands in parallel, each worker
// with its own locals. The strands coming in are only read; what the script writes goes into
// a copy.

#include <memory>
#include <string>
#include <vector>

#include "core/guide_set.h"
#include "core/scalp_mesh.h"
#include "core/strand_set.h"
#include "expression/script.h"
#include "maps/scalar_field.h"
#include "maps/strand_environment.h"

namespace tressora {

/// The values of a script's params for one run, in the order of the program's params: a
/// constant (a number in x, or a colour), or for a mapped number the field it reads; and the
/// ramps' curves in the order of their ramp index.
struct ScriptParamValues {
    std::vector<Vec3f> constants;
    std::vector<std::shared_ptr<const ScalarField>> fields;
    std::vector<ExpressionCurve> ramps;
};

struct ScriptRunResult {
    std::shared_ptr<const StrandSet> strands;
    std::vector<std::string> notes;
};

/// Runs `program` over `strands`. `guides` answers guidePoint (null: the strand itself),
/// `scalp` scalpNormal and closestOnScalp (null: the point itself and the root's normal).
/// `who` names the node in notes ("script node 'wave'"). Throws GraphError when a channel the
/// script writes exists on the strands coming in as the other kind.
ScriptRunResult runScript(const ScriptProgram& program, const std::shared_ptr<const StrandSet>& strands,
                          const GuideSet* guides, const ScalpMesh* scalp, const ScriptParamValues& params,
                          const ExpressionEnvironment& base, const BoundMaps* maps, const std::string& who);

}  // namespace tressora
