// Reading the common shape of a glTF JSON chunk in one pass, straight into the model. tinygltf
// first builds a full JSON document and then walks it, which costs several times more than the
// scene graph is worth; this reader handles the shape that annotation graphics take and declines
// everything else, so tinygltf still decides every blob outside it. Where tinygltf's reading of a
// value has a quirk (an integer it truncates, a member it silently ignores or drops, a duplicate
// member of which the JSON reader keeps the last), this reader declines rather than imitate it.
#include "GltfSubsetReader.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <tiny_gltf.h>

namespace vek_scenegraph_detail {
namespace {

// Longest digit run read as an index or length: nine digits stay below INT_MAX, so tinygltf's
// int and size_t readings of such a value agree.
constexpr std::size_t kMaxIndexDigits = 9;
// Longest integer literal read as a number: the JSON reader keeps integer literals as 64-bit
// integers and converts them to double only when asked, which this reproduces up to here.
constexpr std::size_t kMaxExactIntegerDigits = 18;
// tinygltf refuses a view whose stride is larger than this or not a multiple of 4.
constexpr int kMaxByteStride = 252;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Byte classes, so that the loops over strings and over whole arrays test one table entry per
// byte: kStringByte for printable ASCII other than a quote or a backslash, kStructure for the
// bytes that open or close strings, arrays and objects.
constexpr unsigned char kStringByte = 1;
constexpr unsigned char kStructure = 2;
constexpr std::array<unsigned char, 256> MakeByteClasses() {
  std::array<unsigned char, 256> classes{};
  for (int byte = 0x20; byte < 0x7F; ++byte) {
    if (byte != '"' && byte != '\\') classes[static_cast<std::size_t>(byte)] = kStringByte;
  }
  for (const char c : {'"', '[', ']', '{', '}'}) {
    classes[static_cast<unsigned char>(c)] |= kStructure;
  }
  return classes;
}
constexpr std::array<unsigned char, 256> kByteClasses = MakeByteClasses();

bool Is(char c, unsigned char byteClass) {
  return (kByteClasses[static_cast<unsigned char>(c)] & byteClass) != 0;
}

// A position in the JSON text with readers for the tokens of the subset. Every reader skips the
// whitespace before its token and returns false when the token is not there.
class JsonCursor {
 public:
  JsonCursor(const char* text, std::size_t length) : at_(text), end_(text + length) {}

  bool Consume(char expected) {
    SkipWhitespace();
    if (at_ == end_ || *at_ != expected) {
      return false;
    }
    ++at_;
    return true;
  }

  bool AtEnd() {
    SkipWhitespace();
    return at_ == end_;
  }

  // A string of printable ASCII without escapes; `value` points into the text.
  bool ReadString(std::string_view& value) {
    if (!Consume('"')) {
      return false;
    }
    const char* start = at_;
    while (at_ != end_ && Is(*at_, kStringByte)) {
      ++at_;
    }
    if (at_ == end_ || *at_ != '"') {
      return false;
    }
    value = std::string_view(start, static_cast<std::size_t>(at_ - start));
    ++at_;
    return true;
  }

  // A non-negative integer literal of at most kMaxIndexDigits digits.
  bool ReadIndex(int& value) {
    SkipWhitespace();
    const char* start = at_;
    int number = 0;
    for (; at_ != end_ && IsDigit(*at_); ++at_) {
      if (static_cast<std::size_t>(at_ - start) == kMaxIndexDigits) {
        return false;
      }
      number = number * 10 + (*at_ - '0');
    }
    const auto digits = static_cast<std::size_t>(at_ - start);
    if (digits == 0 || (digits > 1 && *start == '0')) {
      return false;
    }
    value = number;
    return true;
  }

