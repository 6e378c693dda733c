#pragma once
// Helpers shared by the writer tests: a fresh folder per test, file listings, refusal texts and
// small strand sets.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "core/strand_set.h"
#include "support/run_program.h"

namespace tressora::testing {

/// An empty folder named after the running test (a test may hold several), removed with the object.
class TempFolder {
public:
    TempFolder() {
        static int serial = 0;
        const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
        std::string name = "tressora_io_" + std::string(info->test_suite_name()) + "_" + info->name() + "_" +
                           std::to_string(::getpid()) + "_" + std::to_string(serial++);
        std::replace(name.begin(), name.end(), '/', '_');
        path_ = std::filesystem::temp_directory_path() / name;
        std::filesystem::remove_all(path_);
        std::filesystem::create_directories(path_);
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    std::string file(const std::string& name) const { return (path_ / name).string(); }
    /// The names of the files in the folder, sorted.
    std::vector<std::string> names() const {
        std::vector<std::string> out;
        for (const auto& entry : std::filesystem::directory_iterator(path_)) out.push_back(entry.path().filename().string());
        std::sort(out.begin(), out.end());
        return out;
    }

private:
    std::filesystem::path path_;
};

/// The message of the exception `fn` throws, or "(none)".
inline std::string errorText(const std::function<void()>& fn) {
    try {
        fn();
    } catch (const std::exception& e) {
        return e.what();
    }
    return "(none)";
}

/// Three strands of 2, 3 and 4 points (ids 10, 11, 12, roots on faces 0, 1, 2) moved along x
/// by `shift`; widths 0.1, 0.2, ...; strand channel "clumpId" and point channel "curl".
inline StrandSet smallSet(float shift = 0.0f) {
    StrandSet set;
    std::vector<Vec3f> points;
    for (int s = 0; s < 3; ++s) {
        points.clear();
        for (int k = 0; k < s + 2; ++k) points.push_back({shift + static_cast<float>(s), 0.25f * static_cast<float>(k), -1.5f});
        set.addStrand(10 + static_cast<std::uint64_t>(s), StrandRoot{s, 0.25f, 0.5f}, points);
    }
    std::span<float> widths = set.mutableWidths();
    for (std::size_t i = 0; i < widths.size(); ++i) widths[i] = 0.1f * static_cast<float>(i + 1);
    std::span<float> clump = set.addStrandChannel("clumpId");
    for (std::size_t i = 0; i < clump.size(); ++i) clump[i] = static_cast<float>(i) + shift;
    std::span<float> curl = set.addPointChannel("curl");
    for (std::size_t i = 0; i < curl.size(); ++i) curl[i] = 0.5f * static_cast<float>(i);
    return set;
}

}  // namespace tressora::testing
