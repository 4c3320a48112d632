// Our glTF reader against tinygltf, on the same blobs: the same decision and the same values,
// except where our reader decides by a rule of its own (GltfReadersAgree.h). Generated scenes and
// the shared GLB corpus are compared by the replay of the gltf_readers fuzz target.
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "GlbBuilder.h"
#include "GltfReadersAgree.h"

namespace {

using vek_fuzz::CompareGltfReaders;
using vek_fuzz::GltfReadersVerdict;

// One indexed triangle under a transformed root.
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
  std::string to;
  GltfReadersVerdict expected;
};

void PrintTo(const Variant& variant, std::ostream* out) { *out << variant.name; }

class GltfReadersVariants : public ::testing::TestWithParam<Variant> {};

TEST_P(GltfReadersVariants, DecideAlikeOrByOurRule) {
  const Variant& variant = GetParam();
  std::string json = kBaseJson;
  const std::size_t at = json.find(variant.from);
  ASSERT_NE(at, std::string::npos) << variant.from;
  json.replace(at, std::string(variant.from).size(), variant.to);
  const std::vector<char> glb = vek_test::BuildGlb(json, BaseBin());
  EXPECT_EQ(CompareGltfReaders(reinterpret_cast<const std::uint8_t*>(glb.data()), glb.size()),
            variant.expected)
      << json;
}

constexpr GltfReadersVerdict kBothRead = GltfReadersVerdict::kBothRead;
constexpr GltfReadersVerdict kBothRefuse = GltfReadersVerdict::kBothRefuse;
constexpr GltfReadersVerdict kRefusedByOurRule = GltfReadersVerdict::kRefusedByOurRule;
constexpr GltfReadersVerdict kReadByOurRule = GltfReadersVerdict::kReadByOurRule;

// A data URI of the first 44 bytes of the base BIN chunk, as our codec writes it.
const std::string kBinAsDataUri =
    "data:application/octet-stream;base64," + vek_test::EncodeBase64(BaseBin().data(), 44);

