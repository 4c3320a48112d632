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
#include <variant>
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

// A member whose value is an array or an object: the function that reads it into its target.
struct NestedValue {
  bool (*read)(JsonCursor& cursor, void* target);
  void* target;
};

template <typename Target, bool (*Read)(JsonCursor&, Target&)>
bool ReadInto(JsonCursor& cursor, void* target) {
  return Read(cursor, *static_cast<Target*>(target));
}

// `target` filled by `Read` when the member comes.
template <auto Read, typename Target>
NestedValue Nested(Target& target) {
  return {&ReadInto<Target, Read>, &target};
}

// One member an object may have, where its value goes, and whether it came.
struct Member {
  std::string_view name;
  std::variant<int*, bool*, std::string_view*, NestedValue> value;
  bool seen = false;
};

// Reads one member's value into its place.
struct ValueReader {
  JsonCursor& cursor;
  bool operator()(int* index) const { return cursor.ReadIndex(*index); }
  bool operator()(bool* boolean) const { return cursor.ReadBoolean(*boolean); }
  bool operator()(std::string_view* text) const { return cursor.ReadString(*text); }
  bool operator()(const NestedValue& nested) const { return nested.read(cursor, nested.target); }
};

// Reads an object whose members are all among `members`, each at most once: a member given twice
// is declined, since the JSON reader under tinygltf would keep only the last.
template <std::size_t Count>
bool ReadMembers(JsonCursor& cursor, Member (&members)[Count]) {
  return cursor.ReadObject([&](std::string_view key) {
    for (Member& member : members) {
      if (member.name == key) {
        if (member.seen) {
          return false;
        }
        member.seen = true;
        return std::visit(ValueReader{cursor}, member.value);
      }
    }
    return false;
  });
}

// What a member reads into when its value is not needed.
struct Ignored {};

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
bool SkipNumberArray(JsonCursor& cursor, Ignored&) {
  return cursor.ReadArray([&] { return cursor.SkipNumber(); });
}

// An array of exactly `Count` numbers.
template <std::size_t Count>
bool ReadNumberArray(JsonCursor& cursor, std::vector<double>& values) {
  return cursor.ReadArray([&] {
    double value = 0;
    if (!cursor.ReadNumber(value)) {
      return false;
    }
    values.push_back(value);
    return true;
  }) && values.size() == Count;
}

// An array of objects, each read into a new item by `ReadItem`.
template <typename Item, bool (*ReadItem)(JsonCursor&, Item&)>
bool ReadItems(JsonCursor& cursor, std::vector<Item>& items) {
  cursor.ReserveForObjects(items);
  return cursor.ReadArray([&] {
    items.emplace_back();
    return ReadItem(cursor, items.back());
  });
}

// The asset's strings are not kept, but tinygltf requires its version.
bool ReadAsset(JsonCursor& cursor, Ignored&) {
  std::string_view version, generator, minVersion, copyright;
  Member members[] = {{"version", &version},
                      {"generator", &generator},
                      {"minVersion", &minVersion},
                      {"copyright", &copyright}};
  return ReadMembers(cursor, members) && members[0].seen;
}

// The buffer and what fills it: tinygltf gives a buffer without a URI in a GLB the first
// byteLength bytes of the BIN chunk. Only the first buffer may be the BIN chunk; tinygltf would
// copy the chunk again for every further one, so a second buffer is declined, and the checks before
// tinygltf then refuse it.
struct BufferSection {
  std::vector<tinygltf::Buffer>& buffers;
  const unsigned char* bin;
  std::size_t binLength;
};

bool ReadBuffers(JsonCursor& cursor, BufferSection& section) {
  cursor.ReserveForObjects(section.buffers);
  return cursor.ReadArray([&] {
    int byteLength = 0;
    std::string_view name;
    Member members[] = {{"byteLength", &byteLength}, {"name", &name}};
    if (!section.buffers.empty() || !ReadMembers(cursor, members) || !members[0].seen ||
        byteLength == 0 || static_cast<std::size_t>(byteLength) > section.binLength) {
      return false;
    }
    tinygltf::Buffer& buffer = section.buffers.emplace_back();
    buffer.name.assign(name.data(), name.size());
    buffer.data.assign(section.bin, section.bin + byteLength);
    return true;
  });
}

