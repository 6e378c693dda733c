// The node library: the folders searched and their order, what a scan keeps and what it lists
// as faults, which copy of an id wins, the catalogue records, saving into the user's folder,
// update status, and the "node:<id>" types the resolver makes.

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <iterator>
#include <string>
#include <tuple>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/errors.h"
#include "core/expect_text.h"
#include "graph/operator.h"
#include "graph/operator_registry.h"
#include "library/node_library.h"

namespace tressora {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

/// An environment variable set or unset for one test, put back as it was afterwards.
class EnvVar {
public:
    explicit EnvVar(const char* name) : name_(name) {
        if (const char* value = std::getenv(name)) old_ = value;
    }
    ~EnvVar() { old_ ? (void)setenv(name_, old_->c_str(), 1) : (void)unsetenv(name_); }
    void set(const std::string& value) { setenv(name_, value.c_str(), 1); }
    void unset() { unsetenv(name_); }

private:
    const char* name_;
    std::optional<std::string> old_;
};

std::string nodeText(const std::string& id, int version, const std::string& label, const std::string& category) {
    const json doc = {{"tsnode", 1}, {"id", id}, {"version", version}, {"label", label}, {"category", category},
                      {"params", json::array({{{"name", "amount"}, {"type", "length"}, {"default", 0.5}}})},
                      {"script", "per point { P += N * $amount * t; }"}};
    return doc.dump(2);
}

void writeFile(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

template <class Fn>
std::string thrown(Fn&& f) {
    return testing::failureText<GraphError>(f);
}

/// Each test works in its own temporary folder, with the user folder pointed inside it so that
/// nothing of the machine's own node folders leaks in.
class NodeLibrary : public ::testing::Test {
protected:
    void SetUp() override {
        static int count = 0;
        root = fs::temp_directory_path() /
               ("tressora_library_" + std::to_string(getpid()) + "_" + std::to_string(count++));
        fs::create_directories(root);
        nodePath.unset();
        userNodes.set((root / "user").string());
        registerNodeFolder("");
    }
    void TearDown() override {
        registerNodeFolder("");
        std::error_code error;
        fs::remove_all(root, error);
    }
    std::string dir(const char* name) const { return (root / name).string(); }

    EnvVar nodePath{"TRESSORA_NODE_PATH"};
    EnvVar userNodes{"TRESSORA_USER_NODES"};
    EnvVar home{"HOME"};
    EnvVar userProfile{"USERPROFILE"};
    fs::path root;
};

TEST_F(NodeLibrary, FoldersComeInSearchOrder) {
    struct Case {
        const char* nodePath;
        const char* userNodes;  // nullptr: unset
        const char* home;       // nullptr: unset
        const char* registered;
        std::vector<std::string> folders;
    };
    const Case cases[] = {
        {"/p1;/p2", "/user", "/home/me", "/app", {"/p1", "/p2", "/user", "/app"}},
        {";/p1;;/p2;", "", "/home/me", "", {"/p1", "/p2", "/home/me/Documents/Tressora/nodes"}},
        {"", nullptr, "/home/me", "/app", {"/home/me/Documents/Tressora/nodes", "/app"}},
        {"/p1", "", nullptr, "/app", {"/p1", "/app"}},
    };
    userProfile.unset();
    for (const Case& c : cases) {
        nodePath.set(c.nodePath);
        c.userNodes ? userNodes.set(c.userNodes) : userNodes.unset();
        c.home ? home.set(c.home) : home.unset();
        registerNodeFolder(c.registered);
        EXPECT_EQ(nodeFolders(), c.folders) << c.nodePath;
    }
    EXPECT_EQ(userNodeFolder(), "");
}

TEST_F(NodeLibrary, ScanReadsNodeFilesAndListsTheFaultyOnes) {
    writeFile(root / "a" / "good.tsnode", nodeText("me.bend", 1, "Bend", "shape"));
    writeFile(root / "a" / "broken.tsnode", "{\"tsnode\": 1,");
    writeFile(root / "a" / "solo.tsnode", nodeText("solo", 1, "Solo", "shape"));
    writeFile(root / "a" / "notes.txt", nodeText("me.notes", 1, "Notes", "shape"));
    writeFile(root / "a" / "folder.tsnode" / "inner.tsnode", nodeText("me.inner", 1, "Inner", "shape"));
    nodePath.set(dir("missing") + ";" + dir("a"));

    const LibraryScan scan = scanLibrary();
    EXPECT_EQ(scan.dirs, (std::vector<std::string>{dir("missing"), dir("a"), dir("user")}));
    EXPECT_EQ(scan.userDir, dir("user"));
    ASSERT_EQ(scan.nodes.size(), 1u);
    EXPECT_EQ(scan.nodes[0].file.id, "me.bend");
    EXPECT_EQ(scan.nodes[0].path, (root / "a" / "good.tsnode").string());
    ASSERT_EQ(scan.errors.size(), 2u);
    EXPECT_EQ(scan.errors[0].path, (root / "a" / "broken.tsnode").string());
    EXPECT_EQ(scan.errors[0].error, "the node file is not valid JSON");
    EXPECT_EQ(scan.errors[1].error,
              R"(the id 'solo' needs two parts or more joined by dots (like "yourname.soft_frizz"))");
}

TEST_F(NodeLibrary, CatalogueListsTheWinnerOfEachId) {
    writeFile(root / "a" / "x.tsnode", nodeText("me.x", 1, "A1", "shape"));
    writeFile(root / "b" / "x.tsnode", nodeText("me.x", 2, "B2", "shape"));
    writeFile(root / "c" / "x.tsnode", nodeText("me.x", 2, "C2", "shape"));
    // Within one folder the files are taken by name, whatever order the folder lists them in.
    writeFile(root / "c" / "z_second.tsnode", nodeText("me.z", 1, "Second", "weird"));
    writeFile(root / "c" / "a_first.tsnode", nodeText("me.z", 1, "First", "weird"));
    writeFile(root / "c" / "plain.tsnode", nodeText("me.plain", 1, "Plain", ""));
    nodePath.set(dir("a") + ";" + dir("b") + ";" + dir("c"));
    const LibraryScan scan = scanLibrary();
    // The highest version wins, then the earliest folder; a category of no table is the user's own.
    std::vector<std::vector<std::string>> listed;
    for (const auto& record : libraryCatalogue(scan)) {
        listed.push_back({record["type"].get<std::string>(), record["label"].get<std::string>(),
                          record["category"].get<std::string>(), record["categoryTitle"].get<std::string>()});
        EXPECT_TRUE(record["keywords"].get<std::string>().starts_with("library ")) << record["type"];
    }
    std::sort(listed.begin(), listed.end());
    EXPECT_EQ(listed, (std::vector<std::vector<std::string>>{{"node:me.plain", "Plain", "mynodes", "My Nodes"},
                                                             {"node:me.x", "B2", "shape", "Shape"},
                                                             {"node:me.z", "First", "mynodes", "My Nodes"}}));
    EXPECT_EQ(findLibraryNode(scan, "me.x")->file.version, 2);
}

TEST_F(NodeLibrary, SaveWritesTheCanonicalTextIntoTheUserFolder) {
    const fs::path folder = root / "user" / "deeper";
    userNodes.set(folder.string());
    for (int version : {1, 2}) {  // the second save replaces the first
        const NodeFile file = parseNodeFile(nodeText("me.bend", version, "Bend", "shape"));
        const std::string path = saveUserNodeFile(file);
        EXPECT_EQ(path, (folder / "me.bend.tsnode").string());
        const std::string text = readFile(path);
        EXPECT_EQ(text, nodeFileText(file));
        EXPECT_EQ(validateNodeFileText(text), text);
        EXPECT_EQ(parseNodeFile(text).version, version);
        std::vector<fs::path> entries(fs::directory_iterator(folder), fs::directory_iterator{});
        EXPECT_EQ(entries.size(), 1u) << "a temporary file was left behind";
    }
}

TEST_F(NodeLibrary, SaveFaults) {
    const NodeFile file = parseNodeFile(nodeText("me.bend", 1, "Bend", "shape"));
    userNodes.set("");
    home.unset();
    userProfile.unset();
    EXPECT_EQ(thrown([&] { saveUserNodeFile(file); }), "no folder to save the node in (set TRESSORA_USER_NODES)");

    writeFile(root / "blocker", "a file where the folder should be");
    userNodes.set((root / "blocker" / "nodes").string());
    EXPECT_EQ(thrown([&] { saveUserNodeFile(file); }),
              "cannot write " + (root / "blocker" / "nodes" / "me.bend.tsnode").string());
}

TEST_F(NodeLibrary, UpdateStatusComparesWithTheLibrary) {
    writeFile(root / "a" / "x.tsnode", nodeText("me.x", 3, "X", "shape"));
    nodePath.set(dir("a"));
    const LibraryScan scan = scanLibrary();
    const struct {
        const char* definition;
        bool updateAvailable;
        int latest;
        bool embedded;
    } cases[] = {
        {R"({"id": "me.x", "version": 2})", true, 3, false},
        {R"({"id": "me.x"})", true, 3, false},
        {R"({"id": "me.x", "version": 3})", false, 0, false},
        {R"({"id": "me.x", "version": 4})", false, 0, false},
        // 4.0 is version 4 to the checker; read as 1 here, it offers the older copy as an update.
        {R"({"id": "me.x", "version": 4.0})", false, 0, false},
        {R"({"id": "me.other", "version": 1})", false, 0, true},
    };
    for (const auto& c : cases) {
        const NodeUpdateStatus s = nodeUpdateStatus(scan, json::parse(c.definition));
        EXPECT_EQ(std::tuple(s.updateAvailable, s.latest, s.embedded),
                  std::tuple(c.updateAvailable, c.latest, c.embedded))
            << c.definition;
    }
}

TEST_F(NodeLibrary, ResolverMakesScriptNodesFromTheLibrary) {
    writeFile(root / "a" / "bend.tsnode", nodeText("me.bend", 1, "Bend", "shape"));
    writeFile(root / "a" / "me.bad.tsnode", "not json");
    nodePath.set(dir("a"));
    const NodeTypeResolver resolve = libraryNodeResolver(OperatorRegistry::instance());

    const std::unique_ptr<Operator> op = resolve("node:me.bend");
    ASSERT_NE(op, nullptr);
    EXPECT_EQ(op->type(), "Script");
    const std::vector<ParamSpec> params = allParams(*op);
    const auto amount = std::ranges::find(params, std::string("amount"), &ParamSpec::name);
    ASSERT_NE(amount, params.end());
    EXPECT_EQ(amount->unit, "length");

    EXPECT_EQ(thrown([&] { resolve("node:me.bad"); }),
              "the library's node 'me.bad' cannot be used: the node file is not valid JSON");
    EXPECT_TRUE(thrown([&] { resolve("node:me.none"); }).starts_with("the library has no node 'me.none'"));
}

}  // namespace
}  // namespace tressora