  // Any JSON number, converted as the JSON reader under tinygltf converts it: integer literals
  // through a 64-bit integer, the others correctly rounded. Subnormal and out-of-range values are
  // declined.
  bool ReadNumber(double& value) {
    NumberToken token;
    if (!ScanNumber(token)) {
      return false;
    }
    if (token.integral) {
      if (token.integerDigits > kMaxExactIntegerDigits) {
        return false;
      }
      // Negated as an integer first, so that "-0" reads as 0.0 the way the JSON reader has it.
      value = static_cast<double>(token.negative ? -token.magnitude : token.magnitude);
      return true;
    }
    const std::from_chars_result result = std::from_chars(token.start, at_, value);
    return result.ec == std::errc() && result.ptr == at_ &&
           (value == 0 ? !token.nonZeroDigit : std::isnormal(value));
  }

  // A JSON number whose value is not needed. It must still be one that the JSON reader accepts,
  // which refuses out-of-range values; only those with an exponent need converting to tell.
  bool SkipNumber() {
    NumberToken token;
    if (!ScanNumber(token)) {
      return false;
    }
    if (token.hasExponent) {
      double value = 0;
      at_ = token.start;
      return ReadNumber(value);
    }
    return token.integerDigits <= kMaxExactIntegerDigits;
  }

  // Reserves room in `items` for as many more as the array at the cursor holds objects, so that
  // the model's large items are not moved while it grows. The cursor stays where it is.
  template <typename Items>
  void ReserveForObjects(Items& items) {
    SkipWhitespace();
    std::size_t count = 0;
    int depth = 0;
    for (const char* p = at_; p != end_; ++p) {
      if (!Is(*p, kStructure)) {
        continue;
      }
      if (*p == '"') {
        // Strings here hold no escapes (those are declined), so the next quote closes them.
        while (++p != end_ && Is(*p, kStringByte)) {
        }
        if (p == end_) break;
      } else if (*p == '[' || *p == '{') {
        if (*p == '{' && depth == 1) ++count;
        ++depth;
      } else if (*p == ']' || *p == '}') {
        if (--depth == 0) break;
      }
    }
    items.reserve(items.size() + count);
  }

  bool ReadBoolean(bool& value) {
    SkipWhitespace();
    if (ConsumeWord("true")) {
      value = true;
      return true;
    }
    if (ConsumeWord("false")) {
      value = false;
      return true;
    }
    return false;
  }

  // Reads an object, calling `readMember(key)` with the cursor before each member's value; the
  // callback reads the value.
  template <typename ReadMember>
  bool ReadObject(ReadMember&& readMember) {
    if (!Consume('{')) {
      return false;
    }
    if (Consume('}')) {
      return true;
    }
    do {
      std::string_view key;
      if (!ReadString(key) || !Consume(':') || !readMember(key)) {
        return false;
      }
    } while (Consume(','));
    return Consume('}');
  }

  // Reads an array, calling `readElement()` for each element.
  template <typename ReadElement>
  bool ReadArray(ReadElement&& readElement) {
    if (!Consume('[')) {
      return false;
    }
    if (Consume(']')) {
      return true;
    }
    do {
      if (!readElement()) {
        return false;
      }
    } while (Consume(','));
    return Consume(']');
  }

 private:
  void SkipWhitespace() {
    while (at_ != end_ && (*at_ == ' ' || *at_ == '\n' || *at_ == '\r' || *at_ == '\t')) {
      ++at_;
    }
  }

  struct NumberToken {
    const char* start = nullptr;
    bool negative = false;
    bool integral = true;
    bool hasExponent = false;
    bool nonZeroDigit = false;
    std::size_t integerDigits = 0;
    std::int64_t magnitude = 0;  // of the first kMaxExactIntegerDigits integer digits
  };

