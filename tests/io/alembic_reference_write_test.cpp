// Our writer against the Alembic library: the reference archives, written again with the same
// calls, must come out identical, byte for byte, and so must their listings.

#include <gtest/gtest.h>

#include "io/alembic/abc_dump.h"
#include "io/alembic/abc_verify.h"
#include "io/alembic_test_support.h"

namespace tressora::abc {
namespace {

using namespace testing;

struct ReferenceCase {
    const char* file;
    void (*write)(const std::string&);
};

class ReferenceWrite : public ::testing::TestWithParam<ReferenceCase> {};

// The first offset where two byte strings differ, for a readable failure.
std::size_t firstDifference(const std::vector<std::byte>& a, const std::vector<std::byte>& b) {
    std::size_t i = 0;
    while (i < a.size() && i < b.size() && a[i] == b[i]) ++i;
    return i;
}

TEST_P(ReferenceWrite, OurArchiveEqualsTheLibrarysByteForByte) {
    const std::string dir = referenceDir();
    TRESSORA_REQUIRE_DIR(dir);
    TempFolder scratch;
    const std::string ours = scratch.file(GetParam().file);
    const std::string reference = dir + "/" + GetParam().file;
    GetParam().write(ours);

    const std::vector<std::byte> a = readBytes(ours), b = readBytes(reference);
    EXPECT_EQ(a.size(), b.size());
    EXPECT_TRUE(a == b) << "first difference at byte " << firstDifference(a, b);

    // The listing covers objects, metadata, headers, types, samplings, counts and values.
    EXPECT_EQ(dumpArchive(ArchiveReader(ours)), dumpArchive(ArchiveReader(reference)));
    EXPECT_TRUE(verifyObjectHashes(ArchiveReader(ours)).empty());
}

INSTANTIATE_TEST_SUITE_P(Alembic, ReferenceWrite,
                         ::testing::Values(ReferenceCase{"curves_basic.abc", writeCurvesBasic},
                                           ReferenceCase{"curves_groom_layout.abc", writeCurvesGroomLayout},
                                           ReferenceCase{"mesh_animated.abc", writeMeshAnimated},
                                           ReferenceCase{"empty.abc", writeEmpty},
                                           ReferenceCase{"curves_many.abc", writeCurvesMany}),
                         [](const auto& info) {
                             std::string name = info.param.file;
                             return name.substr(0, name.find('.'));
                         });

}  // namespace
}  // namespace tressora::abc
