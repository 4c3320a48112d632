#include "VEKDocumentGenerator.h"

#include <zlib.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <string_view>
#include <vector>

#include "GlbBuilder.h"

namespace {

// xoshiro256** seeded through splitmix64: fast, well spread, and the same sequence on every
// platform, which the standard library's distributions do not promise.
class Random {
 public:
  explicit Random(std::uint64_t seed) {
    for (std::uint64_t& word : state_) {
      seed += 0x9E3779B97F4A7C15ull;
      std::uint64_t mixed = seed;
      mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9ull;
      mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBull;
      word = mixed ^ (mixed >> 31);
    }
  }

  std::uint64_t Next() {
    const std::uint64_t result = Rotate(state_[1] * 5, 7) * 9;
    const std::uint64_t shifted = state_[1] << 17;
    state_[2] ^= state_[0];
    state_[3] ^= state_[1];
    state_[1] ^= state_[2];
    state_[0] ^= state_[3];
    state_[2] ^= shifted;
    state_[3] = Rotate(state_[3], 45);
    return result;
  }

  // Uniform in [0, bound) for bound >= 1; the modulo bias is below 10^-11 for our bounds.
  std::int64_t Below(std::int64_t bound) {
    return static_cast<std::int64_t>(Next() % static_cast<std::uint64_t>(bound));
  }
  // Uniform in [low, high].
  std::int64_t Between(std::int64_t low, std::int64_t high) { return low + Below(high - low + 1); }
  bool OneIn(std::int64_t n) { return Below(n) == 0; }
  template <class T, std::size_t N>
  const T& Pick(const T (&items)[N]) {
    return items[Below(N)];
  }

 private:
  static std::uint64_t Rotate(std::uint64_t value, int bits) {
    return (value << bits) | (value >> (64 - bits));
  }
  std::uint64_t state_[4];
};

// A decimal number as an integer count of 10^-places: printed exactly, without the C locale.
struct Decimal {
  std::int64_t scaled = 0;
  int places = 0;
};

struct Vector {
  Decimal x, y, z;
};

// Identification common to every object.
struct Common {
  std::string name;
  std::int64_t id = 0;
  int type = 0;
  int status = 0;
  char uuid[36] = {};
};

// A uuid as written: its 36 characters, which carry no terminating zero.
std::string_view UuidText(const char (&uuid)[36]) { return {uuid, sizeof uuid}; }

struct TtrsRecord {
  Common common;
  std::vector<std::vector<std::int64_t>> geometry;
  // Index into the small representations, or -1.
  int rep = -1;
};

struct AnnotationRecord {
  Common common;
  Decimal value;
  bool isDefault = false;
  std::int64_t reference = 0;
  // The attribute text: a constant, or the buffer below when it is built from the values.
  std::string_view attribute;
  std::string attributeBuffer;
  // Index into the annotation representations, or -1.
  int rep = -1;
  std::vector<std::int64_t> ttrs;
  std::vector<std::int64_t> group;
};

struct ViewRecord {
  Common common;
  std::vector<std::int64_t> annotations;
  Vector origin, normal, direction;
};

struct RefFrameRecord {
  Common common;
  std::string attribute;
  std::vector<std::int64_t> datums;
  std::vector<std::int64_t> ttrs;
};

struct CgRecord {
  Common common;
  std::string_view attribute;
  std::vector<std::int64_t> ttrs;
  std::vector<std::int64_t> treps;
};

struct CaptureRecord {
  Common common;
  std::int64_t activeView = 0;
  int clip = 0;
  int rep = -1;
  std::vector<std::int64_t> annotations;
  std::vector<std::int64_t> views;
  std::vector<std::int64_t> cgs;
  int cameraType = 0;
  Vector position, direction, zenith, target;
  // A face number for the geometry block that legacy captures may carry (loads ignore it), or 0.
  std::int64_t geometryBlock = 0;
};

struct AnnotationKind {
  const char* stem;
  int type;
  // Geometric tolerances name a reference frame; datums are what reference frames rest on.
  bool referenced;
  bool datum;
  const char* symbol;
};

constexpr AnnotationKind kDatumKind = {"Datum", 20, false, true, ""};
constexpr AnnotationKind kAnnotationKinds[] = {
    {"Flatness", 1, false, false, "FLT"},
    {"Straightness", 2, false, false, "STR"},
    {"Circularity", 3, false, false, "CIR"},
    {"Cylindricity", 4, false, false, "CYL"},
    {"Profile", 5, true, false, "PRF"},
    {"Position", 6, true, false, "POS"},
    {"Position", 6, true, false, "POS"},
    {"Parallelism", 7, true, false, "PAR"},
    {"Perpendicularity", 8, true, false, "PER"},
    {"Angularity", 9, true, false, "ANG"},
    {"Runout", 10, true, false, "RUN"},
    kDatumKind,
    kDatumKind,
    {"Dimension", 30, false, false, ""},
    {"Dimension", 30, false, false, ""},
    {"Roughness", 40, false, false, ""},
    {"Note", 50, false, false, ""},
};

constexpr const char* kTtrsStems[] = {"Plane", "Cylinder", "Sphere", "Cone", "Torus", "Prism"};
constexpr const char* kViewStems[] = {"Front view",  "Top view", "Right view",
                                      "Section A-A", "Detail B", "Isometric view"};
constexpr const char* kCgStems[] = {"Axis", "Center plane", "Point", "Line", "Circle"};
constexpr const char* kCgAttributes[] = {"axis of bore", "mid-plane of slot", "intersection point",
                                         "tangent line", "pitch circle"};
constexpr const char* kCaptureStems[] = {"Capture", "Inspection step", "Assembly state", "Review"};
constexpr const char* kNotes[] = {"Break all sharp edges 0.5 x 45 deg",
                                  "Deburr &amp; clean all edges",
                                  "Surface roughness &lt;= Ra 3.2 unless stated",
                                  "Material: EN AC-42100 T6", "Paint RAL 7035 after machining"};
constexpr const char* kRoughness[] = {"Ra 0.8", "Ra 1.6", "Ra 3.2", "Rz 6.3", "Ra 12.5"};
constexpr const char* kLimits[] = {"+0.1/-0.05", "+0.2/0", "0/-0.1", "H7", "g6", "+/-0.15"};
constexpr std::int64_t kTolerances[] = {5, 10, 20, 25, 30, 50, 80, 100, 150, 200, 300, 500};
constexpr const char* kPartNames[] = {"Pump housing", "Gear shaft",  "Bracket",
                                      "Valve body",   "Bearing cap", "Flange"};
constexpr const char* kStandards[] = {"ISO 1101:2017", "ASME Y14.5-2018"};

constexpr std::int64_t kPowersOfTen[] = {1, 10, 100, 1000, 10000, 100000, 1000000};

// Appends the pieces of a document to one string.
class Text {
 public:
  explicit Text(std::string& out) : out_(out) {}

