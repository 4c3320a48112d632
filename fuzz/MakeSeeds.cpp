// Writes the seed corpora of the fuzz targets: tiny generated documents of both schemas in each
// input form, the small example documents, valid and malformed GLB blobs, base64 texts and zlib
// streams. Usage: vek_make_fuzz_seeds <corpus directory> <examples/documents directory>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "GlbBuilder.h"
#include "VEKDocumentGenerator.h"

namespace fs = std::filesystem;

namespace {

fs::path corpusRoot;

void Write(const std::string& target, const std::string& name, const std::string& bytes) {
  const fs::path directory = corpusRoot / target;
  fs::create_directories(directory);
  std::ofstream(directory / name, std::ios::binary) << bytes;
}

std::string Read(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string Word(std::uint32_t value) {
  std::string bytes(4, '\0');
  for (int i = 0; i < 4; ++i) bytes[i] = static_cast<char>((value >> (8 * i)) & 0xff);
  return bytes;
}

std::string Encode(const std::string& xml, VEKGeneratedForm form) {
  std::string out;
  (void)VEKEncodeDocumentForm(xml, form, out);
  return out;
}

// One document in every form its targets take.
void WriteDocument(const std::string& name, const std::string& xml, bool current) {
  const std::string zlib = Encode(xml, VEKGeneratedForm::Zlib);
  const std::string sizes = Word(static_cast<std::uint32_t>(xml.size()));
  Write("uncompress", name + ".zin", sizes + zlib);
  if (!current) {
    Write("load_legacy", name, xml);
    return;
  }
  Write("load_plain", name, xml);
  Write("load_base64", name + ".b64", Encode(xml, VEKGeneratedForm::Base64));
  Write("load_compressed", name + ".zin",
        sizes + Word(static_cast<std::uint32_t>(zlib.size())) + zlib);
  Write("base64", name + ".b64", Encode(xml, VEKGeneratedForm::Base64));
}

std::string AsString(const std::vector<char>& bytes) { return {bytes.begin(), bytes.end()}; }

void WriteGlbs() {
  using vek_test::BuildGlb;
  Write("scene_graph", "meshes_1_1_1.glb", AsString(vek_test::BuildMeshesGlb(1, 1, 1)));
  Write("scene_graph", "meshes_3_0_0.glb", AsString(vek_test::BuildMeshesGlb(3, 0, 0)));
  Write("scene_graph", "empty_scene.glb",
        AsString(BuildGlb(R"({"asset":{"version":"2.0"},"scenes":[{"nodes":[]}],"scene":0})")));
  Write("scene_graph", "cyclic_nodes.glb",
        AsString(BuildGlb(R"({"asset":{"version":"2.0"},"scenes":[{"nodes":[0]}],)"
                          R"("nodes":[{"children":[1]},{"children":[0]}]})")));
  Write("scene_graph", "external_buffer.glb",
        AsString(
            BuildGlb(R"({"asset":{"version":"2.0"},"buffers":[{"uri":"x.bin","byteLength":4}]})")));
  Write("scene_graph", "deep_json.glb",
        AsString(BuildGlb(std::string(2000, '[') + std::string(2000, ']'))));
  vek_test::GlbParts offsets = vek_test::MakeMeshesParts(1, 0, 0);
  const std::string from = R"("byteOffset":0)";
  if (const auto at = offsets.json.find(from); at != std::string::npos)
    offsets.json.replace(at, from.size(), R"("byteOffset":1000000)");
  Write("scene_graph", "offset_past_buffer.glb", AsString(BuildGlb(offsets)));
  std::string badChunk = AsString(vek_test::BuildMeshesGlb(1, 0, 0));
  badChunk.replace(12, 4, Word(0x7ffffff0u));
  Write("scene_graph", "bad_chunk_length.glb", badChunk);
}

void WriteSmallInputs() {
  Write("base64", "padding.b64", "QUI=\nQQ==");
  Write("base64", "blanks.b64", " QU\tJD\r\nRA== ");
  Write("base64", "bad_char.b64", "QU*D");
  Write("uncompress", "stored_block.zin",
        Word(5) + std::string("\x78\x01\x01\x05\x00\xfa\xff"
                              "hello"
                              "\x06\x2c\x02\x15",
                              16));
  Write("load_legacy", "empty_root.xml", "<TolerancingData/>");
  Write("load_plain", "empty_root.xml", "<Functional_Tolerancing_Annotation Version=\"1\"/>");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s <corpus directory> <examples/documents directory>\n", argv[0]);
    return 2;
  }
  corpusRoot = argv[1];
  const fs::path examples = argv[2];
  WriteDocument("bracket.xml", Read(examples / "bracket.xml"), true);
  WriteDocument("gear_shaft_legacy.xml", Read(examples / "gear_shaft_legacy.xml"), false);
  for (const std::int64_t objects : {0, 1, 6, 12, 24}) {
    for (const VEKGeneratedSchema schema :
         {VEKGeneratedSchema::Current, VEKGeneratedSchema::Legacy}) {
      const bool current = schema == VEKGeneratedSchema::Current;
      const std::string name = std::string(current ? "generated_current_" : "generated_legacy_") +
                               std::to_string(objects) + ".xml";
      WriteDocument(name, VEKGenerateDocument({schema, objects, 7}), current);
    }
  }
  WriteGlbs();
  WriteSmallInputs();
  return 0;
}
