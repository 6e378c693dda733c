// Running one block of a compiled script on the machine that runs expressions.

#include "expression/run_loop.h"
#include "expression/script.h"

namespace tressora {

bool runScriptBlock(const ScriptBlock& block, float* locals, const ExpressionEnvironment& env,
                    std::span<const ExpressionCurve> curves, std::span<const MapProbe> probes,
                    const ScriptFunctions& functions) {
    float stack[kExpressionStackSize + 1];
    exprc::ScriptMachine machine;
    machine.locals = locals;
    machine.begin = block.code.data();
    machine.functions = &functions;
    machine.budget = kScriptStepBudget;
    exprc::run(block.code.data(), block.code.data() + block.code.size(), env, exprc::ProgramTables{curves, probes},
               stack, machine);
    return !machine.overrun;
}

}  // namespace tressora
