// Writes the example documents of examples/documents: a pump housing in the current schema (as
// plain XML, as base64 text and as zlib data), with its graphics as binary glTF (GLB) blobs, and a
// gear shaft in the legacy schema. The output is the same on every run.
//
// Usage: example_generator OUTPUT_DIRECTORY
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "VEKCodePage.h"
#include "VEKGlbWriter.h"

namespace {

using Json = nlohmann::ordered_json;

[[noreturn]] void Stop(const char* why) {
  std::fprintf(stderr, "example_generator: %s\n", why);
  std::exit(1);
}

// ---- GLB ----

struct Vec3 {
  float x, y, z;
};

// One drawable piece: glTF mode (1 lines, 4 triangles), vertices, and indices (none: not indexed).
struct Primitive {
  int mode;
  std::vector<Vec3> vertices;
  std::vector<std::uint16_t> indices;
};

// A named child node of the scene's root node, showing one mesh of one or more primitives.
struct Part {
  std::string name;
  Vec3 translation;
  std::vector<Primitive> primitives;
};

void AppendLittleEndian(std::vector<unsigned char>& bytes, std::uint32_t value, int size) {
  for (int k = 0; k < size; ++k) bytes.push_back(static_cast<unsigned char>(value >> (8 * k)));
}

void AppendFloat(std::vector<unsigned char>& bytes, float value) {
  std::uint32_t bits;
  static_assert(sizeof bits == sizeof value, "32-bit floats");
  std::memcpy(&bits, &value, sizeof bits);
  AppendLittleEndian(bytes, bits, 4);
}

void PadTo4(std::vector<unsigned char>& bytes, unsigned char filler) {
  while (bytes.size() % 4 != 0) bytes.push_back(filler);
}

// A binary glTF 2.0 scene: one root node named `rootName` with one child node per part.
std::vector<char> BuildGlb(const std::string& rootName, const std::vector<Part>& parts) {
  Json nodes = Json::array();
  Json rootChildren = Json::array();
  Json meshes = Json::array();
  Json accessors = Json::array();
  Json views = Json::array();
  std::vector<unsigned char> bin;
  nodes.push_back({{"name", rootName}, {"children", Json::array()}});
  for (const Part& part : parts) {
    Json primitives = Json::array();
    for (const Primitive& primitive : part.primitives) {
      Vec3 low = primitive.vertices.front();
      Vec3 high = low;
      const std::size_t positionsAt = bin.size();
      for (const Vec3& v : primitive.vertices) {
        low = {std::min(low.x, v.x), std::min(low.y, v.y), std::min(low.z, v.z)};
        high = {std::max(high.x, v.x), std::max(high.y, v.y), std::max(high.z, v.z)};
        AppendFloat(bin, v.x);
        AppendFloat(bin, v.y);
        AppendFloat(bin, v.z);
      }
      views.push_back({{"buffer", 0},
                       {"byteOffset", positionsAt},
                       {"byteLength", bin.size() - positionsAt},
                       {"target", 34962}});
      accessors.push_back({{"bufferView", views.size() - 1},
                           {"componentType", 5126},
                           {"count", primitive.vertices.size()},
                           {"type", "VEC3"},
                           {"min", {low.x, low.y, low.z}},
                           {"max", {high.x, high.y, high.z}}});
      Json entry = {{"attributes", {{"POSITION", accessors.size() - 1}}}};
      if (!primitive.indices.empty()) {
        const std::size_t indicesAt = bin.size();
        for (const std::uint16_t index : primitive.indices) AppendLittleEndian(bin, index, 2);
        views.push_back({{"buffer", 0},
                         {"byteOffset", indicesAt},
                         {"byteLength", bin.size() - indicesAt},
                         {"target", 34963}});
        accessors.push_back({{"bufferView", views.size() - 1},
                             {"componentType", 5123},
                             {"count", primitive.indices.size()},
                             {"type", "SCALAR"}});
        entry["indices"] = accessors.size() - 1;
        PadTo4(bin, 0);
      }
      entry["mode"] = primitive.mode;
      primitives.push_back(std::move(entry));
    }
    meshes.push_back({{"name", part.name}, {"primitives", std::move(primitives)}});
    rootChildren.push_back(nodes.size());
    nodes.push_back(
        {{"name", part.name},
         {"mesh", meshes.size() - 1},
         {"translation", {part.translation.x, part.translation.y, part.translation.z}}});
  }
  nodes[0]["children"] = std::move(rootChildren);
  const Json gltf = {{"asset", {{"version", "2.0"}, {"generator", "example_generator"}}},
                     {"scene", 0},
                     {"scenes", {{{"nodes", {0}}}}},
                     {"nodes", std::move(nodes)},
                     {"meshes", std::move(meshes)},
                     {"accessors", std::move(accessors)},
                     {"bufferViews", std::move(views)},
                     {"buffers", {{{"byteLength", bin.size()}}}}};
  std::vector<char> glb;
  if (VEKWriteGlb(gltf.dump(), bin.data(), bin.size(), glb) != VEKGlbWriteResult::Written) {
    Stop("cannot frame a GLB");
  }
  return glb;
}

std::string Base64(const char* bytes, std::size_t length) {
  std::string text(VEKCodePage::Base64Length(length), '\0');
  if (VEKCodePage::WriteBase64(reinterpret_cast<const unsigned char*>(bytes), length, text.data(),
                               text.size()) != text.size()) {
    Stop("cannot encode base64");
  }
  return text;
}

// The outline of a feature control frame of `cells` cells, as lines.
Primitive Frame(float width, float height, int cells) {
  Primitive frame{
      1, {{0, 0, 0}, {width, 0, 0}, {width, height, 0}, {0, height, 0}}, {0, 1, 1, 2, 2, 3, 3, 0}};
  for (int cell = 1; cell < cells; ++cell) {
    const float x = width * static_cast<float>(cell) / static_cast<float>(cells);
    const auto first = static_cast<std::uint16_t>(frame.vertices.size());
    frame.vertices.push_back({x, 0, 0});
    frame.vertices.push_back({x, height, 0});
    frame.indices.push_back(first);
    frame.indices.push_back(static_cast<std::uint16_t>(first + 1));
  }
  return frame;
}

// A leader line from the frame to the feature and its arrow head.
std::vector<Primitive> Leader(Vec3 to) {
  const Vec3 from{0, 0, 0};
  return {{1, {from, to}, {}},
          {4, {to, {to.x + 1.5f, to.y + 0.5f, to.z}, {to.x + 1.5f, to.y - 0.5f, to.z}}, {}}};
}

// A flat rectangular patch of a surface, as two triangles.
Primitive Patch(float width, float depth) {
  return {4, {{0, 0, 0}, {width, 0, 0}, {width, depth, 0}, {0, depth, 0}}, {0, 1, 2, 0, 2, 3}};
}

// ---- XML ----

std::string Escape(const std::string& text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

// A version-4-looking identifier drawn deterministically from `seed`.
std::string Uuid(const std::string& seed) {
  std::uint64_t high = 1469598103934665603ull;
  for (const char c : seed) high = (high ^ static_cast<unsigned char>(c)) * 1099511628211ull;
  std::uint64_t low = high;
  for (const char c : seed) low = (low ^ static_cast<unsigned char>(c)) * 6364136223846793005ull;
  char text[40];
  std::snprintf(text, sizeof text, "%08x-%04x-4%03x-%04x-%012llx",
                static_cast<unsigned>(high >> 32), static_cast<unsigned>((high >> 16) & 0xFFFF),
                static_cast<unsigned>(high & 0xFFF),
                static_cast<unsigned>(0x8000 | ((low >> 48) & 0x3FFF)),
                static_cast<unsigned long long>(low & 0xFFFFFFFFFFFFull));
  return text;
}

std::string Identity(const std::string& indent, const std::string& name, int type, int id,
                     int status) {
  return indent + "<TPSId Name=\"" + Escape(name) + "\" Uuid=\"" + Uuid(name + std::to_string(id)) +
         "\"/>\n" + indent + "<TPSLoc Type=\"" + std::to_string(type) + "\" Id=\"" +
         std::to_string(id) + "\" Status=\"" + std::to_string(status) + "\"/>\n";
}

std::string Rep(const std::string& indent, int type, const std::vector<char>& glb) {
  return indent + "<Rep Type=\"" + std::to_string(type) + "\"><Buf>" +
         Base64(glb.data(), glb.size()) + "</Buf></Rep>\n";
}

// ---- the pump housing, current schema ----

struct Ttrs {
  int id;
  const char* name;
  int type;
  std::vector<const char*> geometry;
  bool patch;
};

struct Annotation {
  int id;
  const char* name;
  int type;
  const char* value;
  int isDefault;
  int reference;
  const char* attribute;
  const char* ttrs;
  const char* group;
  int status;
  int cells;
};

struct View {
  int id;
  const char* name;
  const char* annotations;
  const char* origin;
  const char* normal;
  const char* direction;
};

struct RefFrame {
  int id;
  const char* name;
  const char* attribute;
  const char* datums;
  const char* ttrs;
};

struct Cg {
  int id;
  const char* name;
  int type;
  const char* attribute;
  const char* ttrs;
  const char* treps;
};

struct Capture {
  int id;
  const char* name;
  int activeView;
  int clippingPlane;
  const char* annotations;
  const char* views;
  const char* cgs;
  int cameraType;
  const char* position;
  const char* direction;
  const char* zenith;
  const char* target;
  bool graphic;
};

const std::vector<Ttrs> kPumpTtrs = {
    {101, "Mounting face", 2, {"11 12 13"}, true},
    {102, "Locating bore ⌀42", 3, {"21", "22"}, false},
    {103, "Side face", 2, {"14"}, false},
    {104, "Shaft bore ⌀28", 3, {"31 32"}, false},
    {105, "Flange face", 2, {"41"}, true},
    {106, "Bolt hole 1", 3, {"51"}, false},
    {107, "Bolt hole 2", 3, {"52"}, false},
    {108, "Bolt hole 3", 3, {"53"}, false},
    {109, "Bolt hole 4", 3, {"54"}, false},
    {110, "Inlet port", 3, {"61 62"}, false},
    {111, "Outlet port", 3, {"63 64"}, false},
    {112, "Seal groove", 4, {"71 72", "73"}, false},
    {113, "Cover face", 2, {"81"}, true},
    {114, "Volute surface", 5, {"91 92 93 94"}, false},
};

const std::vector<Annotation> kPumpAnnotations = {
    {1, "Datum A", 10, "0", 1, 0, "A", "101", "1 2 3", 0, 1},
    {2, "Datum B", 10, "0", 1, 0, "B", "102", "1 2 3", 0, 1},
    {3, "Datum C", 10, "0", 1, 0, "C", "103", "1 2 3", 0, 1},
    {4, "Flatness mounting face", 20, "0.02", 0, 0, "⏥ 0.02", "101", "", 1, 2},
    {5, "Perpendicularity locating bore", 23, "0.03", 0, 301, "⊥ ⌀0.03 A", "102", "", 1, 3},
    {6, "Position bolt hole 1", 21, "0.1", 0, 301, "⌀0.1 Ⓜ A B C", "106", "6 7 8 9", 1, 5},
    {7, "Position bolt hole 2", 21, "0.1", 0, 301, "⌀0.1 Ⓜ A B C", "107", "6 7 8 9", 1, 5},
    {8, "Position bolt hole 3", 21, "0.1", 0, 301, "⌀0.1 Ⓜ A B C", "108", "6 7 8 9", 1, 5},
    {9, "Position bolt hole 4", 21, "0.1", 0, 301, "⌀0.1 Ⓜ A B C", "109", "6 7 8 9", 1, 5},
    {10, "Size bolt holes", 40, "9", 0, 0, "4× ⌀9 H12", "106 107 108 109", "", 1, 1},
    {11, "Cylindricity shaft bore", 25, "0.008", 0, 0, "⌭ 0.008", "104", "11 29", 1, 2},
    {12, "Coaxiality shaft bore", 29, "0.02", 0, 302, "◎ ⌀0.02 A-B", "104", "", 1, 3},
    {13, "Circular runout flange face", 26, "0.03", 0, 303, "↗ 0.03 B", "105", "13 14", 1, 3},
    {14, "Total runout flange face", 27, "0.05", 0, 302, "⌰ 0.05 A-B", "105", "13 14", 1, 3},
    {15, "Profile of volute surface", 22, "0.2", 0, 301, "⌓ 0.2 A B C", "114", "", 2, 5},
    {16, "Parallelism cover face", 24, "0.05", 0, 303, "∥ 0.05 A", "113", "16 17", 1, 3},
    {17, "Flatness cover face", 20, "0.03", 0, 0, "⏥ 0.03", "113", "16 17", 1, 2},
    {18, "Position inlet port", 21, "0.2", 0, 301, "⌀0.2 A B C", "110", "18 19", 1, 5},
    {19, "Position outlet port", 21, "0.2", 0, 301, "⌀0.2 A B C", "111", "18 19", 1, 5},
    {20, "Size inlet port", 40, "24", 0, 0, "⌀24 ±0.1", "110", "", 1, 1},
    {21, "Size outlet port", 40, "20", 0, 0, "⌀20 ±0.1", "111", "", 1, 1},
    {22, "Size shaft bore", 40, "28", 1, 0, "⌀28 H7", "104", "", 1, 1},
    {23, "Size locating bore", 40, "42", 1, 0, "⌀42 H7", "102", "", 1, 1},
    {24, "Roughness shaft bore", 41, "0.8", 0, 0, "Ra 0.8", "104", "", 0, 1},
    {25, "Roughness mounting face", 41, "1.6", 0, 0, "Ra 1.6", "101", "", 0, 1},
    {26, "Roughness seal groove", 41, "6.3", 0, 0, "Rz 6.3", "112", "", 0, 1},
    {27, "Profile of line seal groove", 30, "0.05", 0, 303, "⌒ 0.05 A", "112", "", 1, 3},
    {28, "Symmetry seal groove", 31, "0.1", 0, 0, "⌯ 0.1 B", "112", "", 1, 3},
    {29, "Circularity shaft bore", 28, "0.005", 0, 0, "○ 0.005", "104", "11 29", 1, 2},
    {30, "Depth of seal groove", 40, "3", 0, 0, "↧ 3 +0.1/0", "112", "", 1, 1},
    {31, "Edge note", 42, "0.5", 0, 0, "Unspecified edges: chamfer 0.5 × 45°", "", "", 0, 1},
    {32, "General tolerances", 42, "0", 1, 0, "General tolerances ISO 2768-mK", "", "", 0, 1},
};

const std::vector<View> kPumpViews = {
    {201, "Front", "1 4 5 6 7 8 9 10 25 31 32", "0 0 0", "0 -1 0", "1 0 0"},
    {202, "Top", "2 3 11 12 13 14 22 24 29", "0 0 85.5", "0 0 1", "1 0 0"},
    {203, "Right", "15 16 17 18 19 20 21", "120 0 0", "1 0 0", "0 1 0"},
    {204, "Section A-A", "23 26 27 28 30", "0 12.5 0", "0 1 0", "1 0 0"},
};

const std::vector<RefFrame> kPumpRefFrames = {
    {301, "Datum system A|B|C", "A|B|C", "1 2 3", "101 102 103"},
    {302, "Common datum A-B", "A-B", "1 2", "101 102"},
    {303, "Datum system A", "A", "1", "101"},
};

const std::vector<Cg> kPumpCgs = {
    {401, "Shaft axis", 4, "axis of ⌀28 H7", "104", "7"},
    {402, "Bolt circle ⌀96", 6, "pitch circle of 4× ⌀9", "106 107 108 109", "8 9"},
    {403, "Seal groove mid plane", 5, "mid plane", "112", "10"},
};

const std::vector<Capture> kPumpCaptures = {
    {501, "Datum inspection", 201, 0, "1 2 3 4 5", "201 202", "", 1, "310 -240 180",
     "-0.72 0.55 -0.42", "0 0 1", "0 0 0", true},
    {502, "Bolt pattern", 201, 1, "6 7 8 9 10", "201", "402", 1, "0 -400 0", "0 1 0", "0 0 1",
     "0 0 0", false},
    {503, "Shaft and seal", 204, 2, "11 12 13 14 22 26 27 28", "202 204", "401 403", 2, "0 260 40",
     "0 -1 -0.15", "0 0 1", "0 0 30", false},
};

std::string PumpHousing() {
  std::string xml =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<!-- Pump housing PH-40: datums A, B, C on the mounting face, the locating bore and the\n"
      "     side face; form, orientation, location and runout tolerances, sizes and surface\n"
      "     texture; four views, three datum systems, three construction geometries and three\n"
      "     captures. Graphics are binary glTF blobs in base64. -->\n"
      "<Functional_Tolerancing_Annotation Version=\"2.1\">\n"
      "  <AnnotationSet Standard=\"ISO 1101:2017\">\n" +
      Identity("    ", "Pump housing PH-40", 1, 2000, 0) + "  </AnnotationSet>\n";

  xml += "  <RootTTRSs>\n";
  for (const Ttrs& ttrs : kPumpTtrs) {
    xml += "    <TTRS>\n" + Identity("      ", ttrs.name, ttrs.type, ttrs.id, 0);
    for (const char* geometry : ttrs.geometry)
      xml += "      <GeoP>" + std::string(geometry) + "</GeoP>\n";
    if (ttrs.patch)
      xml += Rep("      ", 3, BuildGlb(ttrs.name, {{"patch", {0, 0, 0}, {Patch(80, 60)}}}));
    xml += "    </TTRS>\n";
  }
  xml += "  </RootTTRSs>\n";

  xml += "  <RootTPSs>\n";
  for (const Annotation& a : kPumpAnnotations) {
    xml += std::string("    <TPS Val=\"") + a.value + "\" Def=\"" + std::to_string(a.isDefault) +
           "\" Ref=\"" + std::to_string(a.reference) + "\" Att=\"" + Escape(a.attribute) + "\">\n" +
           Identity("      ", a.name, a.type, a.id, a.status);
    const float width = 8.0f * static_cast<float>(a.cells);
    std::vector<Part> parts = {{"frame", {0, 0, 0}, {Frame(width, 8, a.cells)}}};
    parts.push_back({"leader", {width, 4, 0}, Leader({12.0f + a.id, -6.0f, 0})});
    xml += Rep("      ", 2, BuildGlb("TPS " + std::to_string(a.id), parts));
    if (*a.ttrs) xml += "      <TTRS>" + std::string(a.ttrs) + "</TTRS>\n";
    // One order-group entry per annotation keeps the groups paired with their annotations.
    xml += "      <Grou>" + std::string(a.group) + "</Grou>\n    </TPS>\n";
  }
  xml += "  </RootTPSs>\n";

  xml += "  <RootViews>\n";
  for (const View& view : kPumpViews) {
    xml += "    <TPSView>\n" + Identity("      ", view.name, 1, view.id, 0) + "      <TPSs>" +
           view.annotations + "</TPSs>\n      <Math>\n        <Or>" + view.origin +
           "</Or>\n        <No>" + view.normal + "</No>\n        <Di>" + view.direction +
           "</Di>\n      </Math>\n    </TPSView>\n";
  }
  xml += "  </RootViews>\n";

  xml += "  <RootRefs>\n";
  for (const RefFrame& frame : kPumpRefFrames) {
    xml += "    <RefFrame Att=\"" + Escape(frame.attribute) + "\">\n" +
           Identity("      ", frame.name, 1, frame.id, 0) + "      <Datum>" + frame.datums +
           "</Datum>\n      <TTRS>" + frame.ttrs + "</TTRS>\n    </RefFrame>\n";
  }
  xml += "  </RootRefs>\n";

  xml += "  <RootCGs>\n";
  for (const Cg& cg : kPumpCgs) {
    xml += "    <TPSCG Att=\"" + Escape(cg.attribute) + "\">\n" +
           Identity("      ", cg.name, cg.type, cg.id, 0) + "      <TTRS>" + cg.ttrs +
           "</TTRS>\n      <TRep>" + cg.treps + "</TRep>\n    </TPSCG>\n";
  }
  xml += "  </RootCGs>\n";

  xml += "  <RootCaps>\n";
  for (const Capture& capture : kPumpCaptures) {
    xml += "    <TPSCap ActVie=\"" + std::to_string(capture.activeView) + "\" ClipPla=\"" +
           std::to_string(capture.clippingPlane) + "\">\n" +
           Identity("      ", capture.name, 1, capture.id, 0);
    if (capture.graphic) {
      xml += Rep("      ", 2,
                 BuildGlb(capture.name, {{"border", {0, 0, 0}, {Frame(297, 210, 1)}},
                                         {"title block", {217, 0, 0}, {Frame(80, 32, 2)}}}));
    }
    xml += "      <TPSs>" + std::string(capture.annotations) + "</TPSs>\n      <Views>" +
           capture.views + "</Views>\n";
    if (*capture.cgs) xml += "      <CGs>" + std::string(capture.cgs) + "</CGs>\n";
    xml += "      <Cam Type=\"" + std::to_string(capture.cameraType) + "\">\n        <Po>" +
           capture.position + "</Po>\n        <Di>" + capture.direction + "</Di>\n        <Ze>" +
           capture.zenith + "</Ze>\n        <Ta>" + capture.target +
           "</Ta>\n      </Cam>\n    </TPSCap>\n";
  }
  xml += "  </RootCaps>\n</Functional_Tolerancing_Annotation>\n";
  return xml;
}

// ---- the gear shaft, legacy schema ----

// The children that carry a legacy object's values: each value is the "V" attribute of one child.
std::string Values(const std::vector<std::pair<const char*, std::string>>& values) {
  std::string xml;
  for (const auto& [tag, value] : values)
    xml += "<" + std::string(tag) + " V=\"" + Escape(value) + "\"/>";
  return xml;
}

// A legacy list of the space-separated `items`: each item follows a separator. Lists of ids close
// with a separator too; geometry lists do not, since their last piece is always taken.
std::string Packed(const std::string& items, char separator, bool closed = true) {
  if (items.empty()) return "";
  std::string packed(1, separator);
  for (const char c : items) packed += c == ' ' ? separator : c;
  return closed ? packed + separator : packed;
}

struct LegacyAnnotation {
  int id;
  const char* name;
  int type;
  const char* value;
  int isDefault;
  int reference;
  int status;
  const char* attribute;
  const char* ttrs;
  const char* group;
};

const std::vector<LegacyAnnotation> kShaftAnnotations = {
    {1, "Datum A", 10, "0", 1, 0, 0, "A", "1", "1 2"},
    {2, "Datum B", 10, "0", 1, 0, 0, "B", "2", "1 2"},
    {3, "Datum C", 10, "0", 1, 0, 0, "C", "4", ""},
    {4, "Cylindricity bearing seat A", 25, "0.004", 0, 0, 1, "⌭ 0.004", "1", "4 5"},
    {5, "Cylindricity bearing seat B", 25, "0.004", 0, 0, 1, "⌭ 0.004", "2", "4 5"},
    {6, "Circular runout gear seat", 26, "0.015", 0, 21, 1, "↗ 0.015 A-B", "3", ""},
    {7, "Total runout gear seat", 27, "0.02", 0, 21, 1, "⌰ 0.02 A-B", "3", ""},
    {8, "Perpendicularity shoulder", 23, "0.01", 0, 21, 1, "⊥ 0.01 A-B", "4", ""},
    {9, "Coaxiality gear seat", 29, "0.01", 0, 21, 1, "◎ ⌀0.01 A-B", "3", ""},
    {10, "Symmetry keyway", 31, "0.02", 0, 22, 1, "⌯ 0.02 A-B", "5", ""},
    {11, "Circularity bearing seat A", 28, "0.003", 0, 0, 1, "○ 0.003", "1", ""},
    {12, "Size bearing seat A", 40, "25", 1, 0, 1, "⌀25 k6", "1", "12 13"},
    {13, "Size bearing seat B", 40, "25", 1, 0, 1, "⌀25 k6", "2", "12 13"},
    {14, "Size gear seat", 40, "32", 1, 0, 1, "⌀32 m6", "3", ""},
    {15, "Keyway width", 40, "8", 0, 0, 1, "8 P9", "5", ""},
    {16, "Thread", 40, "20", 0, 0, 1, "M20×1.5 – 6g", "6", ""},
    {17, "Roughness bearing seats", 41, "0.4", 0, 0, 0, "Ra 0.4", "1 2", ""},
    {18, "Chamfers", 42, "1", 0, 0, 0, "1 × 45°", "", ""},
    {19, "Heat treatment", 42, "60", 0, 0, 0, "Case hardened 58–62 HRC, depth 0.8–1.2", "", ""},
};

struct LegacyView {
  const char* id;
  const char* name;
  const char* annotations;
  const char* normalAndDirection;
  const char* origin;
};

const std::vector<LegacyView> kShaftViews = {
    {"11", "Front", "1 2 4 5 6 7 11 12 13 14 16 17 18", "0;-1;0;1;0;0", "0;0;0"},
    {"12", "Section B-B", "3 8 9 10 15", "1;0;0;0;1;0", "96.5;0;0"},
    {"13", "Detail X", "19", "0;-1;0;1;0;0", "182;0;12.5"},
};

std::string GearShaft() {
  std::string xml =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<!-- Gear shaft GS-12 in the legacy schema: each object carries its values positionally,\n"
      "     as the \"V\" attributes of its children. Datums A and B on the bearing seats, C on\n"
      "     the shoulder; form, runout, orientation and size tolerances. -->\n"
      "<TolerancingData>\n"
      "  <AnnotationSet>" +
      Values({{"Na", "Gear shaft GS-12"},
              {"St", "ASME Y14.5-2018"},
              {"Ty", "1"},
              {"Su", "0"},
              {"Ui", Uuid("Gear shaft GS-12")}}) +
      "</AnnotationSet>\n";

  const std::vector<std::pair<const char*, std::vector<const char*>>> ttrs = {
      {"Bearing seat A ⌀25 k6", {"11 12"}}, {"Bearing seat B ⌀25 k6", {"13 14"}},
      {"Gear seat ⌀32 m6", {"15", "16"}},   {"Shoulder face", {"17"}},
      {"Keyway 8 P9", {"18 19 20"}},        {"Thread M20×1.5", {"21"}},
  };
  xml += "  <TTRSRoot>\n";
  for (std::size_t k = 0; k < ttrs.size(); ++k) {
    xml +=
        "    <TTRS>" +
        Values(
            {{"Na", ttrs[k].first}, {"In", std::to_string(k + 1)}, {"Ui", Uuid(ttrs[k].first)}}) +
        "<Gd>";
    for (const char* geometry : ttrs[k].second)
      xml += "<G V=\"" + Packed(geometry, ';', false) + "\"/>";
    xml += "</Gd></TTRS>\n";
  }
  xml += "  </TTRSRoot>\n";

  xml += "  <Annotations>\n";
  for (const LegacyAnnotation& a : kShaftAnnotations) {
    xml += "    <TPS>" +
           Values({{"Ty", std::to_string(a.type)},
                   {"Va", a.value},
                   {"Na", a.name},
                   {"Id", std::to_string(a.id)},
                   {"De", std::to_string(a.isDefault)},
                   {"Re", std::to_string(a.reference)},
                   {"St", std::to_string(a.status)}}) +
           "\n         " +
           Values({{"Ui", Uuid(a.name)},
                   {"At", a.attribute},
                   {"Tt", Packed(a.ttrs, ';')},
                   {"Og", Packed(a.group, ';')}}) +
           "</TPS>\n";
  }
  xml += "  </Annotations>\n";

  xml += "  <ViewRoot>\n";
  for (const LegacyView& view : kShaftViews) {
    xml += "    <View>" +
           Values({{"Ty", "1"},
                   {"Na", view.name},
                   {"Id", view.id},
                   {"Ui", Uuid(view.name)},
                   {"Ts", Packed(view.annotations, ';')}}) +
           "<Mt>" + Values({{"M", view.normalAndDirection}, {"M", view.origin}}) + "</Mt></View>\n";
  }
  xml += "  </ViewRoot>\n";

  xml += "  <ReferenceFrame>\n";
  for (const RefFrame& frame :
       std::vector<RefFrame>{{21, "Common datum A-B", "A-B", "1 2", "1 2"},
                             {22, "Datum system A-B|C", "A-B|C", "1 2 3", "1 2 4"}}) {
    xml += "    <RefFrame>" +
           Values({{"Na", frame.name},
                   {"Id", std::to_string(frame.id)},
                   {"At", frame.attribute},
                   {"Ui", Uuid(frame.name)},
                   {"Da", Packed(frame.datums, ';')},
                   {"Tt", Packed(frame.ttrs, ';')}}) +
           "</RefFrame>\n";
  }
  xml += "  </ReferenceFrame>\n";

  xml += "  <CGRoot>\n";
  for (const Cg& cg :
       std::vector<Cg>{{31, "Shaft axis A-B", 4, "common axis of the bearing seats", "1 2", "7"},
                       {32, "Keyway mid plane", 5, "mid plane of 8 P9", "5", "8"}}) {
    xml += "    <CG>" +
           Values({{"Ty", std::to_string(cg.type)},
                   {"Na", cg.name},
                   {"Id", std::to_string(cg.id)},
                   {"St", "0"},
                   {"At", cg.attribute},
                   {"Ui", Uuid(cg.name)},
                   {"Tt", Packed(cg.ttrs, ';')},
                   {"Tr", Packed(cg.treps, ';')}}) +
           "</CG>\n";
  }
  xml += "  </CGRoot>\n";

  xml += "  <CaptureRoot>\n";
  for (const Capture& capture :
       std::vector<Capture>{{41, "Bearing seats", 11, 0, "1 2 4 5 11 12 13 17", "11", "31", 1,
                             "90 -320 60", "0 1 -0.2", "0 0 1", "90 0 0", false},
                            {42, "Keyway and shoulder", 12, 1, "3 8 9 10 15", "12 13", "32", 2,
                             "250 0 0", "-1 0 0", "0 0 1", "96.5 0 0", false}}) {
    xml += "    <Capture>" +
           Values({{"Id", std::to_string(capture.id)},
                   {"Av", std::to_string(capture.activeView)},
                   {"Cl", std::to_string(capture.clippingPlane)},
                   {"Na", capture.name},
                   {"Ui", Uuid(capture.name)},
                   {"Ts", Packed(capture.annotations, ' ')},
                   {"Vs", Packed(capture.views, ' ')},
                   {"Cs", Packed(capture.cgs, ' ')}}) +
           "\n      <Cam>" +
           Values({{"Po", capture.position},
                   {"Di", capture.direction},
                   {"Ze", capture.zenith},
                   {"Ta", capture.target},
                   {"Ty", std::to_string(capture.cameraType)}}) +
           "</Cam></Capture>\n";
  }
  xml += "  </CaptureRoot>\n</TolerancingData>\n";
  return xml;
}

// ---- output ----

bool Write(const std::string& path, const std::string& bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << bytes;
  file.close();
  if (!file) std::fprintf(stderr, "example_generator: cannot write %s\n", path.c_str());
  return static_cast<bool>(file);
}

// Base64 in lines of 76 characters, as mail and many tools write it.
std::string Base64Lines(const std::string& bytes) {
  const std::string text = Base64(bytes.data(), bytes.size());
  std::string lines;
  for (std::size_t at = 0; at < text.size(); at += 76) lines += text.substr(at, 76) + "\n";
  return lines;
}

std::string Zlib(const std::string& bytes) {
  uLongf length = compressBound(static_cast<uLong>(bytes.size()));
  std::string compressed(length, '\0');
  if (compress2(reinterpret_cast<Bytef*>(compressed.data()), &length,
                reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uLong>(bytes.size()),
                Z_BEST_COMPRESSION) != Z_OK) {
    return "";
  }
  compressed.resize(length);
  return compressed;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: example_generator OUTPUT_DIRECTORY\n");
    return 2;
  }
  const std::string directory = argv[1];
  const std::string pump = PumpHousing();
  const std::string compressed = Zlib(pump);
  if (compressed.empty()) {
    std::fprintf(stderr, "example_generator: zlib cannot compress the pump housing\n");
    return 1;
  }
  const bool written = Write(directory + "/pump_housing.xml", pump) &&
                       Write(directory + "/pump_housing.xml.b64", Base64Lines(pump)) &&
                       Write(directory + "/pump_housing.xml.z", compressed) &&
                       Write(directory + "/gear_shaft_legacy.xml", GearShaft());
  return written ? 0 : 1;
}
