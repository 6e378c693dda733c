// The archive writer's own behaviour: moving the file into place, sample change tracking and
// sharing, wide header fields, the metadata table, archive info and refusals of misuse.

#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>

#include "core/errors.h"
#include "io/alembic/abc_reader.h"
#include "io/alembic/abc_verify.h"
#include "io/alembic_test_support.h"

namespace tressora::abc {
namespace {

using namespace testing;

std::span<const std::byte> bytesOf(const std::vector<float>& v) { return std::as_bytes(std::span(v)); }

TEST(AlembicWriter, ReplacesTheTargetOnlyWhenClosedAndSaysWhyItCannot) {
    TempFolder scratch;
    const std::string target = scratch.file("out.abc");
    std::ofstream(target) << "old";
    { ArchiveWriter abandoned(target); }
    EXPECT_EQ(scratch.names(), std::vector<std::string>{"out.abc"});
    {
        ArchiveWriter archive(target);
        archive.top().addChild("a");
        EXPECT_TRUE(fs::exists(target + ".tmp"));
        EXPECT_EQ(fs::file_size(target), 3u);
        archive.close();
    }
    EXPECT_EQ(scratch.names(), std::vector<std::string>{"out.abc"});
    EXPECT_NE(ArchiveReader(target).findObject("/a"), nullptr);

    const std::string busy = scratch.file("busy");
    fs::create_directories(busy + "/inside");
    ArchiveWriter archive(busy);
    try {
        archive.close();
        FAIL() << "a folder with contents was replaced";
    } catch (const AlembicError& e) {
        EXPECT_EQ(std::string(e.what()).rfind("cannot replace '" + busy + "': ", 0), 0u) << e.what();
    }
    EXPECT_THROW(ArchiveWriter(scratch.file("missing/out.abc")), AlembicError);
}

TEST(AlembicWriter, StoresChangedSamplesOnlyAndReadsEveryIndexBack) {
    TempFolder scratch;
    const std::string path = scratch.file("changes.abc");
    // Samples A A B B C C C: B and the repeat of B before C get slots, the repeats after C do not.
    const std::vector<std::vector<float>> values{{1}, {1}, {2, 2}, {2, 2}, {3}, {3}, {3}};
    {
        ArchiveWriter archive(path);
        auto& array = archive.top().properties().addArray("a", {Pod::Float32, 1});
        auto& constant = archive.top().properties().addScalar("c", {Pod::Int32, 1});
        for (const auto& v : values) {
            array.write(bytesOf(v), v.size());
            constant.writeValue(std::int32_t{7});
        }
        archive.close();
    }
    const ArchiveReader archive(path);
    const PropertyReader& a = *archive.top().properties().find("a");
    EXPECT_EQ(a.header().firstChanged, 2u);
    EXPECT_EQ(a.header().lastChanged, 4u);
    EXPECT_FALSE(a.header().homogenous && a.header().scalarLike);
    std::set<const std::byte*> stored;
    for (std::uint32_t i = 0; i < values.size(); ++i) {
        EXPECT_EQ(a.values<float>(i), values[i]) << i;
        stored.insert(a.sample(i).payload.data());
    }
    EXPECT_EQ(stored.size(), 3u);
    const PropertyReader& c = *archive.top().properties().find("c");
    EXPECT_TRUE(c.header().isConstant());
    EXPECT_EQ(c.values<std::int32_t>(6), std::vector<std::int32_t>{7});
    EXPECT_EQ(archive.timeSamplings()[0].maxSamples, 7u);
    EXPECT_TRUE(verifyObjectHashes(archive).empty());
}

TEST(AlembicWriter, StoresEqualBytesOnceWhateverTheirTypeButKeepsStringsApart) {
    TempFolder scratch;
    const std::string path = scratch.file("shared.abc");
    {
        ArchiveWriter archive(path);
        CompoundWriter& props = archive.top().properties();
        const float one = 1.0f;
        props.addArray("f", {Pod::Float32, 1}).writeValues(std::span<const float>(&one, 1));
        props.addArray("i", {Pod::Int32, 1}).writeValues(std::span<const std::int32_t>(std::vector{0x3F800000}));
        const std::vector<std::string> text{"ab"};
        props.addArray("s", {Pod::String, 1}).writeStrings(text);
        props.addArray("u", {Pod::Uint8, 3}).writeValues(std::span<const std::uint8_t>(std::vector<std::uint8_t>{'a', 'b', 0}));
        props.addArray("e", {Pod::Float64, 2}).write({}, 0);
        archive.close();
    }
    const ArchiveReader archive(path);
    const PropertyReader& top = archive.top().properties();
    EXPECT_EQ(top.find("f")->sample(0).payload.data(), top.find("i")->sample(0).payload.data());
    EXPECT_NE(top.find("s")->sample(0).payload.data(), top.find("u")->sample(0).payload.data());
    EXPECT_EQ(top.find("s")->strings(0), std::vector<std::string>{"ab"});
    const SampleView empty = top.find("e")->sample(0);
    EXPECT_EQ(empty.count, 0u);
    EXPECT_TRUE(empty.key.isZero());
}

TEST(AlembicWriter, LargeSamplesWrittenWhileHashedAreKeyedAndSharedLikeSmallOnes) {
    TempFolder scratch;
    const std::string path = scratch.file("large.abc");
    std::vector<float> a(1 << 19), b(1 << 19);  // 2 MiB each
    for (std::size_t i = 0; i < a.size(); ++i) {
        a[i] = float(i);
        b[i] = -float(i);
    }
    {
        ArchiveWriter archive(path);
        auto& first = archive.top().properties().addArray("first", {Pod::Float32, 1});
        auto& second = archive.top().properties().addArray("second", {Pod::Float32, 1});
        for (const auto* v : {&a, &a, &b, &a}) first.write(bytesOf(*v), v->size());
        second.write(bytesOf(b), b.size());
        archive.close();
    }
    EXPECT_LT(fs::file_size(path), 2 * a.size() * 4 + 4096);  // a and b once each
    const ArchiveReader archive(path);
    const PropertyReader& first = *archive.top().properties().find("first");
    EXPECT_EQ(first.values<float>(3), a);
    EXPECT_EQ(first.values<float>(2), b);
    EXPECT_EQ(first.sample(0).payload.data(), first.sample(3).payload.data());
    EXPECT_EQ(archive.top().properties().find("second")->sample(0).payload.data(), first.sample(2).payload.data());
    EXPECT_TRUE(verifySampleKeys(archive).empty());
    EXPECT_TRUE(verifyObjectHashes(archive).empty());
}

TEST(AlembicWriter, LongNamesManySamplesAndManyMetadataStringsReadBack) {
    TempFolder scratch;
    const std::string path = scratch.file("wide.abc");
    const std::string longName(300, 'n'), hugeName(70000, 'h'), longMeta(400, 'm');
    {
        ArchiveWriter archive(path);
        CompoundWriter& props = archive.top().properties();
        auto& many = props.addScalar(longName, {Pod::Uint16, 1});
        for (std::uint16_t i = 0; i < 300; ++i) many.writeValue(i);
        props.addScalar(hugeName, {Pod::Int8, 1}, metaDataWith("note", longMeta)).writeValue(std::int8_t{-3});
        // More distinct metadata than the table's 254 entries: the rest are stored inline.
        for (int i = 0; i < 260; ++i) {
            std::string name = "o";
            name += std::to_string(i);
            archive.top().addChild(name, metaDataWith("index", std::to_string(i)));
        }
        archive.close();
    }
    const ArchiveReader archive(path);
    const PropertyReader& many = *archive.top().properties().find(longName);
    ASSERT_EQ(many.numSamples(), 300u);
    EXPECT_EQ(many.values<std::uint16_t>(299), std::vector<std::uint16_t>{299});
    const PropertyReader& huge = *archive.top().properties().find(hugeName);
    EXPECT_EQ(huge.metadata().get("note"), longMeta);
    EXPECT_EQ(huge.values<std::int8_t>(0), std::vector<std::int8_t>{-3});
    ASSERT_EQ(archive.top().children().size(), 260u);
    for (int i = 0; i < 260; ++i) EXPECT_EQ(archive.top().children()[i].metadata().get("index"), std::to_string(i));
    EXPECT_TRUE(verifyObjectHashes(archive).empty());
}

TEST(AlembicWriter, FillsTheArchiveInfoKeys) {
    TempFolder scratch;
    const std::string path = scratch.file("info.abc");
    {
        ArchiveInfo info;
        info.application = "Tressora";
        info.description = "a test";
        info.fps = 25.0;
        info.extra.set("studio", "north");
        ArchiveWriter(path, info).close();
    }
    const MetaData md = ArchiveReader(path).metadata();
    EXPECT_EQ(md.get("_ai_Application"), "Tressora");
    EXPECT_EQ(md.get("_ai_Description"), "a test");
    EXPECT_EQ(md.get("_ai_DCC_FPS"), "25.000000");
    EXPECT_EQ(md.get("_ai_AlembicVersion"), kAlembicVersionText);
    EXPECT_EQ(md.get("studio"), "north");
    // ctime() style: "Thu Jan  1 00:00:00 2026".
    const std::string date = md.get("_ai_DateWritten");
    EXPECT_TRUE(std::regex_match(date, std::regex("[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2} [0-9]{4}")))
        << date;
}

TEST(AlembicWriter, SharesEqualTimeSamplingsAndTimesSamplesFromThem) {
    TempFolder scratch;
    const std::string path = scratch.file("times.abc");
    {
        ArchiveWriter archive(path);
        EXPECT_EQ(archive.addTimeSampling(TimeSampling::identity()), 0u);
        const std::uint32_t a = archive.addTimeSampling(TimeSampling::uniform(0.5, 2.0));
        EXPECT_EQ(archive.addTimeSampling(TimeSampling::uniform(0.5, 2.0)), a);
        const std::uint32_t b = archive.addTimeSampling(TimeSampling::acyclic({0.0, 0.25, 1.0}));
        EXPECT_EQ(b, a + 1);
        auto& p = archive.top().properties().addScalar("p", {Pod::Float32, 1}, {}, b);
        for (float v : {1.0f, 2.0f, 3.0f}) p.writeValue(v);
        EXPECT_THROW(p.writeValue(4.0f), std::invalid_argument);
        auto& q = archive.top().properties().addScalar("q", {Pod::Float32, 1}, {}, a);
        for (float v : {1.0f, 2.0f}) q.writeValue(v);
        archive.close();
    }
    const ArchiveReader archive(path);
    const PropertyReader& p = *archive.top().properties().find("p");
    EXPECT_EQ(p.sampleTime(1), 0.25);
    EXPECT_EQ(archive.top().properties().find("q")->sampleTime(1), 2.5);
    EXPECT_EQ(archive.timeSamplings()[2].sampling.kind(), "acyclic");
    EXPECT_EQ(archive.timeSamplings()[2].maxSamples, 3u);
}

TEST(AlembicWriter, RefusesMisuseAndStillClosesASoundArchive) {
    TempFolder scratch;
    const std::string path = scratch.file("misuse.abc");
    ArchiveWriter archive(path);
    CompoundWriter& props = archive.top().properties();
    auto& array = props.addArray("a", {Pod::Float32, 3});
    EXPECT_THROW(props.addArray("a", {Pod::Float32, 1}), std::invalid_argument);
    EXPECT_THROW(props.addArray("b/c", {Pod::Float32, 1}), std::invalid_argument);
    EXPECT_THROW(props.addArray("", {Pod::Float32, 1}), std::invalid_argument);
    EXPECT_THROW(props.addArray("d", {Pod::Float32, 0}), std::invalid_argument);
    EXPECT_THROW(props.addScalar("t", {Pod::Float32, 1}, {}, 9), std::invalid_argument);
    EXPECT_THROW(archive.top().addChild("x/y"), std::invalid_argument);
    EXPECT_THROW(array.writeRepeat(), std::logic_error);
    const std::vector<float> four{1, 2, 3, 4};
    EXPECT_THROW(array.write(bytesOf(four), 1), std::invalid_argument);
    EXPECT_THROW(array.writeValues(std::span<const std::int32_t>(std::vector<std::int32_t>{1, 2, 3})),
                 std::invalid_argument);
    const std::vector<std::string> nul{std::string("a\0b", 3)};
    EXPECT_THROW(props.addArray("s", {Pod::String, 1}).writeStrings(nul), std::invalid_argument);
    auto& scalar = props.addScalar("v", {Pod::Float64, 2});
    EXPECT_THROW(scalar.writeValue(1.0), std::invalid_argument);
    auto& child = archive.top().addChild("child");
    child.close();
    EXPECT_THROW(child.addChild("late"), std::logic_error);
    EXPECT_THROW(child.properties().addArray("late", {Pod::Int32, 1}), std::logic_error);
    archive.close();
    EXPECT_EQ(ArchiveReader(path).top().properties().find("a")->numSamples(), 0u);
}

}  // namespace
}  // namespace tressora::abc
