#include <gtest/gtest.h>

#include "core/hash.h"

namespace tressora {
namespace {

TEST(Hash, placeholder) { EXPECT_EQ(mix(0), 0u); }

}  // namespace
}  // namespace tressora
