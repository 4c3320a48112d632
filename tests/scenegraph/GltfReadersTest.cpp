// The direct reader of the common glTF shape against tinygltf, on the same blobs: what the direct
// reader reads, tinygltf must read into the same values; what it cannot vouch for, it declines.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

#include "GlbBuilder.h"
#include "GltfReadersAgree.h"

namespace {

namespace fs = std::filesystem;
using vek_fuzz::CompareGltfReaders;
using vek_fuzz::GltfReadersVerdict;

GltfReadersVerdict Compare(const std::vector<char>& glb) {
  return CompareGltfReaders(reinterpret_cast<const std::uint8_t*>(glb.data()), glb.size());
}

// One indexed triangle under a transformed root: every section the direct reader knows.
const std::string kBaseJson =
    R"({"asset":{"version":"2.0","generator":"test"},"scene":0,"scenes":[{"nodes":[0]}],)"
    R"("nodes":[{"name":"root","children":[1],"translation":[1,2,3],)"
    R"("rotation":[0,0,0.7071067811865476,0.7071067811865476],"scale":[2,2,2]},)"
    R"({"name":"part","mesh":0}],)"
    R"("meshes":[{"name":"shape","primitives":[{"attributes":{"POSITION":0},"indices":1,"mode":4}]}],)"
    R"("accessors":[{"bufferView":0,"componentType":5126,"count":3,"type":"VEC3",)"
    R"("min":[0,0,0],"max":[1,1,0]},{"bufferView":1,"componentType":5123,"count":3,"type":"SCALAR"}],)"
    R"("bufferViews":[{"buffer":0,"byteOffset":0,"byteLength":36,"target":34962},)"
    R"({"buffer":0,"byteOffset":36,"byteLength":6,"target":34963}],)"
    R"("buffers":[{"byteLength":44}]})";

std::vector<unsigned char> BaseBin() {
  std::vector<unsigned char> bin = vek_test::FloatBytes({0, 0, 0, 1, 0, 0, 0, 1, 0});
  bin.insert(bin.end(), {0, 0, 1, 0, 2, 0, 0, 0});
  return bin;
}

struct Variant {
  const char* name;
  const char* from;  // replaced, first occurrence, in the base JSON
  const char* to;
  GltfReadersVerdict expected;
  const char* alsoFrom = nullptr;  // a second replacement, made after the first
  const char* alsoTo = nullptr;
};

void PrintTo(const Variant& variant, std::ostream* out) { *out << variant.name; }

void Replace(std::string& json, const char* from, const char* to) {
  const std::size_t at = json.find(from);
  ASSERT_NE(at, std::string::npos) << from;
  json.replace(at, std::string(from).size(), to);
}

class GltfReadersVariants : public ::testing::TestWithParam<Variant> {};

TEST_P(GltfReadersVariants, DirectReaderReadsOrDeclines) {
  const Variant& variant = GetParam();
  std::string json = kBaseJson;
  Replace(json, variant.from, variant.to);
  if (variant.alsoFrom != nullptr) {
    Replace(json, variant.alsoFrom, variant.alsoTo);
  }
  EXPECT_EQ(Compare(vek_test::BuildGlb(json, BaseBin())), variant.expected) << json;
}

constexpr GltfReadersVerdict kAgree = GltfReadersVerdict::kAgree;
constexpr GltfReadersVerdict kDeclined = GltfReadersVerdict::kDeclined;

INSTANTIATE_TEST_SUITE_P(
    JsonShapes, GltfReadersVariants,
    ::testing::Values(
        Variant{"base", "", "", kAgree},
        Variant{"whitespace", R"(,"scene":0,)", " ,\n\t\"scene\" : 0 ,\r\n", kAgree},
        Variant{"sections_reordered", R"("asset":{"version":"2.0","generator":"test"},)", "",
                kAgree, R"("buffers":[{"byteLength":44}]})",
                R"("buffers":[{"byteLength":44}],"asset":{"version":"2.0"}})"},
        // tinygltf requires the asset's version.
        Variant{"no_asset", R"("asset":{"version":"2.0","generator":"test"},)", "", kDeclined},
        Variant{"asset_without_version", R"("version":"2.0",)", "", kDeclined},
        Variant{"negative_zero_and_exponents", R"("translation":[1,2,3])",
                R"("translation":[-0,2.5e0,-3E-1])", kAgree},
        Variant{"negative_zero_fraction", R"("scale":[2,2,2])", R"("scale":[-0.0,1e2,0.5])",
                kAgree},
        Variant{"long_decimals", R"("translation":[1,2,3])",
                R"("translation":[0.1000000000000000055511151231257827,123456789012345678,-2])",
                kAgree},
        Variant{"matrix",
                R"("translation":[1,2,3],)"
                R"("rotation":[0,0,0.7071067811865476,0.7071067811865476],"scale":[2,2,2])",
                R"("matrix":[1,0,0,0,0,1,0,0,0,0,1,0,4,5,6,1])", kAgree},
        Variant{"normalized_and_names", R"("type":"SCALAR")",
                R"("type":"SCALAR","normalized":false,"name":"idx")", kAgree},
        Variant{"empty_children", R"("children":[1],)", R"("children":[],)", kAgree},
        Variant{"normals_and_strip", R"({"POSITION":0},"indices":1,"mode":4)",
                R"({"POSITION":0,"NORMAL":0},"indices":1,"mode":5)", kAgree},
        // Everything below is left to tinygltf.
        Variant{"duplicate_member", R"("scene":0,)", R"("scene":0,"scene":0,)", kDeclined},
        Variant{"duplicate_attribute", R"({"POSITION":0})", R"({"POSITION":0,"POSITION":0})",
                kDeclined},
        Variant{"unknown_member", R"("scene":0,)", R"("scene":0,"extras":{},)", kDeclined},
        Variant{"escaped_name", R"("name":"part")", R"("name":"p\u0061rt")", kDeclined},
        Variant{"non_ascii_name", R"("name":"part")", "\"name\":\"\xE2\x93\x82\"", kDeclined},
        Variant{"ten_digit_index", R"("scene":0)", R"("scene":1000000000)", kDeclined},
        Variant{"negative_index", R"("mesh":0)", R"("mesh":-1)", kDeclined},
        Variant{"fractional_index", R"("mesh":0)", R"("mesh":0.0)", kDeclined},
        Variant{"leading_zero", R"("mesh":0)", R"("mesh":00)", kDeclined},
        Variant{"trailing_comma", R"("children":[1])", R"("children":[1,])", kDeclined},
        Variant{"matrix_and_translation", R"("mesh":0)",
                R"("mesh":0,"matrix":[1,0,0,0,0,1,0,0,0,0,1,0,0,0,0,1],"translation":[1,2,3])",
                kDeclined},
        Variant{"short_translation", R"("translation":[1,2,3])", R"("translation":[1,2])",
                kDeclined},
        Variant{"number_overflow", R"("translation":[1,2,3])", R"("translation":[1e400,2,3])",
                kDeclined},
        Variant{"subnormal", R"("translation":[1,2,3])", R"("translation":[1e-310,2,3])",
                kDeclined},
        Variant{"primitive_without_attributes", R"("attributes":{"POSITION":0},)", "", kDeclined},
        Variant{"empty_buffer", R"("buffers":[{"byteLength":44}])",
                R"("buffers":[{"byteLength":0}])", kDeclined},
        Variant{"buffer_beyond_bin", R"("buffers":[{"byteLength":44}])",
                R"("buffers":[{"byteLength":48}])", kDeclined},
        Variant{"buffer_uri", R"("buffers":[{"byteLength":44}])",
                R"("buffers":[{"byteLength":44,"uri":"x.bin"}])", kDeclined},
        Variant{"indices_without_view", R"({"bufferView":1,"componentType":5123)",
                R"({"componentType":5123)", kDeclined},
        Variant{"odd_stride", R"("byteLength":36,)", R"("byteLength":36,"byteStride":6,)",
                kDeclined},
        Variant{"unknown_component_type", R"("componentType":5126)", R"("componentType":5119)",
                kDeclined},
        Variant{"unknown_type", R"("type":"VEC3")", R"("type":"VEC5")", kDeclined},
        Variant{"text_after_root", R"("buffers":[{"byteLength":44}]})",
                R"("buffers":[{"byteLength":44}]}})", kDeclined},
        Variant{"sections_as_objects", R"("scenes":[{"nodes":[0]}])", R"("scenes":{})", kDeclined}),
    [](const ::testing::TestParamInfo<Variant>& info) { return std::string(info.param.name); });

// The scenes the project writes take the direct path, whatever their size.
TEST(GltfReaders, GeneratedScenesAreReadDirectly) {
  for (const auto& counts :
       {std::vector<int>{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {5, 1, 1}, {40, 3, 2}}) {
    EXPECT_EQ(Compare(vek_test::BuildMeshesGlb(counts[0], counts[1], counts[2])), kAgree);
  }
}

// Real files from elsewhere: whichever of them the direct reader reads, tinygltf reads alike.
TEST(GltfReaders, NoDisagreementOnTheSharedCorpus) {
  const fs::path corpus = fs::path(VEK_SHARED_DIR) / "corpora" / "glb";
  if (!fs::is_directory(corpus)) {
    GTEST_SKIP() << "no shared GLB corpus at " << corpus;
  }
  int files = 0;
  for (const auto& entry : fs::recursive_directory_iterator(corpus)) {
    if (!entry.is_regular_file()) continue;
    std::ifstream file(entry.path(), std::ios::binary);
    const std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
    EXPECT_NE(Compare(bytes), GltfReadersVerdict::kDisagree) << entry.path();
    ++files;
  }
  EXPECT_GT(files, 0);
}

}  // namespace
