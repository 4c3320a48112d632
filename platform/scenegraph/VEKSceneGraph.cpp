// Reads binary glTF 2.0 (GLB) blobs into VEKRep. Blobs of the common shape are read directly;
// for the others the container, the JSON nesting, the buffers and the buffer views of images are
// checked here before tinygltf sees them. Every index, offset and length of the model, however it
// was read, is checked again before it is followed (RepBuilder.cpp), because tinygltf trusts them.
#include "VEKSceneGraph.h"

#include "GlbContainer.h"
#include "GltfSubsetReader.h"
#include "RepBuilder.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <tiny_gltf.h>
#include <nlohmann/json.hpp>

namespace {

// Deepest bracket nesting accepted in the JSON chunk: parts of the JSON reading recurse once per
// level, and real scene graphs stay far below this.
constexpr int kMaxJsonDepth = 64;

// The bytes that the nesting scan below must look at.
constexpr std::array<bool, 256> MakeJsonSyntax() {
  std::array<bool, 256> syntax{};
  for (const char c : {'"', '\\', '[', ']', '{', '}'}) syntax[static_cast<unsigned char>(c)] = true;
  return syntax;
}
constexpr std::array<bool, 256> kJsonSyntax = MakeJsonSyntax();

// Linear scan of the bracket nesting outside strings (escapes honoured), so that no text nested
// deeper than `maxDepth` reaches the recursive parts of the JSON reading.
bool JsonNestingWithin(const char* text, std::size_t length, int maxDepth) {
  int depth = 0;
  bool inString = false;
  for (std::size_t i = 0; i < length; ++i) {
    const char c = text[i];
    // Most bytes are neither quotes, escapes nor brackets; one table lookup passes them.
    if (!kJsonSyntax[static_cast<unsigned char>(c)]) continue;
    if (inString) {
      if (c == '\\') {
        ++i;
      } else if (c == '"') {
        inString = false;
      }
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > maxDepth) {
        return false;
      }
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return true;
}

// Reads the unsigned integer `key` of `object` into `value`, which keeps its value when the key
// is absent and not required. False for a missing required key or a value of another type.
bool ReadUnsignedMember(const nlohmann::json& object, const char* key, bool required,
                        std::uint64_t& value) {
  const auto member = object.find(key);
  if (member == object.end()) {
    return !required;
  }
  if (!member->is_number_unsigned()) {
    return false;
  }
  value = member->get<std::uint64_t>();
  return true;
}

// Whether every array that a "buffers" key introduces, at any depth, holds at most one object,
// for JSON text without a backslash: there a quote always opens or closes a string, so the key has
// no other spelling and a string ends at the next quote. Nesting is bounded before this is called,
// so the scans of nested arrays stay linear.
bool AtMostOneBufferPerList(std::string_view text) {
  constexpr std::string_view kKey = "\"buffers\"";
  const auto skipBlanks = [&](std::size_t at) {
    const std::size_t next = text.find_first_not_of(" \t\n\r", at);
    return next == std::string_view::npos ? text.size() : next;
  };
  for (std::size_t at = text.find(kKey); at != std::string_view::npos;
       at = text.find(kKey, at + 1)) {
    std::size_t i = skipBlanks(at + kKey.size());
    if (i == text.size() || text[i] != ':') continue;
    i = skipBlanks(i + 1);
    if (i == text.size() || text[i] != '[') continue;
    int depth = 0;
    int objects = 0;
    for (; i < text.size(); ++i) {
      if (text[i] == '"') {
        i = text.find('"', i + 1);
        if (i == std::string_view::npos) return false;
      } else if (text[i] == '[' || text[i] == '{') {
        if (text[i] == '{' && depth == 1 && ++objects > 1) return false;
        ++depth;
      } else if ((text[i] == ']' || text[i] == '}') && --depth == 0) {
        break;
      }
    }
  }
  return true;
}

// tinygltf copies the BIN chunk for every buffer without a URI, and takes the address of an
// image's bytes in its buffer view before anything checks the view's range. So every buffer after
// the first (the only one the BIN chunk may fill) must name its data, and every view an image
// names must lie within its buffer (which holds exactly its declared byteLength). Anything
// unexpected is refused.
bool BuffersAndImageViewsSafe(const char* json, std::size_t length) {
  // Text without a backslash that has no "images" key and no second buffer needs neither check;
  // anything else that is not a JSON object tinygltf refuses as well, so the parse is skipped.
  const std::string_view text(json, length);
  if (text.find('\\') == std::string_view::npos &&
      text.find("\"images\"") == std::string_view::npos && AtMostOneBufferPerList(text)) {
    return true;
  }
  const nlohmann::json document = nlohmann::json::parse(json, json + length, nullptr, false);
  if (!document.is_object()) {
    return false;
  }
  const auto buffers = document.find("buffers");
  if (buffers != document.end() && buffers->is_array()) {
    for (std::size_t index = 1; index < buffers->size(); ++index) {
      const nlohmann::json& buffer = (*buffers)[index];
      if (!buffer.is_object()) {
        return false;
      }
      const auto uri = buffer.find("uri");
      if (uri == buffer.end() || !uri->is_string() || uri->get_ref<const std::string&>().empty()) {
        return false;
      }
    }
  }
  const auto images = document.find("images");
  if (images == document.end() || !images->is_array()) {
    return true;
  }
  const auto views = document.find("bufferViews");
  for (const nlohmann::json& image : *images) {
    if (!image.is_object() || image.find("bufferView") == image.end()) {
      continue;
    }
    std::uint64_t viewIndex = 0;
    if (!ReadUnsignedMember(image, "bufferView", true, viewIndex) || views == document.end() ||
        !views->is_array() || viewIndex >= views->size() || buffers == document.end() ||
        !buffers->is_array()) {
      return false;
    }
    const nlohmann::json& view = (*views)[static_cast<std::size_t>(viewIndex)];
    std::uint64_t bufferIndex = 0;
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
    if (!view.is_object() || !ReadUnsignedMember(view, "buffer", true, bufferIndex) ||
        !ReadUnsignedMember(view, "byteOffset", false, offset) ||
        !ReadUnsignedMember(view, "byteLength", true, size) || bufferIndex >= buffers->size()) {
      return false;
    }
    const nlohmann::json& buffer = (*buffers)[static_cast<std::size_t>(bufferIndex)];
    std::uint64_t bufferSize = 0;
    if (!buffer.is_object() || !ReadUnsignedMember(buffer, "byteLength", true, bufferSize) ||
        !vek_scenegraph_detail::RangeWithin(offset, size, bufferSize)) {
      return false;
    }
  }
  return true;
}

// File-system callbacks that refuse everything: a buffer that names an external file fails to
// load, and nothing outside the blob is ever opened.
bool RefuseFileExists(const std::string&, void*) { return false; }
std::string KeepFilePath(const std::string& path, void*) { return path; }
bool RefuseReadWholeFile(std::vector<unsigned char>*, std::string*, const std::string&, void*) {
  return false;
}
bool RefuseWriteWholeFile(std::string*, const std::string&, const std::vector<unsigned char>&,
                          void*) {
  return false;
}

// Images are never decoded: a representation needs none of their pixels.
bool SkipImageDecoding(tinygltf::Image*, const int, std::string*, std::string*, int, int,
                       const unsigned char*, int, void*) {
  return true;
}

}  // namespace

VEKRep::VEKRep() noexcept = default;

VEKRep::~VEKRep() = default;

VEKRep* VEKReadSceneGraph(char* bytes, int length) noexcept {
  try {
    if (bytes == nullptr || length <= 0) {
      return nullptr;
    }
    const auto* blob = reinterpret_cast<const unsigned char*>(bytes);
    const auto blobSize = static_cast<std::size_t>(length);
    vek_scenegraph_detail::GlbLayout layout;
    if (!vek_scenegraph_detail::ReadGlbLayout(blob, static_cast<std::uint64_t>(length), layout)) {
      return nullptr;
    }
    // The common shape is read directly. Everything else, and any model that fails the checks,
    // goes through tinygltf, which has the last word. Memory running out on either path ends the
    // read (the catch below).
    {
      tinygltf::Model model;
      if (vek_scenegraph_detail::ReadCommonGltf(layout.json, layout.jsonLength, layout.bin,
                                                layout.binLength, model)) {
        if (std::unique_ptr<VEKRep> rep =
                vek_scenegraph_detail::BuildRep(model, blob, layout.totalLength, blobSize)) {
          return rep.release();
        }
      }
    }
    if (!JsonNestingWithin(layout.json, layout.jsonLength, kMaxJsonDepth) ||
        !BuffersAndImageViewsSafe(layout.json, layout.jsonLength)) {
      return nullptr;
    }

    tinygltf::TinyGLTF loader;
    loader.SetFsCallbacks(tinygltf::FsCallbacks{
        &RefuseFileExists, &KeepFilePath, &RefuseReadWholeFile, &RefuseWriteWholeFile, nullptr});
    loader.SetImageLoader(&SkipImageDecoding, nullptr);
    tinygltf::Model model;
    std::string error;
    std::string warning;
    // Warnings and non-fatal errors (tinygltf reports some for valid files) are not looked at:
    // what matters is the result and the checks that follow.
    if (!loader.LoadBinaryFromMemory(&model, &error, &warning, blob, layout.totalLength)) {
      return nullptr;
    }
    return vek_scenegraph_detail::BuildRep(model, blob, layout.totalLength, blobSize).release();
  } catch (...) {
    return nullptr;
  }
}
