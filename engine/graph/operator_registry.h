#pragma once
// The registry of node types: creates nodes by type name and tells catalogues what exists.

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "graph/operator.h"

namespace tressora {

/// What a node type registers about itself.
struct OperatorInfo {
    std::string category;     ///< one of the category ids ("source", "grow", ...)
    std::string description;  ///< one sentence for catalogues and palettes
    std::string keywords;     ///< words separated by single blanks
    std::string label;        ///< display name; empty: the type name split at case changes
    bool hidden = false;      ///< left out of palettes; the type still exists and evaluates
};

class OperatorRegistry {
public:
    using Factory = std::function<std::unique_ptr<Operator>()>;

    /// The process-wide registry with every built-in type, built on first use (thread-safe).
    /// It is defined beside the list of built-ins, in the operators layer.
    static OperatorRegistry& instance();

    /// An empty registry (tests and tools fill their own).
    OperatorRegistry() = default;
    OperatorRegistry(const OperatorRegistry&) = delete;
    OperatorRegistry& operator=(const OperatorRegistry&) = delete;

    /// Adds a type. A name registered twice is a programming error (std::logic_error).
    void add(const std::string& name, OperatorInfo info, Factory factory);
    /// A new node of the type with every param at its default; GraphError
    /// "unknown operator type '<name>'" for a name not registered.
    std::unique_ptr<Operator> create(const std::string& name) const;
    bool contains(const std::string& name) const { return types_.count(name) != 0; }
    /// The type's info, or null when unknown.
    const OperatorInfo* info(const std::string& name) const;
    /// All type names in byte-wise sorted order.
    std::vector<std::string> names() const;

    /// The catalogue record of one registered type (throws GraphError when unknown).
    nlohmann::ordered_json catalogueRecord(const std::string& name) const;
    /// Every type's record, in name order.
    nlohmann::ordered_json catalogue() const;

private:
    struct Entry {
        OperatorInfo info;
        Factory factory;
    };
    std::map<std::string, Entry, std::less<>> types_;
};

/// The category ids in catalogue order, and their titles.
struct CategoryInfo {
    std::string_view id;
    std::string_view title;
};
const std::vector<CategoryInfo>& operatorCategories();
/// A category's position in the catalogue; unknown ids sort after all known ones.
int categoryOrder(std::string_view id);
/// A category's title, or empty for an unknown id.
std::string_view categoryTitle(std::string_view id);
/// A type's fixed position in its catalogue; unknown names sort after all known ones.
int operatorOrder(std::string_view type);
/// The display name of a type: the label when given, else the name split at each
/// lower-to-upper case change ("BlendNeighbors" gives "Blend Neighbors").
std::string operatorLabel(std::string_view type, const OperatorInfo& info);

}  // namespace tressora
