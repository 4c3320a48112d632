// Writers of binary glTF 2.0 (GLB) blobs, for the generated documents and the tests' fixtures: a
// container around any JSON text and binary data, and ready-made valid scenes of points, lines and
// triangles.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace vek_test {

// The JSON text and binary data of a GLB before they are put in a container.
struct GlbParts {
  std::string json;
  std::vector<unsigned char> bin;
};

// The GLB container of VEKWriteGlb around `json` and `bin`, or empty when it cannot be written.
// The JSON is not checked, so any text can be wrapped.
std::vector<char> BuildGlb(const std::string& json, const std::vector<unsigned char>& bin = {});
std::vector<char> BuildGlb(const GlbParts& parts);

// The bytes of `values` as little-endian 32-bit floats.
std::vector<unsigned char> FloatBytes(const std::vector<float>& values);

// Standard base64 of `bytes`, with padding (VEKCodePage's encoder, into a std::string).
std::string EncodeBase64(const unsigned char* bytes, std::size_t length);

// The parts of a valid scene: `triangles` meshes of one indexed triangle (3 vertices, unsigned
// short indices 0 1 2), then `lines` meshes of one line (2 vertices), then `points` meshes of one
// point (1 vertex), the last two not indexed. Vertex v of mesh m is at (m, v, 0.5). Node 0 "root"
// (translation (1, 2, 3), rotation a quarter turn about z, scale 2) is the scene's only node; it
// has one child per mesh, node m + 1 "mesh<m>", translated by (m, 0, 0) and showing mesh m.
GlbParts MakeMeshesParts(int triangles, int lines, int points);
// The same scene as a GLB blob.
std::vector<char> BuildMeshesGlb(int triangles, int lines, int points);

}  // namespace vek_test