  Text& operator<<(std::string_view text) {
    out_.append(text);
    return *this;
  }
  Text& operator<<(const char* text) { return *this << std::string_view(text); }
  Text& Int(std::int64_t value) {
    char digits[24];
    const auto converted = std::to_chars(digits, digits + sizeof digits, value);
    out_.append(digits, converted.ptr);
    return *this;
  }
  // Trailing zeros of the fraction are left out, and the point with them when nothing remains.
  Text& Number(const Decimal& number) {
    std::int64_t magnitude = number.scaled;
    if (magnitude < 0) {
      out_ += '-';
      magnitude = -magnitude;
    }
    const std::int64_t unit = kPowersOfTen[number.places];
    Int(magnitude / unit);
    std::int64_t fraction = magnitude % unit;
    if (fraction == 0) return *this;
    char digits[8];
    for (int place = number.places - 1; place >= 0; --place) {
      digits[place] = static_cast<char>('0' + fraction % 10);
      fraction /= 10;
    }
    int kept = number.places;
    while (digits[kept - 1] == '0') --kept;
    out_ += '.';
    out_.append(digits, static_cast<std::size_t>(kept));
    return *this;
  }
  Text& Numbers(const Vector& vector, char separator) {
    Number(vector.x) << std::string_view(&separator, 1);
    Number(vector.y) << std::string_view(&separator, 1);
    return Number(vector.z);
  }
  // Integers joined by `separator`; `around` also puts one before the first and after the last.
  Text& List(const std::vector<std::int64_t>& values, char separator, bool around) {
    if (around && !values.empty()) out_ += separator;
    for (std::size_t k = 0; k < values.size(); ++k) {
      if (k > 0) out_ += separator;
      Int(values[k]);
    }
    if (around && !values.empty()) out_ += separator;
    return *this;
  }
  Text& Indent(int depth) {
    out_.append(static_cast<std::size_t>(depth) * 2, ' ');
    return *this;
  }

 private:
  std::string& out_;
};

// First identifier of each family: identifiers run from 1 through the families in order.
struct Layout {
  explicit Layout(const VEKFamilyCounts& counts)
      : counts(counts),
        ttrsBase(1),
        annotationBase(ttrsBase + counts.ttrs),
        viewBase(annotationBase + counts.annotations),
        refFrameBase(viewBase + counts.views),
        cgBase(refFrameBase + counts.refFrames),
        captureBase(cgBase + counts.cgs) {}

  VEKFamilyCounts counts;
  std::int64_t ttrsBase, annotationBase, viewBase, refFrameBase, cgBase, captureBase;
};

class Generator {
 public:
  Generator(const VEKGeneratorOptions& options, std::string& out)
      : schema_(options.schema),
        random_(options.seed),
        layout_(VEKCountFamilies(options.objects)),
        text_(out) {
    if (schema_ == VEKGeneratedSchema::Current) MakeRepresentations(options.seed);
  }

  void Write() {
    if (schema_ == VEKGeneratedSchema::Current) {
      WriteCurrent();
    } else {
      WriteLegacy();
    }
  }

