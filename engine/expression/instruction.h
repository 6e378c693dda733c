#pragma once
// The compiled form of an expression: a flat array of 12-byte stack-machine
// instructions. The numbering of operations and binary codes is part of the
// engine's compiled-expression format and must not change.

#include <cstddef>
#include <cstdint>

namespace tressora {

/// What one instruction does. The stack holds floats; a vector is three of them.
enum class ExpressionOp : std::uint8_t {
    PushConst = 0,     ///< push `value`
    PushVar = 1,       ///< push environment slot `code`
    PushChannel = 2,   ///< push read channel `index` for this element (0 when missing)
    Negate = 3,        ///< negate the top number
    Binary = 4,        ///< pop b, a; push a `code` b
    Call = 5,          ///< number function `code` on the top `count` floats; pushes one
    Select = 6,        ///< pop else, then, condition; push then when the condition is not 0
    NegateVector = 7,  ///< negate the top three floats
    BinaryVector = 8,  ///< `code` per component; `count` bit 0: left is a vector, bit 1: right is
    SelectVector = 9,  ///< pop condition, then vector, else vector; push the chosen vector
    CallVector = 10,   ///< vector function `code` on the top `count` floats; pushes three
    Component = 11,    ///< replace the top vector by its component `code`
    Splat = 12,        ///< replace the top number by three copies of it
    // Scripts only: locals live in an array of float slots, and control flow jumps to an
    // instruction's position in its block.
    StoreLocal = 13,   ///< pop `count` floats (1 or 3) into locals from slot `index`
    LoadLocal = 14,    ///< push `count` floats (1 or 3) from locals at slot `index`
    Jump = 15,         ///< go on at position `index`
    JumpIfZero = 16,   ///< pop a number; when it is 0, go on at position `index`
    LoopTest = 17,     ///< unless counter slot `count` < the bound, go on at `index`; the bound is
                       ///< `value` (`code` 0) or local slot `value` (`code` 1)
    LoopStep = 18,     ///< counter slot `count` + 1, charge `value` steps, go on at `index`
    ScriptCall = 19,   ///< script function `code` on the top `count` floats; pushes three
};

/// The `code` of Binary and BinaryVector instructions.
enum class BinaryCode : std::uint8_t {
    Add = 0,
    Subtract = 1,
    Multiply = 2,
    Divide = 3,
    Power = 4,
    Less = 5,
    LessEqual = 6,
    Greater = 7,
    GreaterEqual = 8,
    Equal = 9,
    NotEqual = 10,
    Remainder = 11,
};

/// One instruction: 12 bytes, a plain value.
struct ExpressionInstr {
    ExpressionOp op = ExpressionOp::PushConst;
    std::uint8_t code = 0;
    std::uint16_t count = 0;
    std::uint32_t index = 0;
    float value = 0.0f;

    constexpr bool operator==(const ExpressionInstr&) const = default;
};
static_assert(sizeof(ExpressionInstr) == 12, "an expression instruction is 12 bytes");

/// The largest program an expression may compile to.
inline constexpr std::size_t kMaxExpressionInstructions = 1048576;
/// The evaluation stack, in floats.
inline constexpr int kExpressionStackSize = 128;

}  // namespace tressora
