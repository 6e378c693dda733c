#include "graph/eval_context.h"

namespace tressora {

// Out of line on purpose: inlined into every operator, the vector's growth path made GCC 12
// warn falsely about the string moved into it, and bloated each caller for a cold path.
void EvalContext::addNote(std::string text) { notes.push_back(std::move(text)); }

}  // namespace tressora