 private:
  bool Current() const { return schema_ == VEKGeneratedSchema::Current; }

  // A pool of GLB blobs as base64: annotation and capture graphics of a few KB, and small TTRS
  // graphics. Drawn from a generator of their own, so they do not shift the document's numbers.
  void MakeRepresentations(std::uint64_t seed) {
    Random pool(seed ^ 0x5DEECE66Dull);
    for (int k = 0; k < 16; ++k) {
      // One draw per statement: the order in which arguments are evaluated is unspecified.
      const auto triangles = static_cast<int>(pool.Between(3, 8));
      const auto lines = static_cast<int>(pool.Between(0, 2));
      const auto points = static_cast<int>(pool.Between(0, 1));
      const std::vector<char> glb = vek_test::BuildMeshesGlb(triangles, lines, points);
      graphics_.push_back(
          vek_test::EncodeBase64(reinterpret_cast<const unsigned char*>(glb.data()), glb.size()));
    }
    for (int triangles = 1; triangles <= 2; ++triangles) {
      const std::vector<char> glb = vek_test::BuildMeshesGlb(triangles, 0, 0);
      smallGraphics_.push_back(
          vek_test::EncodeBase64(reinterpret_cast<const unsigned char*>(glb.data()), glb.size()));
    }
  }

  // ---- records: the same draws in the same order for both schemas ----

  void FillCommon(Common& common, std::string_view stem, std::int64_t ordinal, std::int64_t id,
                  int type) {
    common.name.assign(stem);
    common.name += '.';
    char digits[24];
    const auto converted = std::to_chars(digits, digits + sizeof digits, ordinal);
    common.name.append(digits, converted.ptr);
    common.id = id;
    common.type = type;
    common.status = random_.OneIn(8) ? static_cast<int>(random_.Between(1, 2)) : 0;
    FillUuid(common.uuid);
  }

  // The set's identification: a part name and a drawing number.
  void FillSetCommon(Common& set) {
    const char* part = random_.Pick(kPartNames);
    const std::int64_t number = random_.Between(1000, 9999);
    FillCommon(set, part, number, 0, 1);
  }

  // A version 4 uuid, 8-4-4-4-12 lowercase hexadecimal digits.
  void FillUuid(char (&uuid)[36]) {
    static const char kHex[] = "0123456789abcdef";
    const std::uint64_t high = (random_.Next() & ~0xF000ull) | 0x4000ull;
    const std::uint64_t low = (random_.Next() & 0x3FFFFFFFFFFFFFFFull) | 0x8000000000000000ull;
    int position = 0;
    for (int digit = 0; digit < 32; ++digit) {
      if (digit == 8 || digit == 12 || digit == 16 || digit == 20) uuid[position++] = '-';
      const std::uint64_t word = digit < 16 ? high : low;
      uuid[position++] = kHex[(word >> (4 * (15 - digit % 16))) & 0xF];
    }
  }

  Vector Position() {
    return {{random_.Between(-500000, 500000), 3},
            {random_.Between(-500000, 500000), 3},
            {random_.Between(-500000, 500000), 3}};
  }

  // A unit vector: mostly along an axis, otherwise a random direction to six decimals.
  Vector Direction() {
    if (!random_.OneIn(3)) {
      const std::int64_t sign = random_.OneIn(2) ? -1 : 1;
      const std::int64_t axis = random_.Below(3);
      return {{axis == 0 ? sign : 0, 0}, {axis == 1 ? sign : 0, 0}, {axis == 2 ? sign : 0, 0}};
    }
    double x = 0, y = 0, z = 0, length = 0;
    do {
      x = static_cast<double>(random_.Between(-1000, 1000));
      y = static_cast<double>(random_.Between(-1000, 1000));
      z = static_cast<double>(random_.Between(-1000, 1000));
      length = std::sqrt(x * x + y * y + z * z);
    } while (length < 100);
    return {{std::llround(x / length * 1e6), 6},
            {std::llround(y / length * 1e6), 6},
            {std::llround(z / length * 1e6), 6}};
  }

  // A unit vector perpendicular to `normal` (a unit vector), either way round.
  Vector PerpendicularTo(const Vector& normal) {
    const double n[3] = {Value(normal.x), Value(normal.y), Value(normal.z)};
    // Crossing with the axis least aligned with the normal keeps the result well conditioned.
    int axis = 0;
    for (int k = 1; k < 3; ++k) {
      if (std::fabs(n[k]) < std::fabs(n[axis])) axis = k;
    }
    double d[3] = {0, 0, 0};
    if (axis == 0) {
      d[1] = n[2];
      d[2] = -n[1];
    } else if (axis == 1) {
      d[0] = -n[2];
      d[2] = n[0];
    } else {
      d[0] = n[1];
      d[1] = -n[0];
    }
    const double scale =
        (random_.OneIn(2) ? -1e6 : 1e6) / std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
    return {{std::llround(d[0] * scale), 6},
            {std::llround(d[1] * scale), 6},
            {std::llround(d[2] * scale), 6}};
  }