bool ReadBufferView(JsonCursor& cursor, tinygltf::BufferView& view) {
  enum { kBuffer, kByteOffset, kByteLength, kByteStride, kTarget, kName };
  int buffer = 0, byteOffset = 0, byteLength = 0, byteStride = 0, target = 0;
  std::string_view name;
  Member members[] = {{"buffer", &buffer},         {"byteOffset", &byteOffset},
                      {"byteLength", &byteLength}, {"byteStride", &byteStride},
                      {"target", &target},         {"name", &name}};
  if (!ReadMembers(cursor, members) || !members[kBuffer].seen || !members[kByteLength].seen ||
      byteStride > kMaxByteStride || byteStride % 4 != 0) {
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

// The bounds are only checked: tinygltf reads them into values nothing looks at.
bool ReadAccessor(JsonCursor& cursor, tinygltf::Accessor& accessor) {
  enum { kBufferView, kByteOffset, kNormalized, kComponentType, kCount, kType };
  int bufferView = -1, byteOffset = 0, componentType = 0, count = 0;
  bool normalized = false;
  std::string_view type, name;
  Ignored bounds;
  Member members[] = {{"bufferView", &bufferView},
                      {"byteOffset", &byteOffset},
                      {"normalized", &normalized},
                      {"componentType", &componentType},
                      {"count", &count},
                      {"type", &type},
                      {"name", &name},
                      {"min", Nested<SkipNumberArray>(bounds)},
                      {"max", Nested<SkipNumberArray>(bounds)}};
  if (!ReadMembers(cursor, members) || !members[kComponentType].seen || !members[kCount].seen ||
      !members[kType].seen || componentType < TINYGLTF_COMPONENT_TYPE_BYTE ||
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
  primitive.mode = TINYGLTF_MODE_TRIANGLES;
  Member members[] = {{"attributes", Nested<ReadAttributes>(primitive.attributes)},
                      {"indices", &primitive.indices},
                      {"mode", &primitive.mode},
                      {"material", &primitive.material}};
  return ReadMembers(cursor, members) && members[0].seen;
}

bool ReadMesh(JsonCursor& cursor, tinygltf::Mesh& mesh) {
  std::string_view name;
  Member members[] = {
      {"name", &name},
      {"primitives", Nested<ReadItems<tinygltf::Primitive, ReadPrimitive>>(mesh.primitives)}};
  const bool read = ReadMembers(cursor, members);
  mesh.name.assign(name.data(), name.size());
  return read;
}

// tinygltf ignores a node's translation, rotation and scale when it has a matrix; a node with
// both is declined.
bool ReadNode(JsonCursor& cursor, tinygltf::Node& node) {
  enum { kName, kMesh, kChildren, kMatrix, kTranslation, kRotation, kScale };
  std::string_view name;
  Member members[] = {{"name", &name},
                      {"mesh", &node.mesh},
                      {"children", Nested<ReadIndexArray>(node.children)},
                      {"matrix", Nested<ReadNumberArray<16>>(node.matrix)},
                      {"translation", Nested<ReadNumberArray<3>>(node.translation)},
                      {"rotation", Nested<ReadNumberArray<4>>(node.rotation)},
                      {"scale", Nested<ReadNumberArray<3>>(node.scale)}};
  const bool read = ReadMembers(cursor, members);
  node.name.assign(name.data(), name.size());
  return read && !(members[kMatrix].seen &&
                   (members[kTranslation].seen || members[kRotation].seen || members[kScale].seen));
}

bool ReadScene(JsonCursor& cursor, tinygltf::Scene& scene) {
  std::string_view name;
  Member members[] = {{"nodes", Nested<ReadIndexArray>(scene.nodes)}, {"name", &name}};
  const bool read = ReadMembers(cursor, members);
  scene.name.assign(name.data(), name.size());
  return read;
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
  Ignored asset;
  BufferSection buffers{model.buffers, bin, binLength};
  Member members[] = {
      {"asset", Nested<ReadAsset>(asset)},
      {"scene", &model.defaultScene},
      {"scenes", Nested<ReadItems<tinygltf::Scene, ReadScene>>(model.scenes)},
      {"nodes", Nested<ReadItems<tinygltf::Node, ReadNode>>(model.nodes)},
      {"meshes", Nested<ReadItems<tinygltf::Mesh, ReadMesh>>(model.meshes)},
      {"accessors", Nested<ReadItems<tinygltf::Accessor, ReadAccessor>>(model.accessors)},
      {"bufferViews", Nested<ReadItems<tinygltf::BufferView, ReadBufferView>>(model.bufferViews)},
      {"buffers", Nested<ReadBuffers>(buffers)}};
  JsonCursor cursor(json, jsonLength);
  return ReadMembers(cursor, members) && cursor.AtEnd() && members[0].seen &&
         PrimitiveIndicesHaveViews(model);
}

}  // namespace vek_scenegraph_detail
