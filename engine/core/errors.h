#pragma once
// One exception class per layer. Each carries a finished sentence for the user that says,
// where it can, how to put the problem right. Misuse of an argument is std::invalid_argument.

#include <stdexcept>
#include <string>

namespace tressora {

#define TRESSORA_ERROR_CLASS(Name)                                          \
    class Name : public std::runtime_error {                                \
    public:                                                                 \
        explicit Name(const std::string& message) : std::runtime_error(message) {} \
    }

TRESSORA_ERROR_CLASS(GraphError);       ///< node graph: ports, params, wiring, evaluation invariants
TRESSORA_ERROR_CLASS(GroomFileError);   ///< reading or writing a .groom file
TRESSORA_ERROR_CLASS(SchemaError);      ///< a JSON document's format or version
TRESSORA_ERROR_CLASS(ExpressionError);  ///< expression compile errors, with line and column
TRESSORA_ERROR_CLASS(TextureError);     ///< image files and the texture cache
TRESSORA_ERROR_CLASS(AlembicError);     ///< Alembic archives
TRESSORA_ERROR_CLASS(UsdError);         ///< USD text output
TRESSORA_ERROR_CLASS(VrsceneError);     ///< V-Ray scene output
TRESSORA_ERROR_CLASS(ToolError);        ///< agent tools
TRESSORA_ERROR_CLASS(MeshFileError);    ///< .obj and .abc mesh files

#undef TRESSORA_ERROR_CLASS

}  // namespace tressora