  static double Value(const Decimal& number) {
    return static_cast<double>(number.scaled) / static_cast<double>(kPowersOfTen[number.places]);
  }

  // `count` distinct identifiers of a family of `size` objects starting at `base`, drawn near
  // each other as the members of one part would be.
  void DrawIds(std::vector<std::int64_t>& out, std::int64_t base, std::int64_t size,
               std::int64_t count) {
    out.clear();
    if (size == 0 || count == 0) return;
    count = std::min(count, size);
    const std::int64_t start = random_.Below(size);
    const std::int64_t stride =
        size > count ? random_.Between(1, std::min<std::int64_t>(3, size / count)) : 1;
    for (std::int64_t k = 0; k < count; ++k) out.push_back(base + (start + k * stride) % size);
  }

  void DrawTtrs(TtrsRecord& record, std::int64_t index) {
    const std::int64_t kind = random_.Below(std::size(kTtrsStems));
    FillCommon(record.common, kTtrsStems[kind], index + 1, layout_.ttrsBase + index,
               static_cast<int>(kind) + 1);
    // Geometry: face numbers of the part, about 20 per TTRS.
    const std::int64_t faces = std::max<std::int64_t>(20 * layout_.counts.ttrs, 20);
    record.geometry.resize(static_cast<std::size_t>(random_.Between(1, 3)));
    for (std::vector<std::int64_t>& list : record.geometry) {
      list.clear();
      const std::int64_t length = random_.Between(1, 4);
      for (std::int64_t k = 0; k < length; ++k) list.push_back(random_.Between(1, faces));
    }
    record.rep = random_.OneIn(20) ? static_cast<int>(random_.Below(2)) : -1;
  }

  void DrawAnnotation(AnnotationRecord& record, std::int64_t index) {
    // The first annotation is a datum, so that every reference frame has one to rest on.
    const AnnotationKind& kind = index == 0 ? kDatumKind : random_.Pick(kAnnotationKinds);
    FillCommon(record.common, kind.stem, index + 1, layout_.annotationBase + index, kind.type);
    record.isDefault = random_.OneIn(10);
    record.reference = kind.referenced && layout_.counts.refFrames > 0
                           ? layout_.refFrameBase + random_.Below(layout_.counts.refFrames)
                           : 0;
    record.attributeBuffer.clear();
    if (kind.datum) {
      datums_.push_back(record.common.id);
      record.value = {};
      AppendDatumLetter(record.attributeBuffer, static_cast<std::int64_t>(datums_.size()) - 1);
      record.attribute = record.attributeBuffer;
    } else if (kind.type == 30) {
      record.value = {random_.Between(100, 50000), 2};
      record.attribute = random_.Pick(kLimits);
    } else if (kind.type == 40) {
      record.value = {};
      record.attribute = random_.Pick(kRoughness);
    } else if (kind.type == 50) {
      record.value = {};
      record.attribute = random_.Pick(kNotes);
    } else {
      record.value = {random_.Pick(kTolerances), 3};
      record.attributeBuffer = kind.symbol;
      record.attributeBuffer += '|';
      Text(record.attributeBuffer).Number(record.value);
      if (random_.OneIn(4)) record.attributeBuffer += "|M";
      record.attribute = record.attributeBuffer;
    }
    record.rep = index % 5 == 0 ? static_cast<int>(random_.Below(16)) : -1;
    DrawIds(record.ttrs, layout_.ttrsBase, layout_.counts.ttrs, random_.Between(1, 2));

    // Order groups: runs of two or three consecutive annotations, each listing the others.
    if (index >= groupEnd_ && random_.OneIn(20)) {
      groupStart_ = index;
      groupEnd_ = std::min(index + random_.Between(2, 3), layout_.counts.annotations);
    }
    record.group.clear();
    if (index < groupEnd_) {
      for (std::int64_t member = groupStart_; member < groupEnd_; ++member) {
        if (member != index) record.group.push_back(layout_.annotationBase + member);
      }
    }
  }

  // Datum letters as spreadsheet columns name them: A to Z, then AA, AB, ...
  static void AppendDatumLetter(std::string& out, std::int64_t ordinal) {
    char letters[16];
    int count = 0;
    for (std::int64_t rest = ordinal + 1; rest > 0; rest = (rest - 1) / 26) {
      letters[count++] = static_cast<char>('A' + (rest - 1) % 26);
    }
    while (count > 0) out += letters[--count];
  }

  // The annotations a view shows: each view owns a run of consecutive annotations.
  std::int64_t ViewFirstAnnotation(std::int64_t view) const {
    return layout_.counts.annotations * view / layout_.counts.views;
  }

