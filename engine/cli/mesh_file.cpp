// Mesh files for scalps: the OBJ reader, line by line, and the dispatch on the extension.

#include "cli/mesh_file.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>

#include "core/errors.h"
#include "io/alembic_curves_reader.h"

namespace tressora::cli {

namespace {

std::string_view trim(std::string_view s) {
    const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v'; };
    while (!s.empty() && blank(s.front())) s.remove_prefix(1);
    while (!s.empty() && blank(s.back())) s.remove_suffix(1);
    return s;
}

// The next blank-separated word of `s`, taken off its front; empty at the end.
std::string_view nextWord(std::string_view& s) {
    s = trim(s);
    std::size_t end = 0;
    while (end < s.size() && s[end] != ' ' && s[end] != '\t') ++end;
    const std::string_view word = s.substr(0, end);
    s.remove_prefix(end);
    return word;
}

std::optional<float> parseFloat(std::string_view word) {
    if (!word.empty() && word.front() == '+') word.remove_prefix(1);
    float value = 0.0f;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (word.empty() || error != std::errc() || end != word.data() + word.size()) return std::nullopt;
    return value;
}

std::optional<long long> parseIndex(std::string_view word) {
    long long value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (word.empty() || error != std::errc() || end != word.data() + word.size()) return std::nullopt;
    return value;
}

// One face corner: a vertex index and, when given, a texture coordinate index (OBJ's own
// numbers, before they are resolved).
struct Corner {
    long long vertex = 0;
    std::optional<long long> uv;
};

std::optional<Corner> parseCorner(std::string_view word) {
    const std::size_t first = word.find('/');
    Corner corner;
    const auto vertex = parseIndex(word.substr(0, first));
    if (!vertex) return std::nullopt;
    corner.vertex = *vertex;
    if (first == std::string_view::npos) return corner;
    const std::string_view rest = word.substr(first + 1);
    const std::size_t second = rest.find('/');
    const std::string_view uv = rest.substr(0, second);
    if (second != std::string_view::npos && rest.find('/', second + 1) != std::string_view::npos) return std::nullopt;
    if (!uv.empty()) {
        const auto index = parseIndex(uv);
        if (!index) return std::nullopt;
        corner.uv = *index;
    } else if (second == std::string_view::npos) {
        return std::nullopt;  // "v/" names nothing after its slash
    }
    return corner;
}

// A 1-based index, or one counted back from the end of the `count` items read so far.
std::optional<std::size_t> resolve(long long index, std::size_t count) {
    const long long n = static_cast<long long>(count);
    if (index > 0 && index <= n) return static_cast<std::size_t>(index - 1);
    if (index < 0 && -index <= n) return static_cast<std::size_t>(n + index);
    return std::nullopt;
}

}  // namespace

MeshFileData parseObj(std::string_view text, const std::string& name) {
    MeshFileData mesh;
    std::vector<std::array<float, 2>> coordinates;
    bool everyCornerHasUv = true;
    std::vector<std::size_t> faceVertices, faceUvs;
    std::size_t lineNumber = 0;
    while (!text.empty()) {
        const std::size_t newline = text.find('\n');
        std::string_view line = text.substr(0, newline);
        text.remove_prefix(newline == std::string_view::npos ? text.size() : newline + 1);
        ++lineNumber;
        line = trim(line);
        if (line.empty() || line.front() == '#') continue;
        const std::string where = name + ":" + std::to_string(lineNumber);
        const std::string_view keyword = nextWord(line);
        if (keyword == "v") {
            std::array<std::optional<float>, 3> xyz;
            for (auto& c : xyz) c = parseFloat(nextWord(line));
            if (!xyz[0] || !xyz[1] || !xyz[2]) throw MeshFileError(where + ": bad vertex");
            mesh.points.push_back({*xyz[0], *xyz[1], *xyz[2]});
        } else if (keyword == "vt") {
            const auto u = parseFloat(nextWord(line));
            const auto v = parseFloat(nextWord(line));
            if (!u || !v) throw MeshFileError(where + ": bad texture coordinate");
            coordinates.push_back({*u, *v});
        } else if (keyword == "f") {
            faceVertices.clear();
            faceUvs.clear();
            bool faceHasUvs = true;
            for (std::string_view word = nextWord(line); !word.empty(); word = nextWord(line)) {
                const auto corner = parseCorner(word);
                if (!corner) throw MeshFileError(where + ": bad face corner '" + std::string(word) + "'");
                const auto vertex = resolve(corner->vertex, mesh.points.size());
                if (!vertex)
                    throw MeshFileError(where + ": vertex index " + std::to_string(corner->vertex) + " out of range");
                faceVertices.push_back(*vertex);
                if (!corner->uv) {
                    faceHasUvs = false;
                    continue;
                }
                const auto uv = resolve(*corner->uv, coordinates.size());
                if (!uv)
                    throw MeshFileError(where + ": texture coordinate index " + std::to_string(*corner->uv) +
                                        " out of range");
                faceUvs.push_back(*uv);
            }
            if (faceVertices.size() < 3) throw MeshFileError(where + ": a face needs 3 corners");
            everyCornerHasUv = everyCornerHasUv && faceHasUvs;
            for (std::size_t k = 1; k + 1 < faceVertices.size(); ++k) {
                mesh.triangles.push_back({static_cast<std::int32_t>(faceVertices[0]),
                                          static_cast<std::int32_t>(faceVertices[k]),
                                          static_cast<std::int32_t>(faceVertices[k + 1])});
                if (everyCornerHasUv)
                    for (const std::size_t c : {std::size_t{0}, k, k + 1}) mesh.uvs.push_back(coordinates[faceUvs[c]]);
            }
            mesh.polygons.push_back(static_cast<std::int32_t>(faceVertices.size() - 2));
        }
    }
    if (mesh.triangles.empty()) throw MeshFileError(name + ": the mesh has no faces");
    if (!everyCornerHasUv) mesh.uvs.clear();
    return mesh;
}

MeshFileData readObjFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw MeshFileError("cannot open '" + path + "'");
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) throw MeshFileError("cannot open '" + path + "'");
    return parseObj(text, path);
}

