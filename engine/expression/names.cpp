#include "expression/names.h"

#include "expression/environment.h"

namespace tressora::exprc {
namespace {

constexpr std::string_view kSlotNames[kExpressionSlotCount] = {
    "u", "v", "x", "y", "z", "nx", "ny", "nz", "rand", "index", "length",
    "longest", "reach", "straightness", "lift", "tipx", "tipy", "tipz", "t", "pt", "px",
    "py", "pz", "pointIndex", "frame", "time", "id", "faceId", "prefx", "prefy", "prefz",
};

struct VectorName {
    std::string_view name;
    std::uint8_t first;
};
constexpr VectorName kVectorNames[] = {
    {"P", kSlotX}, {"N", kSlotNx}, {"Pref", kSlotPrefX}, {"tip", kSlotTipX}, {"pointP", kSlotPx},
};

struct Pair {
    std::string_view name;
    std::string_view text;
};
constexpr Pair kAliases[] = {
    {"cLength", "length"}, {"faceid", "faceId"}, {"Pg", "P"},         {"Pw", "P"},
    {"Pgw", "P"},          {"Ng", "N"},          {"Prefg", "Pref"},   {"Prefw", "Pref"},
    {"Prefgw", "Pref"},    {"F", "frame"},
};

constexpr std::string_view kDerivatives =
    "XGen's surface derivatives ($dPdu, $dPdv) are not available: build a direction from $N, e.g. "
    "cross($N, [0, 1, 0])";

constexpr Pair kMessages[] = {
    {"Nref", "XGen's $Nref (the reference normal) has no Tressora equivalent: $N is the scalp's normal"},
    {"Nrefg", "XGen's $Nrefg (the reference normal) has no Tressora equivalent: $N is the scalp's normal"},
    {"dPdu", kDerivatives},
    {"dPdv", kDerivatives},
    {"dPdug", kDerivatives},
    {"dPdvg", kDerivatives},
    {"dPduref", kDerivatives},
    {"dPdvref", kDerivatives},
    {"dPdurefg", kDerivatives},
    {"dPdvrefg", kDerivatives},
    {"cWidth", "XGen's $cWidth has no Tressora equivalent: the Width node sets the width, and no variable reads it"},
    {"cDepth", "XGen's $cDepth (a card's depth) has no Tressora equivalent"},
    {"aCount", "XGen's $aCount (archives) has no Tressora equivalent"},
    {"descId", "XGen's $descId has no Tressora equivalent (an expression belongs to one groom)"},
    {"patchId", "XGen's $patchId has no Tressora equivalent (a groom has one scalp): $faceId is the root's triangle"},
    {"objectId", "XGen's $objectId has no Tressora equivalent (a groom has one scalp): $faceId is the root's triangle"},
    {"Cs", "XGen's $Cs (the region color) has no Tressora equivalent: read a painted map with cmap(\"name\")"},
    {"As", "XGen's $As (the region alpha) has no Tressora equivalent: read a painted map with map(\"name\")"},
    {"DESC", "${DESC} means something only inside an XGen map path, map('${DESC}/paintmaps/name/')"},
};

template <class Table>
std::string_view lookUp(const Table& table, std::string_view name) {
    for (const Pair& p : table) {
        if (p.name == name) return p.text;
    }
    return {};
}

}  // namespace

std::optional<std::uint8_t> slotOfName(std::string_view name) {
    for (std::uint8_t i = 0; i < kExpressionSlotCount; ++i) {
        if (kSlotNames[i] == name) return i;
    }
    return std::nullopt;
}

std::optional<std::uint8_t> vectorSlotOfName(std::string_view name) {
    for (const VectorName& v : kVectorNames) {
        if (v.name == name) return v.first;
    }
    return std::nullopt;
}

std::string_view aliasTarget(std::string_view name) { return lookUp(kAliases, name); }

std::string_view xgenNameMessage(std::string_view name) { return lookUp(kMessages, name); }

}  // namespace tressora::exprc