  void DrawView(ViewRecord& record, std::int64_t index) {
    const std::int64_t stem = random_.Below(std::size(kViewStems));
    FillCommon(record.common, kViewStems[stem], index + 1, layout_.viewBase + index,
               static_cast<int>(stem) + 1);
    record.annotations.clear();
    for (std::int64_t k = ViewFirstAnnotation(index); k < ViewFirstAnnotation(index + 1); ++k) {
      record.annotations.push_back(layout_.annotationBase + k);
    }
    if (layout_.counts.annotations > 0 && random_.OneIn(10)) {
      record.annotations.push_back(layout_.annotationBase +
                                   random_.Below(layout_.counts.annotations));
    }
    record.origin = Position();
    record.normal = Direction();
    record.direction = PerpendicularTo(record.normal);
  }

  void DrawRefFrame(RefFrameRecord& record, std::int64_t index) {
    FillCommon(record.common, "Datum system", index + 1, layout_.refFrameBase + index, 1);
    // Up to three consecutive datums; the attribute names them by letter ("A|B|C").
    record.datums.clear();
    record.attribute.clear();
    const auto datumCount = static_cast<std::int64_t>(datums_.size());
    if (datumCount > 0) {
      const std::int64_t count = std::min<std::int64_t>(random_.Between(1, 3), datumCount);
      const std::int64_t first = random_.Below(datumCount);
      for (std::int64_t k = 0; k < count; ++k) {
        const std::int64_t ordinal = (first + k) % datumCount;
        record.datums.push_back(datums_[static_cast<std::size_t>(ordinal)]);
        if (k > 0) record.attribute += '|';
        AppendDatumLetter(record.attribute, ordinal);
      }
    }
    DrawIds(record.ttrs, layout_.ttrsBase, layout_.counts.ttrs, random_.Between(1, 3));
  }

  void DrawCg(CgRecord& record, std::int64_t index) {
    const std::int64_t stem = random_.Below(std::size(kCgStems));
    FillCommon(record.common, kCgStems[stem], index + 1, layout_.cgBase + index,
               static_cast<int>(stem) + 1);
    record.attribute = kCgAttributes[stem];
    DrawIds(record.ttrs, layout_.ttrsBase, layout_.counts.ttrs, random_.Between(1, 2));
    record.treps.clear();
    const std::int64_t treps = random_.Between(1, 2);
    for (std::int64_t k = 0; k < treps; ++k) record.treps.push_back(random_.Between(1, 500));
  }

  void DrawCapture(CaptureRecord& record, std::int64_t index) {
    const std::int64_t stem = random_.Below(std::size(kCaptureStems));
    FillCommon(record.common, kCaptureStems[stem], index + 1, layout_.captureBase + index, 1);
    record.activeView = 0;
    record.annotations.clear();
    record.views.clear();
    if (layout_.counts.views > 0) {
      const std::int64_t view = random_.Below(layout_.counts.views);
      record.activeView = layout_.viewBase + view;
      record.views.push_back(record.activeView);
      // What the active view shows, at most a dozen annotations.
      const std::int64_t last =
          std::min(ViewFirstAnnotation(view + 1), ViewFirstAnnotation(view) + 12);
      for (std::int64_t k = ViewFirstAnnotation(view); k < last; ++k) {
        record.annotations.push_back(layout_.annotationBase + k);
      }
      if (layout_.counts.views > 1 && random_.OneIn(3)) {
        const std::int64_t other =
            (view + 1 + random_.Below(layout_.counts.views - 1)) % layout_.counts.views;
        record.views.push_back(layout_.viewBase + other);
      }
    }
    record.clip = random_.OneIn(4) ? 1 : 0;
    record.rep = random_.OneIn(10) ? static_cast<int>(random_.Below(16)) : -1;
    DrawIds(record.cgs, layout_.cgBase, layout_.counts.cgs, random_.Below(3));
    record.cameraType = random_.OneIn(3) ? 1 : 0;
    record.position = Position();
    record.direction = Direction();
    record.zenith = PerpendicularTo(record.direction);
    record.target = Position();
    record.geometryBlock = random_.OneIn(10) ? random_.Between(1, 500) : 0;
  }

  // ---- current schema ----