MeshFileData readAlembicMeshFile(const std::string& path, const std::string& object) {
    ReadMesh read;
    try {
        read = readAlembicMesh(path, object);
    } catch (const std::exception& e) {
        throw MeshFileError(path + ": " + e.what());
    }
    MeshFileData mesh;
    if (!read.samples.empty()) mesh.points = read.samples.front().points;
    const bool withUvs = !read.cornerUvs.empty() && read.cornerUvs.size() == read.faceIndices.size();
    // Alembic stores faces clockwise; they are read backwards so the fans turn counter-clockwise
    // like the OBJ reader's.
    std::size_t start = 0;
    for (const std::int32_t count : read.faceCounts) {
        if (count < 0 || start + static_cast<std::size_t>(count) > read.faceIndices.size())
            throw MeshFileError(path + ": the mesh's face counts do not fit its face indices");
        const std::size_t n = static_cast<std::size_t>(count);
        const auto corner = [&](std::size_t k) { return start + n - 1 - k; };
        for (std::size_t k = 0; k < n; ++k) {
            const std::int32_t index = read.faceIndices[corner(k)];
            if (index < 0 || static_cast<std::size_t>(index) >= mesh.points.size())
                throw MeshFileError(path + ": vertex index " + std::to_string(index) + " out of range");
        }
        if (n >= 3) {
            for (std::size_t k = 1; k + 1 < n; ++k) {
                mesh.triangles.push_back({read.faceIndices[corner(0)], read.faceIndices[corner(k)],
                                          read.faceIndices[corner(k + 1)]});
                if (withUvs)
                    for (const std::size_t c : {std::size_t{0}, k, k + 1}) mesh.uvs.push_back(read.cornerUvs[corner(c)]);
            }
            mesh.polygons.push_back(static_cast<std::int32_t>(n - 2));
        }
        start += n;
    }
    if (mesh.triangles.empty()) throw MeshFileError(path + ": the mesh has no triangles");
    return mesh;
}

MeshFileData readMeshFile(const std::string& path, const std::string& object) {
    std::string extension = std::filesystem::path(path).extension().string();
    std::ranges::transform(extension, extension.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    if (extension == ".obj") return readObjFile(path);
    if (extension == ".abc") return readAlembicMeshFile(path, object);
    throw MeshFileError("'" + path + "' is not a mesh file this reads (.obj or .abc)");
}

ScalpMesh scalpMeshFromFile(const MeshFileData& mesh, std::string name) {
    ScalpMesh scalp(mesh.points, mesh.triangles);
    if (!mesh.uvs.empty()) scalp.setUvs(mesh.uvs);
    scalp.setPolygons(mesh.polygons);
    scalp.setName(std::move(name));
    return scalp;
}

}  // namespace tressora::cli
