// The two hashes of the format, against keys and records the Alembic library wrote.

#include <gtest/gtest.h>

#include <string>

#include "io/alembic/abc_hashes.h"

namespace tressora::abc {
namespace {

std::span<const std::byte> bytesOf(const std::string& text) { return std::as_bytes(std::span(text)); }

TEST(AlembicHashes, MurmurMatchesTheLibrarysSampleKeys) {
    EXPECT_TRUE(murmur3({}).isZero());
    const std::int32_t counts[4] = {2, 3, 4, 5};
    EXPECT_EQ(murmur3(std::as_bytes(std::span(counts))).hex(), "9b31760b9565befc2196904fe6edfe50");
    const std::uint8_t basis[4] = {1, 0, 0, 0};
    EXPECT_EQ(murmur3(std::as_bytes(std::span(basis))).hex(), "feca28aff5a3958840bee985ee7de4d3");
    EXPECT_EQ(murmur3(bytesOf(std::string("hair", 5))).hex(), "6d69242c014ea0bb86a1c44c66bb964a");
    const double box[6] = {0, 0, -0.25, 1, 0.75, 0};
    EXPECT_EQ(murmur3(std::as_bytes(std::span(box))).hex(), "fc9d470bd42499d68215c092614d608e");
}

TEST(AlembicHashes, SpookyOfNothingIsTheRecordOfAnObjectWithoutProperties) {
    // Longer messages are checked against the library through the reference archives' object hashes.
    EXPECT_EQ(spooky({}).hex(), "1909f56bfc062723c751e8b465ee728b");
}

}  // namespace
}  // namespace tressora::abc