  void WriteCurrent() {
    text_ << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
          << "<Functional_Tolerancing_Annotation Version=\"3.2\">\n";
    Common set;
    FillSetCommon(set);
    text_.Indent(1) << "<AnnotationSet Standard=\"" << random_.Pick(kStandards) << "\">\n";
    WriteIdentity(set, 2);
    text_.Indent(1) << "</AnnotationSet>\n";

    WriteFamily("RootTTRSs", layout_.counts.ttrs, [this](std::int64_t k) {
      DrawTtrs(ttrs_, k);
      text_.Indent(2) << "<TTRS>\n";
      WriteIdentity(ttrs_.common, 3);
      if (ttrs_.rep >= 0) WriteRep("3", smallGraphics_[ttrs_.rep]);
      for (const std::vector<std::int64_t>& list : ttrs_.geometry) WriteIntList("GeoP", list);
      text_.Indent(2) << "</TTRS>\n";
    });
    WriteFamily("RootTPSs", layout_.counts.annotations, [this](std::int64_t k) {
      DrawAnnotation(annotation_, k);
      text_.Indent(2) << "<TPS Val=\"";
      text_.Number(annotation_.value)
          << "\" Def=\"" << (annotation_.isDefault ? "1" : "0") << "\" Ref=\"";
      text_.Int(annotation_.reference) << "\" Att=\"" << annotation_.attribute << "\">\n";
      WriteIdentity(annotation_.common, 3);
      if (annotation_.rep >= 0) WriteRep("2", graphics_[annotation_.rep]);
      WriteIntList("TTRS", annotation_.ttrs);
      // Every annotation carries one group list, empty or not: groups pair with annotations by
      // position.
      WriteIntList("Grou", annotation_.group);
      text_.Indent(2) << "</TPS>\n";
    });
    WriteFamily("RootViews", layout_.counts.views, [this](std::int64_t k) {
      DrawView(view_, k);
      text_.Indent(2) << "<TPSView>\n";
      WriteIdentity(view_.common, 3);
      WriteIntList("TPSs", view_.annotations);
      text_.Indent(3) << "<Math>\n";
      WriteVector("Or", view_.origin, 4);
      WriteVector("No", view_.normal, 4);
      WriteVector("Di", view_.direction, 4);
      text_.Indent(3) << "</Math>\n";
      text_.Indent(2) << "</TPSView>\n";
    });
    WriteFamily("RootRefs", layout_.counts.refFrames, [this](std::int64_t k) {
      DrawRefFrame(refFrame_, k);
      text_.Indent(2) << "<RefFrame Att=\"" << refFrame_.attribute << "\">\n";
      WriteIdentity(refFrame_.common, 3);
      if (!refFrame_.datums.empty()) WriteIntList("Datum", refFrame_.datums);
      WriteIntList("TTRS", refFrame_.ttrs);
      text_.Indent(2) << "</RefFrame>\n";
    });
    WriteFamily("RootCGs", layout_.counts.cgs, [this](std::int64_t k) {
      DrawCg(cg_, k);
      text_.Indent(2) << "<TPSCG Att=\"" << cg_.attribute << "\">\n";
      WriteIdentity(cg_.common, 3);
      WriteIntList("TTRS", cg_.ttrs);
      WriteIntList("TRep", cg_.treps);
      text_.Indent(2) << "</TPSCG>\n";
    });
    WriteFamily("RootCaps", layout_.counts.captures, [this](std::int64_t k) {
      DrawCapture(capture_, k);
      text_.Indent(2) << "<TPSCap ActVie=\"";
      text_.Int(capture_.activeView) << "\" ClipPla=\"";
      text_.Int(capture_.clip) << "\">\n";
      WriteIdentity(capture_.common, 3);
      if (capture_.rep >= 0) WriteRep("2", graphics_[capture_.rep]);
      WriteIntList("TPSs", capture_.annotations);
      WriteIntList("Views", capture_.views);
      if (!capture_.cgs.empty()) WriteIntList("CGs", capture_.cgs);
      text_.Indent(3) << "<Cam Type=\"";
      text_.Int(capture_.cameraType) << "\">\n";
      WriteVector("Po", capture_.position, 4);
      WriteVector("Di", capture_.direction, 4);
      WriteVector("Ze", capture_.zenith, 4);
      WriteVector("Ta", capture_.target, 4);
      text_.Indent(3) << "</Cam>\n";
      text_.Indent(2) << "</TPSCap>\n";
    });
    text_ << "</Functional_Tolerancing_Annotation>\n";
  }

  template <class WriteOne>
  void WriteFamily(const char* root, std::int64_t count, WriteOne writeOne) {
    text_.Indent(1) << "<" << root << ">\n";
    for (std::int64_t k = 0; k < count; ++k) writeOne(k);
    text_.Indent(1) << "</" << root << ">\n";
  }

  void WriteIdentity(const Common& common, int depth) {
    text_.Indent(depth) << "<TPSId Name=\"" << common.name << "\" Uuid=\"" << UuidText(common.uuid)
                        << "\"/>\n";
    text_.Indent(depth) << "<TPSLoc Type=\"";
    text_.Int(common.type) << "\" Id=\"";
    text_.Int(common.id) << "\" Status=\"";
    text_.Int(common.status) << "\"/>\n";
  }

  void WriteRep(const char* type, const std::string& base64) {
    text_.Indent(3) << "<Rep Type=\"" << type << "\">\n";
    text_.Indent(4) << "<Buf>" << base64 << "</Buf>\n";
    text_.Indent(3) << "</Rep>\n";
  }

  void WriteIntList(const char* name, const std::vector<std::int64_t>& values) {
    text_.Indent(3) << "<" << name << ">";
    text_.List(values, ' ', false) << "</" << name << ">\n";
  }

  void WriteVector(const char* name, const Vector& vector, int depth) {
    text_.Indent(depth) << "<" << name << ">";
    text_.Numbers(vector, ' ') << "</" << name << ">\n";
  }

  // ---- legacy schema: values positional, in "V" attributes ----