const Variant kVariants[] = {
    {"base", "", "", kBothRead},
    {"whitespace", R"(,"scene":0,)", " ,\n\t\"scene\" : 0 ,\r\n", kBothRead},
    {"sections_reordered",
     R"("asset":{"version":"2.0","generator":"test"},"scene":0,"scenes":[{"nodes":[0]}],)",
     R"("scenes":[{"nodes":[0]}],"scene":0,"asset":{"version":"2.0"},)", kBothRead},
    {"no_asset", R"("asset":{"version":"2.0","generator":"test"},)", "", kBothRefuse},
    {"asset_without_version", R"("version":"2.0",)", "", kBothRefuse},
    {"negative_zero_and_exponents", R"("translation":[1,2,3])", R"("translation":[-0,2.5e0,-3E-1])",
     kBothRead},
    {"negative_zero_fraction", R"("scale":[2,2,2])", R"("scale":[-0.0,1e2,0.5])", kBothRead},
    // Longer than simdjson's exact fast path: more than 19 digits, a long exponent, an
    // integer beyond 64 bits.
    {"long_numbers", R"("translation":[1,2,3])",
     R"("translation":[0.1000000000000000055511151231257827,1e00000000000000000000001,)"
     R"(123456789012345678901234567890])",
     kBothRead},
    {"subnormal", R"("translation":[1,2,3])", R"("translation":[1e-310,2,3])", kBothRead},
    {"number_overflow", R"("translation":[1,2,3])", R"("translation":[1e400,2,3])", kBothRefuse},
    {"matrix",
     R"("translation":[1,2,3],)"
     R"("rotation":[0,0,0.7071067811865476,0.7071067811865476],"scale":[2,2,2])",
     R"("matrix":[1,0,0,0,0,1,0,0,0,0,1,0,4,5,6,1])", kBothRead},
    // tinygltf reads no translation, rotation or scale beside a matrix of numbers, and keeps
    // the numbers of an array up to its first element that is none.
    {"matrix_and_translation", R"("mesh":0)",
     R"("mesh":0,"matrix":[1,0,0,0,0,1,0,0,0,0,1,0,0,0,0,1],"translation":[1,2,3])", kBothRead},
    {"matrix_with_a_string", R"("mesh":0)",
     R"("mesh":0,"matrix":[1,0,"x",0],"translation":[1,2,3])", kBothRefuse},
    {"short_translation", R"("translation":[1,2,3])", R"("translation":[1,2])", kBothRefuse},
    {"normalized_and_names", R"("type":"SCALAR")",
     R"("type":"SCALAR","normalized":false,"name":"idx")", kBothRead},
    {"empty_children", R"("children":[1],)", R"("children":[],)", kBothRead},
    {"normals_and_strip", R"({"POSITION":0},"indices":1,"mode":4)",
     R"({"POSITION":0,"NORMAL":0},"indices":1,"mode":5)", kBothRead},
    // A member given twice keeps its last value, whatever the first was.
    {"duplicate_member", R"("scene":0,)", R"("scene":"x","scene":0,)", kBothRead},
    {"duplicate_attribute", R"({"POSITION":0})", R"({"POSITION":1.5,"POSITION":0})", kBothRead},
    {"duplicate_section", R"("scenes":[{"nodes":[0]}])", R"("scenes":[5],"scenes":[{"nodes":[0]}])",
     kBothRead},
    // A member of the wrong type reads as absent; a required one refuses.
    {"fractional_index", R"("mesh":0)", R"("mesh":0.0)", kBothRead},
    {"mode_as_text", R"("mode":4)", R"("mode":"4")", kBothRead},
    {"negative_index", R"("mesh":0)", R"("mesh":-1)", kBothRead},
    {"negative_zero_count", R"("count":3,"type":"SCALAR")", R"("count":-0,"type":"SCALAR")",
     kBothRefuse},
    {"index_beyond_64_bits", R"("mesh":0)", R"("mesh":99999999999999999999)", kBothRead},
    {"sections_as_objects", R"("scene":0,"scenes":[{"nodes":[0]}])", R"("scenes":{})", kBothRead},
    {"primitive_without_attributes", R"("attributes":{"POSITION":0},)", "", kBothRead},
    {"unknown_members", R"("scene":0,)",
     R"("scene":0,"extras":{"a":[null,true,{"b":-1.5e3}]},"extensionsUsed":["X"],)", kBothRead},
    {"escaped_strings", R"("name":"part")", R"("n\u0061me":"p\u0061rt\n\ud83d\ude00")", kBothRead},
    {"non_ascii_name", R"("name":"part")", "\"name\":\"\xE2\x93\x82\"", kBothRead},
    {"compressed_view", R"("target":34962})",
     R"("target":34962,"extensions":{"EXT_meshopt_compression":{}}})", kBothRead},
    {"sparse_accessor", R"("type":"SCALAR"})",
     R"("type":"SCALAR","sparse":{"count":1,"indices":{"bufferView":1,)"
     R"("componentType":5123},"values":{"bufferView":1}}})",
     kBothRead},
    {"sparse_without_count", R"("type":"SCALAR"})",
     R"("type":"SCALAR","sparse":{"indices":{"bufferView":1,"componentType":5123},)"
     R"("values":{"bufferView":1}}})",
     kBothRefuse},
    {"second_buffer_in_the_bin_chunk", R"("buffers":[{"byteLength":44}])",
     R"("buffers":[{"byteLength":44},{"byteLength":8}])", kBothRead},
    {"buffer_data_uri", R"("buffers":[{"byteLength":44}])",
     R"("buffers":[{"byteLength":44,"uri":")" + kBinAsDataUri + R"("}])", kBothRead},
    {"image_in_a_view", R"("buffers")",
     R"("images":[{"bufferView":1,"mimeType":"image/png"}],"buffers")", kBothRead},
    // Malformed JSON, even where nothing is read.
    {"leading_zero", R"("mesh":0)", R"("mesh":00)", kBothRefuse},
    {"trailing_comma", R"("children":[1])", R"("children":[1,])", kBothRefuse},
    {"text_after_root", R"("buffers":[{"byteLength":44}]})", R"("buffers":[{"byteLength":44}]}})",
     kBothRefuse},
    // The JSON library under tinygltf ends the text at a zero byte.
    {"text_after_a_zero_byte", R"("buffers":[{"byteLength":44}]})",
     std::string("\"buffers\":[{\"byteLength\":44}]}\0}x", 33), kBothRead},
    {"zero_byte_inside", R"("scene":0,)", std::string("\"scene\":0,\0", 11), kBothRefuse},
    {"bad_literal_in_extras", R"("scene":0,)", R"("scene":0,"extras":[tru],)", kBothRefuse},
    {"bad_escape_in_extras", R"("scene":0,)", R"("scene":0,"extras":"\x",)", kBothRefuse},
    {"lone_surrogate_in_extras", R"("scene":0,)", R"("scene":0,"extras":"\ud800",)", kBothRefuse},
    // Decisions tinygltf makes and our reader makes alike.
    {"default_scene_out_of_range", R"("scene":0)", R"("scene":1000000000)", kBothRefuse},
    {"empty_buffer", R"("buffers":[{"byteLength":44}])", R"("buffers":[{"byteLength":0}])",
     kBothRefuse},
    {"buffer_beyond_bin", R"("buffers":[{"byteLength":44}])", R"("buffers":[{"byteLength":48}])",
     kBothRefuse},
    {"buffer_uri", R"("buffers":[{"byteLength":44}])",
     R"("buffers":[{"byteLength":44,"uri":"x.bin"}])", kBothRefuse},
    {"indices_without_view", R"({"bufferView":1,"componentType":5123)", R"({"componentType":5123)",
     kBothRefuse},
    {"unknown_component_type", R"("componentType":5126)", R"("componentType":5119)", kBothRefuse},
    {"unknown_type", R"("type":"VEC3")", R"("type":"VEC5")", kBothRefuse},
    // Our own rules (nesting and files are the scene-graph and hostile-input tests'): indices
    // tinygltf would wrap, image views, base64.
    {"index_wrapped_to_32_bits", R"("mesh":0)", R"("mesh":4294967296)", kRefusedByOurRule},
    {"image_view_past_its_buffer", R"("target":34963}],)",
     R"("target":34963},{"buffer":0,"byteLength":60}],"images":[{"bufferView":2}],)",
     kRefusedByOurRule},
    // tinygltf's base64 decoder stops at the first character outside the alphabet.
    {"data_uri_without_padding", R"({"byteLength":44})",
     R"({"byteLength":44},{"byteLength":1,"uri":"data:text/plain;base64,AA"})", kRefusedByOurRule},
    {"data_uri_with_blanks", R"({"byteLength":44})",
     R"({"byteLength":44},{"byteLength":6,"uri":"data:text/plain;base64,AAAA AAAA"})",
     kReadByOurRule},
    {"image_data_uri_not_decoded", R"("buffers")",
     R"("images":[{"uri":"data:image/png;base64,!!!!"}],"buffers")", kReadByOurRule},
    {"material_tinygltf_refuses", R"("scene":0,)",
     R"("scene":0,"materials":[{"emissiveFactor":[1,1]}],)", kReadByOurRule},
};

INSTANTIATE_TEST_SUITE_P(JsonShapes, GltfReadersVariants, ::testing::ValuesIn(kVariants),
                         [](const ::testing::TestParamInfo<Variant>& info) {
                           return std::string(info.param.name);
                         });

}  // namespace