  // Steps over a number of the JSON grammar, leaving the cursor after it.
  bool ScanNumber(NumberToken& token) {
    SkipWhitespace();
    token.start = at_;
    token.negative = at_ != end_ && *at_ == '-';
    if (token.negative) {
      ++at_;
    }
    const char* integerStart = at_;
    for (; at_ != end_ && IsDigit(*at_); ++at_) {
      token.nonZeroDigit |= *at_ != '0';
      if (static_cast<std::size_t>(at_ - integerStart) < kMaxExactIntegerDigits) {
        token.magnitude = token.magnitude * 10 + (*at_ - '0');
      }
    }
    token.integerDigits = static_cast<std::size_t>(at_ - integerStart);
    if (token.integerDigits == 0 || (token.integerDigits > 1 && *integerStart == '0')) {
      return false;
    }
    if (at_ != end_ && *at_ == '.') {
      token.integral = false;
      ++at_;
      if (!SkipDigits(token.nonZeroDigit)) {
        return false;
      }
    }
    if (at_ != end_ && (*at_ == 'e' || *at_ == 'E')) {
      token.integral = false;
      token.hasExponent = true;
      ++at_;
      if (at_ != end_ && (*at_ == '+' || *at_ == '-')) {
        ++at_;
      }
      bool nonZeroExponent = false;
      if (!SkipDigits(nonZeroExponent)) {
        return false;
      }
    }
    return true;
  }

  bool SkipDigits(bool& nonZeroDigit) {
    const char* start = at_;
    for (; at_ != end_ && IsDigit(*at_); ++at_) {
      nonZeroDigit |= *at_ != '0';
    }
    return at_ != start;
  }

  bool ConsumeWord(std::string_view word) {
    if (static_cast<std::size_t>(end_ - at_) < word.size() ||
        std::string_view(at_, word.size()) != word) {
      return false;
    }
    at_ += word.size();
    return true;
  }

  const char* at_;
  const char* end_;
};

// The members an object may have, and which of them have been read: a member given twice is
// declined, since the JSON reader under tinygltf would keep only the last.
template <std::size_t Count>
class MemberNames {
 public:
  explicit MemberNames(const std::string_view (&names)[Count]) : names_(names) {}

  // The position of `key` among the names; -1 when it is unknown or was read before.
  int Take(std::string_view key) {
    for (std::size_t index = 0; index < Count; ++index) {
      if (names_[index] == key) {
        const std::uint32_t bit = std::uint32_t{1} << index;
        if ((seen_ & bit) != 0) {
          return -1;
        }
        seen_ |= bit;
        return static_cast<int>(index);
      }
    }
    return -1;
  }

  bool Has(int index) const { return (seen_ & (std::uint32_t{1} << index)) != 0; }