  void WriteLegacy() {
    text_ << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<TolerancingData>\n";
    Common set;
    FillSetCommon(set);
    const char* standard = random_.Pick(kStandards);
    text_.Indent(1) << "<AnnotationSet>";
    LegacyValue("Na", set.name);
    LegacyValue("St", standard);
    LegacyNumber("Ty", set.type);
    LegacyNumber("Ss", set.status);
    LegacyValue("Ui", UuidText(set.uuid));
    text_ << "</AnnotationSet>\n";

    WriteFamily("TTRSRoot", layout_.counts.ttrs, [this](std::int64_t k) { WriteLegacyTtrs(k); });
    WriteFamily("Annotations", layout_.counts.annotations,
                [this](std::int64_t k) { WriteLegacyAnnotation(k); });
    WriteFamily("ViewRoot", layout_.counts.views, [this](std::int64_t k) { WriteLegacyView(k); });
    WriteFamily("ReferenceFrame", layout_.counts.refFrames,
                [this](std::int64_t k) { WriteLegacyRefFrame(k); });
    WriteFamily("CGRoot", layout_.counts.cgs, [this](std::int64_t k) { WriteLegacyCg(k); });
    WriteFamily("CaptureRoot", layout_.counts.captures,
                [this](std::int64_t k) { WriteLegacyCapture(k); });
    text_ << "</TolerancingData>\n";
  }

  // One legacy object of each family, its values in the order the format fixes.
  void WriteLegacyTtrs(std::int64_t k) {
    DrawTtrs(ttrs_, k);
    text_.Indent(2) << "<TTRS>";
    LegacyValue("Na", ttrs_.common.name);
    LegacyNumber("In", ttrs_.common.id);
    LegacyValue("Ui", UuidText(ttrs_.common.uuid));
    // Each packed list starts with its separator: the first character is never a value.
    text_ << "<Gd>";
    for (const std::vector<std::int64_t>& list : ttrs_.geometry) {
      text_ << "<I V=\";";
      text_.List(list, ';', false) << "\"/>";
    }
    text_ << "</Gd></TTRS>\n";
  }

  void WriteLegacyAnnotation(std::int64_t k) {
    DrawAnnotation(annotation_, k);
    const Common& common = annotation_.common;
    text_.Indent(2) << "<TPS>";
    LegacyNumber("Ty", common.type);
    text_ << "<Va V=\"";
    text_.Number(annotation_.value) << "\"/>";
    LegacyValue("Na", common.name);
    LegacyNumber("Id", common.id);
    LegacyNumber("De", annotation_.isDefault ? 1 : 0);
    LegacyNumber("Re", annotation_.reference);
    LegacyNumber("St", common.status);
    LegacyValue("Ui", UuidText(common.uuid));
    LegacyValue("At", annotation_.attribute);
    LegacyList("Tt", annotation_.ttrs, ';');
    LegacyList("Og", annotation_.group, ';');
    text_ << "</TPS>\n";
  }

  void WriteLegacyView(std::int64_t k) {
    DrawView(view_, k);
    const Common& common = view_.common;
    text_.Indent(2) << "<View>";
    LegacyNumber("Ty", common.type);
    LegacyValue("Na", common.name);
    LegacyNumber("Id", common.id);
    LegacyValue("Ui", UuidText(common.uuid));
    LegacyList("Ts", view_.annotations, ';');
    text_ << "<Mt><I V=\"";
    text_.Numbers(view_.normal, ';') << ";";
    text_.Numbers(view_.direction, ';') << "\"/><I V=\"";
    text_.Numbers(view_.origin, ';') << "\"/></Mt></View>\n";
  }

  void WriteLegacyRefFrame(std::int64_t k) {
    DrawRefFrame(refFrame_, k);
    const Common& common = refFrame_.common;
    text_.Indent(2) << "<RefFrame>";
    LegacyValue("Na", common.name);
    LegacyNumber("Id", common.id);
    LegacyValue("At", refFrame_.attribute);
    LegacyValue("Ui", UuidText(common.uuid));
    LegacyList("Da", refFrame_.datums, ';');
    LegacyList("Tt", refFrame_.ttrs, ';');
    text_ << "</RefFrame>\n";
  }

  void WriteLegacyCg(std::int64_t k) {
    DrawCg(cg_, k);
    const Common& common = cg_.common;
    text_.Indent(2) << "<CG>";
    LegacyNumber("Ty", common.type);
    LegacyValue("Na", common.name);
    LegacyNumber("Id", common.id);
    LegacyNumber("St", common.status);
    LegacyValue("At", cg_.attribute);
    LegacyValue("Ui", UuidText(common.uuid));
    LegacyList("Tt", cg_.ttrs, ';');
    LegacyList("Tr", cg_.treps, ';');
    text_ << "</CG>\n";
  }

