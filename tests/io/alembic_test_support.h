#pragma once
// Shared helpers of the Alembic tests: fixture folders, whole-file reads, and writers that redo
// the reference archives with the same calls their writer made.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "io/alembic/geom_writer.h"
#include "io/io_test_support.h"

namespace tressora::abc::testing {

namespace fs = std::filesystem;

/// The shared fixture folder: $TRESSORA_SHARED_DIR when set, else the one the build names.
inline fs::path sharedDir() {
    const char* env = std::getenv("TRESSORA_SHARED_DIR");
    return env && *env ? fs::path(env) : fs::path(TRESSORA_SHARED_DIR);
}

/// The reference archives written by the Alembic library, or "" when the shared folder is absent.
inline std::string referenceDir() {
    const fs::path dir = sharedDir() / "fixtures" / "alembic-reference";
    return fs::is_directory(dir) ? dir.string() : std::string();
}

/// Archives from other applications, or "" when absent.
inline std::string fixtureDir() {
    const fs::path dir = sharedDir() / "fixtures" / "alembic";
    return fs::is_directory(dir) ? dir.string() : std::string();
}

#define TRESSORA_REQUIRE_DIR(dir)                                              \
    if ((dir).empty()) GTEST_SKIP() << "shared Alembic fixtures are not present"

using tressora::testing::TempFolder;

inline std::vector<std::byte> readBytes(const std::string& path) {
    const std::string text = tressora::testing::fileContent(path);
    const auto* p = reinterpret_cast<const std::byte*>(text.data());
    return std::vector<std::byte>(p, p + text.size());
}

/// The archive facts the reference files were written with.
ArchiveInfo referenceInfo();

/// Writers that repeat the reference writer's calls; each writes `path` and returns nothing.
void writeCurvesBasic(const std::string& path);
void writeCurvesGroomLayout(const std::string& path);
void writeMeshAnimated(const std::string& path);
void writeEmpty(const std::string& path);
void writeCurvesMany(const std::string& path);

}  // namespace tressora::abc::testing
