#pragma once
// Value: what a node's output holds, what an input receives and what a scene item holds.
// Nothing, or a shared pointer to an immutable object; copying a Value copies the pointer,
// so one object may be held by the cache, a later node and a writer at once.

#include <memory>
#include <variant>

namespace tressora {

class StrandSet;
class GuideSet;
class ScalpMesh;
class GuideHierarchy;
class PartLines;
class FieldValue;
struct Ramp;
class FlowField;
class MapCatalogValue;
class ScalpHistory;
class SculptEdits;
struct UniformValue;

class Value {
public:
    using Storage = std::variant<std::monostate, std::shared_ptr<const StrandSet>, std::shared_ptr<const GuideSet>,
                                 std::shared_ptr<const ScalpMesh>, std::shared_ptr<const GuideHierarchy>,
                                 std::shared_ptr<const PartLines>, std::shared_ptr<const FieldValue>,
                                 std::shared_ptr<const Ramp>, std::shared_ptr<const FlowField>,
                                 std::shared_ptr<const MapCatalogValue>, std::shared_ptr<const ScalpHistory>,
                                 std::shared_ptr<const SculptEdits>, std::shared_ptr<const UniformValue>>;

    Value() = default;
    /// Wraps a shared object; a null pointer makes an empty Value.
    template <class T>
    Value(std::shared_ptr<const T> object) {  // NOLINT(google-explicit-constructor): values flow freely
        if (object) storage_ = std::move(object);
    }
    template <class T>
    Value(std::shared_ptr<T> object) : Value(std::shared_ptr<const T>(std::move(object))) {}

    bool empty() const { return storage_.index() == 0; }
    explicit operator bool() const { return !empty(); }

    /// The object when the Value holds a T, else null.
    template <class T>
    std::shared_ptr<const T> as() const {
        if (const auto* p = std::get_if<std::shared_ptr<const T>>(&storage_)) return *p;
        return nullptr;
    }
    template <class T>
    bool holds() const { return std::holds_alternative<std::shared_ptr<const T>>(storage_); }

    /// The address of the object held (null when empty): identity, for "did it change".
    const void* identity() const;

    std::size_t index() const { return storage_.index(); }
    const Storage& storage() const { return storage_; }

private:
    Storage storage_;
};

inline const void* Value::identity() const {
    return std::visit(
        [](const auto& p) -> const void* {
            if constexpr (std::is_same_v<std::decay_t<decltype(p)>, std::monostate>) return nullptr;
            else return static_cast<const void*>(p.get());
        },
        storage_);
}

}  // namespace tressora