  void WriteLegacyCapture(std::int64_t k) {
    DrawCapture(capture_, k);
    const Common& common = capture_.common;
    text_.Indent(2) << "<Capture>";
    LegacyNumber("Id", common.id);
    LegacyNumber("Av", capture_.activeView);
    LegacyNumber("Cl", capture_.clip);
    LegacyValue("Na", common.name);
    LegacyValue("Ui", UuidText(common.uuid));
    // Capture lists are cut at blanks, not at ";".
    LegacyList("Ts", capture_.annotations, ' ');
    LegacyList("Vs", capture_.views, ' ');
    LegacyList("Cs", capture_.cgs, ' ');
    if (capture_.geometryBlock) {
      text_ << "<Gd><I V=\";";
      text_.Int(capture_.geometryBlock) << "\"/></Gd>";
    }
    text_ << "<Cam><P V=\"";
    text_.Numbers(capture_.position, ' ') << "\"/><D V=\"";
    text_.Numbers(capture_.direction, ' ') << "\"/><Z V=\"";
    text_.Numbers(capture_.zenith, ' ') << "\"/><T V=\"";
    text_.Numbers(capture_.target, ' ') << "\"/><K V=\"";
    text_.Int(capture_.cameraType) << "\"/></Cam></Capture>\n";
  }

  void LegacyValue(const char* tag, std::string_view value) {
    text_ << "<" << tag << " V=\"" << value << "\"/>";
  }
  void LegacyNumber(const char* tag, std::int64_t value) {
    text_ << "<" << tag << " V=\"";
    text_.Int(value) << "\"/>";
  }
  // Separator-framed lists (";3;4;"): the first character of a packed value never holds a value.
  void LegacyList(const char* tag, const std::vector<std::int64_t>& values, char separator) {
    text_ << "<" << tag << " V=\"";
    text_.List(values, separator, true) << "\"/>";
  }

  VEKGeneratedSchema schema_;
  Random random_;
  Layout layout_;
  Text text_;
  std::vector<std::string> graphics_;
  std::vector<std::string> smallGraphics_;
  std::vector<std::int64_t> datums_;
  std::int64_t groupStart_ = 0;
  std::int64_t groupEnd_ = 0;
  TtrsRecord ttrs_;
  AnnotationRecord annotation_;
  ViewRecord view_;
  RefFrameRecord refFrame_;
  CgRecord cg_;
  CaptureRecord capture_;
};

}  // namespace

VEKFamilyCounts VEKCountFamilies(std::int64_t objects) {
  objects = std::clamp<std::int64_t>(objects, 0, kVEKMaxGeneratedObjects);
  VEKFamilyCounts counts;
  counts.ttrs = objects * 15 / 100;
  counts.views = objects * 10 / 100;
  counts.refFrames = objects * 5 / 100;
  counts.cgs = objects * 10 / 100;
  counts.captures = objects * 10 / 100;
  if (objects >= 6) {
    for (std::int64_t* count :
         {&counts.ttrs, &counts.views, &counts.refFrames, &counts.cgs, &counts.captures}) {
      *count = std::max<std::int64_t>(*count, 1);
    }
  }
  counts.annotations =
      objects - (counts.ttrs + counts.views + counts.refFrames + counts.cgs + counts.captures);
  return counts;
}

std::string VEKGenerateDocument(const VEKGeneratorOptions& options) {
  std::string out;
  Generator(options, out).Write();
  return out;
}

std::int64_t VEKObjectsForBytes(VEKGeneratedSchema schema, std::uint64_t bytes,
                                std::uint64_t seed) {
  constexpr std::int64_t kSampleObjects = 20000;
  const std::string sample = VEKGenerateDocument({schema, kSampleObjects, seed});
  const double objects = static_cast<double>(bytes) / static_cast<double>(sample.size()) *
                         static_cast<double>(kSampleObjects);
  return std::clamp<std::int64_t>(std::llround(objects), 1, kVEKMaxGeneratedObjects);
}

bool VEKEncodeDocumentForm(const std::string& xml, VEKGeneratedForm form, std::string& out) {
  out.clear();
  switch (form) {
    case VEKGeneratedForm::Plain:
      out = xml;
      return true;
    case VEKGeneratedForm::Base64:
      out = vek_test::EncodeBase64(reinterpret_cast<const unsigned char*>(xml.data()), xml.size());
      return true;
    case VEKGeneratedForm::Zlib: {
      uLongf capacity = compressBound(static_cast<uLong>(xml.size()));
      out.resize(capacity);
      if (compress2(reinterpret_cast<Bytef*>(out.data()), &capacity,
                    reinterpret_cast<const Bytef*>(xml.data()), static_cast<uLong>(xml.size()),
                    Z_DEFAULT_COMPRESSION) != Z_OK) {
        out.clear();
        return false;
      }
      out.resize(capacity);
      return true;
    }
  }
  return false;
}

const char* VEKGeneratedFormName(VEKGeneratedForm form) {
  switch (form) {
    case VEKGeneratedForm::Plain:
      return "plain";
    case VEKGeneratedForm::Base64:
      return "base64";
    case VEKGeneratedForm::Zlib:
      return "zlib";
  }
  return "plain";
}