 private:
  const std::string_view (&names_)[Count];
  std::uint32_t seen_ = 0;
};

bool ReadIndexArray(JsonCursor& cursor, std::vector<int>& values) {
  return cursor.ReadArray([&] {
    int value = 0;
    if (!cursor.ReadIndex(value)) {
      return false;
    }
    values.push_back(value);
    return true;
  });
}

// An array of numbers whose values are not needed.
bool SkipNumberArray(JsonCursor& cursor) {
  return cursor.ReadArray([&] { return cursor.SkipNumber(); });
}

// An array of exactly `count` numbers.
bool ReadNumberArray(JsonCursor& cursor, std::vector<double>& values, std::size_t count) {
  return cursor.ReadArray([&] {
    double value = 0;
    if (!cursor.ReadNumber(value)) {
      return false;
    }
    values.push_back(value);
    return true;
  }) && values.size() == count;
}

bool ReadAsset(JsonCursor& cursor) {
  static constexpr std::string_view kNames[] = {"version", "generator", "minVersion", "copyright"};
  MemberNames members(kNames);
  std::string_view ignored;
  return cursor.ReadObject([&](std::string_view key) {
    return members.Take(key) >= 0 && cursor.ReadString(ignored);
  }) && members.Has(0);
}

// tinygltf gives every buffer without a URI in a GLB the first byteLength bytes of the BIN chunk.
bool ReadBuffer(JsonCursor& cursor, const unsigned char* bin, std::size_t binLength,
                tinygltf::Buffer& buffer) {
  enum { kByteLength, kName };
  static constexpr std::string_view kNames[] = {"byteLength", "name"};
  MemberNames members(kNames);
  int byteLength = 0;
  std::string_view name;
  const bool read = cursor.ReadObject([&](std::string_view key) {
    switch (members.Take(key)) {
      case kByteLength:
        return cursor.ReadIndex(byteLength);
      case kName:
        return cursor.ReadString(name);
      default:
        return false;
    }
  });
  if (!read || !members.Has(kByteLength) || byteLength == 0 ||
      static_cast<std::size_t>(byteLength) > binLength) {
    return false;
  }
  buffer.name.assign(name.data(), name.size());
  buffer.data.assign(bin, bin + byteLength);
  return true;
}

bool ReadBufferView(JsonCursor& cursor, tinygltf::BufferView& view) {
  enum { kBuffer, kByteOffset, kByteLength, kByteStride, kTarget, kName };
  static constexpr std::string_view kNames[] = {"buffer",     "byteOffset", "byteLength",
                                                "byteStride", "target",     "name"};
  MemberNames members(kNames);
  int buffer = 0;
  int byteOffset = 0;
  int byteLength = 0;
  int byteStride = 0;
  int target = 0;
  std::string_view name;
  const bool read = cursor.ReadObject([&](std::string_view key) {
    switch (members.Take(key)) {
      case kBuffer:
        return cursor.ReadIndex(buffer);
      case kByteOffset:
        return cursor.ReadIndex(byteOffset);
      case kByteLength:
        return cursor.ReadIndex(byteLength);
      case kByteStride:
        return cursor.ReadIndex(byteStride);
      case kTarget:
        return cursor.ReadIndex(target);
      case kName:
        return cursor.ReadString(name);
      default:
        return false;
    }
  });
  if (!read || !members.Has(kBuffer) || !members.Has(kByteLength) || byteStride > kMaxByteStride ||
      byteStride % 4 != 0) {
    return false;
  }
  view.buffer = buffer;
  view.byteOffset = static_cast<std::size_t>(byteOffset);
  view.byteLength = static_cast<std::size_t>(byteLength);
  view.byteStride = static_cast<std::size_t>(byteStride);
  view.name.assign(name.data(), name.size());
  return true;
}

// The accessor type names and tinygltf's numbers for them; 0 for an unknown name.
int AccessorType(std::string_view name) {
  static constexpr std::pair<std::string_view, int> kTypes[] = {
      {"SCALAR", TINYGLTF_TYPE_SCALAR}, {"VEC2", TINYGLTF_TYPE_VEC2}, {"VEC3", TINYGLTF_TYPE_VEC3},
      {"VEC4", TINYGLTF_TYPE_VEC4},     {"MAT2", TINYGLTF_TYPE_MAT2}, {"MAT3", TINYGLTF_TYPE_MAT3},
      {"MAT4", TINYGLTF_TYPE_MAT4}};
  for (const auto& type : kTypes) {
    if (type.first == name) {
      return type.second;
    }
  }
  return 0;
}

bool ReadAccessor(JsonCursor& cursor, tinygltf::Accessor& accessor) {
  enum { kBufferView, kByteOffset, kNormalized, kComponentType, kCount, kType, kName, kMin, kMax };
  static constexpr std::string_view kNames[] = {"bufferView",    "byteOffset", "normalized",
                                                "componentType", "count",      "type",
                                                "name",          "min",        "max"};
  MemberNames members(kNames);
  int bufferView = -1;
  int byteOffset = 0;
  bool normalized = false;
  int componentType = 0;
  int count = 0;
  std::string_view type;
  std::string_view name;
  const bool read = cursor.ReadObject([&](std::string_view key) {
    switch (members.Take(key)) {
      case kBufferView:
        return cursor.ReadIndex(bufferView);
      case kByteOffset:
        return cursor.ReadIndex(byteOffset);
      case kNormalized:
        return cursor.ReadBoolean(normalized);
      case kComponentType:
        return cursor.ReadIndex(componentType);
      case kCount:
        return cursor.ReadIndex(count);
      case kType:
        return cursor.ReadString(type);
      case kName:
        return cursor.ReadString(name);
      // The bounds are not needed; tinygltf reads them into values nothing looks at.
      case kMin:
      case kMax:
        return SkipNumberArray(cursor);
      default:
        return false;
    }
  });
  if (!read || !members.Has(kComponentType) || !members.Has(kCount) || !members.Has(kType) ||
      componentType < TINYGLTF_COMPONENT_TYPE_BYTE ||
      componentType > TINYGLTF_COMPONENT_TYPE_DOUBLE || AccessorType(type) == 0) {
    return false;
  }
  accessor.bufferView = bufferView;
  accessor.byteOffset = static_cast<std::size_t>(byteOffset);
  accessor.normalized = normalized;
  accessor.componentType = componentType;
  accessor.count = static_cast<std::size_t>(count);
  accessor.type = AccessorType(type);
  accessor.name.assign(name.data(), name.size());
  return true;
}

// Attribute names to accessor indices; a name given twice is declined like any repeated member.
bool ReadAttributes(JsonCursor& cursor, std::map<std::string, int>& attributes) {
  return cursor.ReadObject([&](std::string_view key) {
    int accessor = 0;
    return cursor.ReadIndex(accessor) &&
           attributes.emplace(std::string(key.data(), key.size()), accessor).second;
  });
}

// tinygltf drops a primitive without attributes from its mesh; such a primitive is declined.
bool ReadPrimitive(JsonCursor& cursor, tinygltf::Primitive& primitive) {
  enum { kAttributes, kIndices, kMode, kMaterial };
  static constexpr std::string_view kNames[] = {"attributes", "indices", "mode", "material"};
  MemberNames members(kNames);
  primitive.mode = TINYGLTF_MODE_TRIANGLES;
  return cursor.ReadObject([&](std::string_view key) {
    switch (members.Take(key)) {
      case kAttributes:
        return ReadAttributes(cursor, primitive.attributes);
      case kIndices:
        return cursor.ReadIndex(primitive.indices);
      case kMode:
        return cursor.ReadIndex(primitive.mode);
      case kMaterial:
        return cursor.ReadIndex(primitive.material);
      default:
        return false;
    }
  }) && members.Has(kAttributes);
}

bool ReadMesh(JsonCursor& cursor, tinygltf::Mesh& mesh) {
  enum { kName, kPrimitives };
  static constexpr std::string_view kNames[] = {"name", "primitives"};
  MemberNames members(kNames);
  std::string_view name;
  const bool read = cursor.ReadObject([&](std::string_view key) {
    switch (members.Take(key)) {
      case kName:
        return cursor.ReadString(name);
      case kPrimitives:
        return cursor.ReadArray([&] {
          mesh.primitives.emplace_back();
          return ReadPrimitive(cursor, mesh.primitives.back());
        });
      default:
        return false;
    }
  });
  mesh.name.assign(name.data(), name.size());
  return read;
}

// tinygltf ignores a node's translation, rotation and scale when it has a matrix; a node with
// both is declined.
bool ReadNode(JsonCursor& cursor, tinygltf::Node& node) {
  enum { kName, kMesh, kChildren, kMatrix, kTranslation, kRotation, kScale };
  static constexpr std::string_view kNames[] = {"name",        "mesh",     "children", "matrix",
                                                "translation", "rotation", "scale"};
  MemberNames members(kNames);
  std::string_view name;
  const bool read = cursor.ReadObject([&](std::string_view key) {
    switch (members.Take(key)) {
      case kName:
        return cursor.ReadString(name);
      case kMesh:
        return cursor.ReadIndex(node.mesh);
      case kChildren:
        return ReadIndexArray(cursor, node.children);
      case kMatrix:
        return ReadNumberArray(cursor, node.matrix, 16);
      case kTranslation:
        return ReadNumberArray(cursor, node.translation, 3);
      case kRotation:
        return ReadNumberArray(cursor, node.rotation, 4);
      case kScale:
        return ReadNumberArray(cursor, node.scale, 3);
      default:
        return false;
    }
  });
  node.name.assign(name.data(), name.size());
  return read && !(members.Has(kMatrix) &&
                   (members.Has(kTranslation) || members.Has(kRotation) || members.Has(kScale)));
}

bool ReadScene(JsonCursor& cursor, tinygltf::Scene& scene) {
  enum { kNodes, kName };
  static constexpr std::string_view kNames[] = {"nodes", "name"};
  MemberNames members(kNames);
  std::string_view name;
  const bool read = cursor.ReadObject([&](std::string_view key) {
    switch (members.Take(key)) {
      case kNodes:
        return ReadIndexArray(cursor, scene.nodes);
      case kName:
        return cursor.ReadString(name);
      default:
        return false;
    }
  });
  scene.name.assign(name.data(), name.size());
  return read;
}

// Reads an array of objects into `items`, one `readItem(cursor, item)` each.
template <typename Item, typename ReadItem>
bool ReadItems(JsonCursor& cursor, std::vector<Item>& items, ReadItem&& readItem) {
  cursor.ReserveForObjects(items);
  return cursor.ReadArray([&] {
    items.emplace_back();
    return readItem(cursor, items.back());
  });
}

// tinygltf refuses a model where a primitive's indices name no accessor, or an accessor without
// a buffer view.
bool PrimitiveIndicesHaveViews(const tinygltf::Model& model) {
  for (const tinygltf::Mesh& mesh : model.meshes) {
    for (const tinygltf::Primitive& primitive : mesh.primitives) {
      if (primitive.indices == -1) {
        continue;
      }
      if (static_cast<std::size_t>(primitive.indices) >= model.accessors.size()) {
        return false;
      }
      const int view = model.accessors[static_cast<std::size_t>(primitive.indices)].bufferView;
      if (view < 0 || static_cast<std::size_t>(view) >= model.bufferViews.size()) {
        return false;
      }
    }
  }
  return true;
}

}  // namespace

bool ReadCommonGltf(const char* json, std::size_t jsonLength, const unsigned char* bin,
                    std::size_t binLength, tinygltf::Model& model) {
  enum { kAsset, kScene, kScenes, kNodes, kMeshes, kAccessors, kBufferViews, kBuffers };
  static constexpr std::string_view kNames[] = {"asset",  "scene",     "scenes",      "nodes",
                                                "meshes", "accessors", "bufferViews", "buffers"};
  MemberNames members(kNames);
  JsonCursor cursor(json, jsonLength);
  const bool read = cursor.ReadObject([&](std::string_view key) {
    switch (members.Take(key)) {
      case kAsset:
        return ReadAsset(cursor);
      case kScene:
        return cursor.ReadIndex(model.defaultScene);
      case kScenes:
        return ReadItems(cursor, model.scenes, ReadScene);
      case kNodes:
        return ReadItems(cursor, model.nodes, ReadNode);
      case kMeshes:
        return ReadItems(cursor, model.meshes, ReadMesh);
      case kAccessors:
        return ReadItems(cursor, model.accessors, ReadAccessor);
      case kBufferViews:
        return ReadItems(cursor, model.bufferViews, ReadBufferView);
      case kBuffers:
        return ReadItems(cursor, model.buffers,
                         [&](JsonCursor& itemCursor, tinygltf::Buffer& buffer) {
                           return ReadBuffer(itemCursor, bin, binLength, buffer);
                         });
      default:
        return false;
    }
  });
  return read && cursor.AtEnd() && members.Has(kAsset) && PrimitiveIndicesHaveViews(model);
}

}  // namespace vek_scenegraph_detail
