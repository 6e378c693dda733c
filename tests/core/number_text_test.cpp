#include <gtest/gtest.h>

#include <tbb/task_arena.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <limits>

#include "core/hash.h"
#include "core/number_text.h"

namespace tressora {
namespace {

/// Reads text back as a float; fails the test when the whole text is not one number.
float readFloat(const std::string& text) {
    float value = 0.0f;
    const auto r = std::from_chars(text.data(), text.data() + text.size(), value);
    EXPECT_TRUE(r.ec == std::errc() && r.ptr == text.data() + text.size()) << text;
    return value;
}

void expectRoundTrip(float value) {
    const std::string text = numberText(value);
    EXPECT_EQ(std::bit_cast<std::uint32_t>(readFloat(text)), std::bit_cast<std::uint32_t>(value)) << text;
    // No padding in the exponent: no '+', no leading zero after 'e' or "e-".
    const std::size_t e = text.find('e');
    if (e != std::string::npos) {
        ASSERT_LT(e + 1, text.size());
        std::size_t d = e + 1 + (text[e + 1] == '-' ? 1 : 0);
        EXPECT_NE(text[e + 1], '+') << text;
        EXPECT_NE(text[d], '0') << text;
    }
}

TEST(NumberText, EveryFiniteFloatSampledReadsBackToItsBits) {
    DrawStream draw(42);
    std::size_t tried = 0;
    for (int i = 0; i < 2'000'000; ++i) {
        const float value = std::bit_cast<float>(static_cast<std::uint32_t>(draw.next()));
        if (!std::isfinite(value)) continue;
        expectRoundTrip(value);
        ++tried;
    }
    EXPECT_GT(tried, 1'900'000u);
    // Every denormal in a stride, both signs, and the edges of the range.
    for (std::uint32_t bits = 1; bits < 0x00800000u; bits += 997) {
        expectRoundTrip(std::bit_cast<float>(bits));
        expectRoundTrip(std::bit_cast<float>(bits | 0x80000000u));
    }
    for (float v : {std::numeric_limits<float>::denorm_min(), std::numeric_limits<float>::min(),
                    std::numeric_limits<float>::max(), std::numeric_limits<float>::lowest(), 1.0f, -1.0f,
                    0.1f, 16777217.0f, 1e10f, 1e-10f}) {
        expectRoundTrip(v);
    }
}

TEST(NumberText, ShortestFormsSignedZeroAndNonFinite) {
    EXPECT_EQ(numberText(0.1f), "0.1");
    EXPECT_EQ(numberText(1.0f), "1");
    EXPECT_EQ(numberText(-2.5f), "-2.5");
    EXPECT_EQ(numberText(100000.0f), "1e5");
    EXPECT_EQ(numberText(1.5e-7f), "1.5e-7");
    EXPECT_EQ(numberText(3.4028235e38f), "3.4028235e38");
    EXPECT_EQ(numberText(1e-45f), "1e-45");
    EXPECT_EQ(numberText(-0.0f), "-0");
    EXPECT_EQ(numberText(0.0f), "0");
    EXPECT_EQ(numberText(NAN), "0");
    EXPECT_EQ(numberText(-INFINITY), "0");
    EXPECT_EQ(numberText(24.0), "24");
    EXPECT_EQ(numberText(0.01), "0.01");
    EXPECT_EQ(numberText(1.0 / 3.0), "0.3333333333333333");
    EXPECT_EQ(numberText(1e300), "1e300");
    EXPECT_EQ(numberText(INFINITY), "0");
    std::string text;
    appendInteger(text, std::numeric_limits<std::int64_t>::min());
    text += ' ';
    appendVec3(text, {1.0f, -0.5f, 2e-8f});
    text += ' ';
    appendVec2(text, 0.25f, NAN);
    EXPECT_EQ(text, "-9223372036854775808 (1, -0.5, 2e-8) (0.25, 0)");
    char buffer[kNumberTextMax];
    EXPECT_EQ(std::string(buffer, writeUnsigned(buffer, ~std::uint64_t{0})), "18446744073709551615");
}

TEST(NumberText, ListTextIsTheSameOnOneThreadAndOnAll) {
    // Past one run, so run and piece boundaries are both crossed.
    const std::size_t count = kFormatRun + 3 * kFormatPiece + 17;
    std::vector<float> values(count);
    DrawStream draw(7);
    for (float& v : values) v = std::bit_cast<float>(static_cast<std::uint32_t>(draw.next()));
    const auto element = [&values](std::string& out, std::size_t i) { appendFloat(out, values[i]); };

    std::string serial;
    std::size_t writes = 0;
    tbb::task_arena one(1);
    one.execute([&] {
        formatList(count, element, [&](std::string_view piece) {
            serial += piece;
            ++writes;
        });
    });
    std::string parallel;
    tbb::task_arena all;
    all.execute([&] { parallel = listText(count, element); });
    EXPECT_EQ(serial, parallel);
    EXPECT_EQ(writes, (count + kFormatPiece - 1) / kFormatPiece);

    // The pieces join with ", " and nothing else: splitting gives every value back.
    std::size_t start = 0, index = 0;
    while (start <= serial.size() && index < count) {
        std::size_t end = serial.find(", ", start);
        if (end == std::string::npos) end = serial.size();
        const float expected = std::isfinite(values[index]) ? values[index] : 0.0f;
        ASSERT_EQ(std::bit_cast<std::uint32_t>(readFloat(serial.substr(start, end - start))),
                  std::bit_cast<std::uint32_t>(expected)) << index;
        ++index;
        start = end + 2;
    }
    EXPECT_EQ(index, count);
    EXPECT_EQ(listText(0, element), "");
    EXPECT_EQ(listText(2, element).find(", "), numberText(values[0]).size());
}

}  // namespace
}  // namespace tressora
