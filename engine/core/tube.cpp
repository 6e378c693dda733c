#include "core/tube.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "core/float_text.h"
#include "core/json_numbers.h"

namespace tressora {
namespace {

/// A number-or-list member as a list of finite floats.
std::vector<float> readList(const nlohmann::json& v, const std::string& name) {
    const std::string prefix = "tube " + name + ": ";
    if (v.is_number()) {
        const double d = v.get<double>();
        if (!std::isfinite(d)) throw std::invalid_argument(prefix + "not a number");
        return {static_cast<float>(d)};
    }
    if (!v.is_array()) throw std::invalid_argument(prefix + "a number or a list of numbers");
    if (v.empty()) throw std::invalid_argument(prefix + "an empty list");
    std::vector<float> out;
    for (const auto& e : v) {
        if (e.is_array() || e.is_object()) throw std::invalid_argument(prefix + "numbers only");
        const std::optional<float> f = finiteFloat(e);
        if (!f) throw std::invalid_argument(prefix + "not a number");
        out.push_back(*f);
    }
    return out;
}

/// A whole number within [lo, hi], or nothing.
bool readCount(const nlohmann::json& v, int lo, int hi, int& out) {
    if (!v.is_number()) return false;
    const double d = v.get<double>();
    if (!(d >= lo && d <= hi) || d != std::floor(d)) return false;
    out = static_cast<int>(d);
    return true;
}

nlohmann::json writeList(const std::vector<float>& list) {
    if (!list.empty() && std::all_of(list.begin(), list.end(), [&](float x) { return x == list.front(); }))
        return shortestDouble(list.front());
    nlohmann::json out = nlohmann::json::array();
    for (float x : list) out.push_back(shortestDouble(x));
    return out;
}

std::vector<float> sampled(const std::vector<float>& list, int samples, float scale) {
    std::vector<float> out(static_cast<std::size_t>(samples));
    for (int i = 0; i < samples; ++i)
        out[static_cast<std::size_t>(i)] = tubeValueAt(list, static_cast<float>(i) / static_cast<float>(samples - 1)) * scale;
    return out;
}

void smoothList(std::vector<float>& v, int passes) {
    for (int p = 0; p < passes && v.size() > 2; ++p) {
        std::vector<float> next = v;
        for (std::size_t i = 1; i + 1 < v.size(); ++i) next[i] = 0.25f * v[i - 1] + 0.5f * v[i] + 0.25f * v[i + 1];
        v.swap(next);
    }
}

}  // namespace

float tubeValueAt(const std::vector<float>& list, float t) {
    if (list.empty()) return 0.0f;
    if (list.size() == 1) return list.front();
    const float x = std::clamp(t, 0.0f, 1.0f) * static_cast<float>(list.size() - 1);
    const std::size_t i = std::min(static_cast<std::size_t>(x), list.size() - 2);
    const float f = x - static_cast<float>(i);
    return list[i] + (list[i + 1] - list[i]) * f;
}

Tube parseTube(const nlohmann::json& value, const TubeShapeLibrary& library) {
    if (!value.is_object()) throw std::invalid_argument("tube: a JSON object");
    Tube tube;
    for (const auto& [key, v] : value.items()) {
        static const char* known[] = {"shape", "width", "aspect", "twist", "scaleWidth", "samples", "smooth", "passes"};
        if (std::find(std::begin(known), std::end(known), key) == std::end(known))
            throw std::invalid_argument("tube: unknown key '" + key +
                                        "' (shape, width, aspect, twist, scaleWidth, samples, smooth or passes)");
    }
    if (const auto it = value.find("shape"); it != value.end()) {
        const std::string shape = it->is_string() ? it->get<std::string>() : it->dump();
        if (!it->is_string() || !isKnownTubeShape(shape, library)) {
            std::string names;
            for (const std::string& n : tubeShapeNames(library)) names += (names.empty() ? "" : ", ") + n;
            throw std::invalid_argument("tube shape '" + shape + "': one of " + names);
        }
        tube.shape = shape;
    }
    if (const auto it = value.find("width"); it != value.end()) {
        tube.width = readList(*it, "width");
        for (float w : tube.width)
            if (w < 0.0f) throw std::invalid_argument("tube width: 0 or more");
    }
    if (const auto it = value.find("aspect"); it != value.end()) {
        tube.aspect = readList(*it, "aspect");
        for (float a : tube.aspect)
            if (!(a > 0.0f)) throw std::invalid_argument("tube aspect: above 0");
    }
    if (const auto it = value.find("twist"); it != value.end()) tube.twist = readList(*it, "twist");
    if (const auto it = value.find("scaleWidth"); it != value.end()) {
        const std::optional<float> f = finiteFloat(*it);
        if (!f || !(*f >= 0.0f)) throw std::invalid_argument("tube scaleWidth: a number, 0 or more");
        tube.scaleWidth = *f;
    }
    if (const auto it = value.find("samples"); it != value.end())
        if (!readCount(*it, 2, 1024, tube.samples)) throw std::invalid_argument("tube samples: 2 to 1024");
    if (const auto it = value.find("smooth"); it != value.end()) {
        const std::string s = it->is_string() ? it->get<std::string>() : "";
        if (s != "width" && s != "aspect" && s != "twist" && s != "all")
            throw std::invalid_argument("tube smooth: width, aspect, twist or all");
        tube.smooth = s;
    }
    if (const auto it = value.find("passes"); it != value.end())
        if (!readCount(*it, 1, 100, tube.passes)) throw std::invalid_argument("tube passes: 1 to 100");
    return tube;
}

nlohmann::json tubeToJson(const Tube& tube) {
    nlohmann::json out = {{"shape", tube.shape},
                          {"width", writeList(tube.width)},
                          {"aspect", writeList(tube.aspect)},
                          {"twist", writeList(tube.twist)},
                          {"scaleWidth", shortestDouble(tube.scaleWidth)},
                          {"samples", tube.samples},
                          {"passes", tube.passes}};
    if (!tube.smooth.empty()) out["smooth"] = tube.smooth;
    return out;
}

TubeProfiles sampleTube(const Tube& tube) {
    const int n = std::clamp(tube.samples, 2, 1024);
    TubeProfiles p{sampled(tube.width, n, tube.scaleWidth), sampled(tube.aspect, n, 1.0f), sampled(tube.twist, n, 1.0f)};
    const bool all = tube.smooth == "all";
    if (all || tube.smooth == "width") smoothList(p.width, tube.passes);
    if (all || tube.smooth == "aspect") smoothList(p.aspect, tube.passes);
    if (all || tube.smooth == "twist") smoothList(p.twist, tube.passes);
    return p;
}

}  // namespace tressora
