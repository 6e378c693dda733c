#pragma once
// ImportCurves: strands read from the curves of an Alembic file, the sample nearest the frame.

namespace tressora {

class OperatorRegistry;

/// Adds the type "ImportCurves".
void registerImportCurvesOperator(OperatorRegistry& registry);

/// The Alembic family of node types (ImportCurves). The program's main calls it after the
/// built-ins, since the family reads files the built-ins never touch.
void registerAlembicOperators(OperatorRegistry& registry);

}  // namespace tressora
