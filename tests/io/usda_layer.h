#pragma once
// Written USD layers read back by an independent parser (the npm package of tests/io/usda_check,
// installed by scripts/install-deps.sh), which also checks the layer's sampling and counts. The
// layer comes back as JSON: see check_usda.mjs for its shape.

#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/run_program.h"

namespace tressora::testing {

using UsdaJson = nlohmann::ordered_json;

inline std::filesystem::path usdaCheckDir() { return std::filesystem::path(TRESSORA_SOURCE_DIR) / "tests/io/usda_check"; }

/// Why layers cannot be read back here, or "" when they can.
inline const std::string& usdaParserMissing() {
    static const std::string why = []() -> std::string {
        if (runProgram("/usr/bin/env", {"node", "--version"}).exitCode != 0) return "node is not installed";
        if (!std::filesystem::exists(usdaCheckDir() / "node_modules/@kroxilon/usda-parser")) {
            return "the USD text parser is not installed (scripts/install-deps.sh installs it)";
        }
        return "";
    }();
    return why;
}

/// Tests that read written layers back: skipped without node or the parser.
class UsdaTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!usdaParserMissing().empty()) GTEST_SKIP() << usdaParserMissing();
    }
};

/// The layer at `path`; fails the test with the parser's reason when it refuses the file.
inline UsdaJson readUsda(const std::string& path) {
    const ProgramResult r = runProgram("/usr/bin/env", {"node", (usdaCheckDir() / "check_usda.mjs").string(), path});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    return r.exitCode == 0 ? UsdaJson::parse(r.out) : UsdaJson::object();
}

/// Every number inside a value, depth first (a list of tuples flattened).
inline std::vector<double> usdaNumbers(const UsdaJson& value) {
    std::vector<double> out;
    if (value.is_number()) out.push_back(value.get<double>());
    if (value.is_array())
        for (const UsdaJson& item : value) {
            const std::vector<double> inner = usdaNumbers(item);
            out.insert(out.end(), inner.begin(), inner.end());
        }
    return out;
}

/// The same numbers as floats, as a float reader takes them.
inline std::vector<float> usdaFloats(const UsdaJson& value) {
    std::vector<float> out;
    for (double d : usdaNumbers(value)) out.push_back(static_cast<float>(d));
    return out;
}

/// The names of a prim's time-sampled attributes, in file order.
inline std::vector<std::string> usdaSampledNames(const UsdaJson& prim) {
    std::vector<std::string> names;
    for (const auto& [name, attribute] : prim.at("attributes").items())
        if (attribute.contains("samples")) names.push_back(name);
    return names;
}

/// The numbers of the `frame`th sample of an attribute.
inline std::vector<double> usdaSample(const UsdaJson& prim, const std::string& name, std::size_t frame) {
    return usdaNumbers(prim.at("attributes").at(name).at("samples").at(frame).at(1));
}

}  // namespace tressora::testing
