// The GLB reader on the shared corpus: real files with known contents, and container edge cases.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "VEKSceneGraph.h"

namespace {

namespace fs = std::filesystem;

const fs::path kCorpus = fs::path(VEK_SHARED_DIR) / "corpora" / "glb";

std::vector<char> ReadBytes(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::vector<char>(std::istreambuf_iterator<char>(file), {});
}

std::unique_ptr<VEKRep> ReadFile(const fs::path& path) {
  std::vector<char> bytes = ReadBytes(path);
  return std::unique_ptr<VEKRep>(VEKReadSceneGraph(bytes.data(), static_cast<int>(bytes.size())));
}

struct Sample {
  const char* file;
  std::size_t nodes;
  std::vector<int> roots;
  std::size_t meshes;
  // The first primitive of mesh `mesh` (-1: none checked) and its first position, if any.
  int mesh, mode, vertexCount, indexCount;
  std::vector<float> firstPosition;
};

TEST(SceneGraphCorpus, SamplesLoadWithTheirContents) {
  if (!fs::is_directory(kCorpus)) GTEST_SKIP() << "no corpus at " << kCorpus;
  const Sample samples[] = {
      {"Box.glb", 2, {0}, 1, 0, 4, 24, 36, {-0.5f, -0.5f, 0.5f}},
      {"BoxVertexColors.glb", 4, {0}, 1, 0, 4, 24, 36, {-0.5f, 0.5f, -0.5f}},
      {"TwoCubes.glb", 2, {0, 1}, 2, 1, 4, 24, 36, {1.0f, -1.0f, -0.99999994f}},
      {"ShapeCollection.glb",
       7,
       {0, 1, 2, 3, 4, 5, 6},
       6,
       0,
       4,
       1984,
       2880,
       {0.0f, 0.83146960f, -0.55557024f}},
      {"mesh-primitives.glb", 0, {}, 6, 1, 1, 4, 4, {10.0f, 11.0f, 12.0f}},
      {"scene.glb", 8, {2, 4, 5, 6}, 2, 1, 4, 0, 0, {}},
      {"object-transformation.glb", 8, {0, 1, 2, 3, 4, 5, 6, 7}, 1, 0, 4, 0, 0, {}},
      {"box01-data-uri.glb", 1, {0}, 1, 0, 4, 32, 36, {-0.5f, -0.5f, 0.5f}},
      {"singleBlendshapeCube_sparse.glb", 2, {0}, 1, 0, 4, 24, 36, {-0.005f, -0.005f, -0.005f}},
      {"zero-sized-bin-chunk-issue-440.glb", 1, {0}, 1, 0, 4, 3, 3, {0.0f, 0.0f, 0.0f}},
      {"issue-492.glb", 3, {0}, 0, -1, 0, 0, 0, {}},
  };
  for (const Sample& sample : samples) {
    SCOPED_TRACE(sample.file);
    const auto rep = ReadFile(kCorpus / sample.file);
    ASSERT_TRUE(rep);
    EXPECT_EQ(rep->GetNodes().size(), sample.nodes);
    EXPECT_EQ(rep->GetRootNodes(), sample.roots);
    ASSERT_EQ(rep->GetMeshes().size(), sample.meshes);
    if (sample.mesh < 0) continue;
    ASSERT_FALSE(rep->GetMeshes()[sample.mesh].primitives.empty());
    const VEKRepPrimitive& primitive = rep->GetMeshes()[sample.mesh].primitives[0];
    EXPECT_EQ(primitive.mode, sample.mode);
    EXPECT_EQ(primitive.vertexCount, sample.vertexCount);
    EXPECT_EQ(primitive.indexCount, sample.indexCount);
    if (sample.firstPosition.empty()) {
      EXPECT_FALSE(primitive.positions);
      continue;
    }
    ASSERT_TRUE(primitive.positions);
    ASSERT_EQ(primitive.positions->size(), 3u * primitive.vertexCount);
    for (std::size_t axis = 0; axis < sample.firstPosition.size(); ++axis) {
      EXPECT_FLOAT_EQ((*primitive.positions)[axis], sample.firstPosition[axis]);
    }
  }
}

TEST(SceneGraphCorpus, TranslationRotationScaleMatchTheEquivalentMatrix) {
  if (!fs::is_directory(kCorpus)) GTEST_SKIP() << "no corpus at " << kCorpus;
  const auto rep = ReadFile(kCorpus / "object-transformation.glb");
  ASSERT_TRUE(rep);
  // Node 0 holds a matrix, node 1 the same transform as translation, rotation and scale.
  const std::vector<VEKRepNode>& nodes = rep->GetNodes();
  for (int i = 0; i < 16; ++i) {
    EXPECT_NEAR(nodes[1].matrix[i], nodes[0].matrix[i], 1e-5) << i;
  }
  EXPECT_TRUE(nodes[4].name == "Translation");
  EXPECT_DOUBLE_EQ(nodes[4].matrix[12], 1.5);
  EXPECT_DOUBLE_EQ(nodes[4].matrix[13], -2.5);
  EXPECT_DOUBLE_EQ(nodes[4].matrix[14], 0.3);
}

TEST(SceneGraphCorpus, UnsupportedCompressionIsRejected) {
  if (!fs::is_directory(kCorpus)) GTEST_SKIP() << "no corpus at " << kCorpus;
  // Its meshopt-compressed buffer has no data in the file, only a fallback declaration.
  EXPECT_FALSE(ReadFile(kCorpus / "BoxMeshopt.glb"));
}

TEST(SceneGraphCorpus, OnlyWellFormedContainersLoad) {
  const fs::path folder = kCorpus / "malformed";
  if (!fs::is_directory(folder)) GTEST_SKIP() << "no corpus at " << folder;
  // Every other file has container or buffer errors, or (buffer_data_uri, a data URI that is not
  // base64, and buffer_valid_placeholder, a buffer with no data) cannot be read by tinygltf.
  const std::set<std::string> loading = {
      "buffer_extra_padding.glb", "buffer_valid.glb", "glb_extra_data.glb",
      "glb_two_images.glb",       "glb_valid.glb",    "glb_valid_buffer.glb",
      "image_data_uri.glb",       "image_valid.glb"};
  int files = 0;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() != ".glb") continue;
    ++files;
    const std::string name = entry.path().filename().string();
    EXPECT_EQ(ReadFile(entry.path()) != nullptr, loading.count(name) == 1) << name;
  }
  EXPECT_EQ(files, 37);
}

}  // namespace
