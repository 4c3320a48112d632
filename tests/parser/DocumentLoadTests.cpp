// The one-call load: forms and schemas found or forced, errors with their place, files of every
// kind, and nothing written unless asked.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <iconv.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "ParserTestSupport.h"
#include "VEKDocumentGenerator.h"
#include "VEKTPSLightDocument.h"
#include "VEKTPSLightLinks.h"

using vek_test::ReadFileBytes;

namespace {

const std::string kDocuments = std::string(VEK_TEST_SOURCE_DIR) + "/../../examples/documents/";

std::string Bundled(const char* name) { return ReadFileBytes(kDocuments + name); }

// `utf8` as UTF-16 with a byte order mark, through the C library's converter.
std::string ToUtf16(const std::string& utf8) {
  iconv_t converter = iconv_open("UTF-16", "UTF-8");
  std::string out(utf8.size() * 4 + 4, '\0');
  char* in = const_cast<char*>(utf8.data());
  std::size_t inLeft = utf8.size();
  char* at = out.data();
  std::size_t outLeft = out.size();
  (void)iconv(converter, &in, &inLeft, &at, &outLeft);
  iconv_close(converter);
  out.resize(out.size() - outLeft);
  return out;
}

VEKTPSLightDocument LoadText(const std::string& bytes, const VEKTPSLightLoadOptions& options = {}) {
  return VEKLoadDocument(bytes.data(), bytes.size(), options);
}

// The model of the first set of `document`, as ModelText writes it.
std::string ModelOf(const VEKTPSLightDocument& document) {
  return document.Sets().empty() ? "" : vek_test::ModelText(document.Sets()[0].Get());
}

class DocumentLoad : public ::testing::Test {
 protected:
  vek_test::ScratchDirectory directory_;
};

TEST_F(DocumentLoad, BundledDocumentsInEveryFormAndTheirLinks) {
  const std::string pump = Bundled("pump_housing.xml");
  const std::string legacy = Bundled("gear_shaft_legacy.xml");
  // Every form gives the model of the plain text, with its characters beyond ASCII.
  const std::string pumpModel = ModelOf(LoadText(pump));
  const std::string legacyModel = ModelOf(LoadText(legacy));
  EXPECT_NE(pumpModel.find(" attribute=⌀0.1 Ⓜ A B C "), std::string::npos);
  EXPECT_NE(legacyModel.find(" attribute=◎ ⌀0.01 A-B "), std::string::npos);
  const struct {
    const char* what;
    std::string bytes;
    VEKTPSLightForm form;
    VEKTPSLightSchema schema;
    const std::string& model;
  } rows[] = {
      {"plain UTF-8", pump, VEKTPSLightForm::Plain, VEKTPSLightSchema::Current, pumpModel},
      {"base64", Bundled("pump_housing.xml.b64"), VEKTPSLightForm::Base64,
       VEKTPSLightSchema::Current, pumpModel},
      {"zlib", vek_test::ZlibCompress(pump), VEKTPSLightForm::Zlib, VEKTPSLightSchema::Current,
       pumpModel},
      {"UTF-16", ToUtf16(pump), VEKTPSLightForm::Plain, VEKTPSLightSchema::Current, pumpModel},
      {"legacy", legacy, VEKTPSLightForm::Plain, VEKTPSLightSchema::Legacy, legacyModel},
      {"legacy UTF-16", ToUtf16(legacy), VEKTPSLightForm::Plain, VEKTPSLightSchema::Legacy,
       legacyModel},
  };
  // Only a current-schema document has a dump, and only when asked for.
  VEKTPSLightLoadOptions dump;
  dump.dumpPath = "dump.xml";
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    const VEKTPSLightDocument document = LoadText(row.bytes, dump);
    ASSERT_TRUE(document.Loaded()) << document.Error();
    EXPECT_EQ(document.Dumped(), row.schema == VEKTPSLightSchema::Current);
    EXPECT_EQ(std::filesystem::remove("dump.xml"), document.Dumped());
    EXPECT_EQ(document.Result(), S_OK);
    EXPECT_EQ(document.Form(), row.form);
    EXPECT_EQ(document.Schema(), row.schema);
    EXPECT_TRUE(document.Error().empty());
    ASSERT_EQ(document.Sets().size(), 1u);
    EXPECT_EQ(ModelOf(document), row.model);
    EXPECT_TRUE(document.Diagnostics().empty()) << document.Diagnostics()[0].message;
  }
  // From a file: the same model.
  const VEKTPSLightDocument fromFile =
      VEKLoadDocumentFile((kDocuments + "pump_housing.xml.b64").c_str());
  ASSERT_TRUE(fromFile.Loaded());
  EXPECT_EQ(fromFile.Form(), VEKTPSLightForm::Base64);
  // The set and its 59 objects.
  EXPECT_EQ(fromFile.ObjectsBuilt(), 60u);
  dump.dumpPath = "missing/dump.xml";
  EXPECT_FALSE(LoadText(pump, dump).Dumped());
  EXPECT_TRUE(std::filesystem::is_empty(directory_.Path()));

  // The links of a set are built once, on first use, also when threads ask at once.
  const VEKTPSLightLinks* seen[4] = {};
  std::vector<std::thread> threads;
  for (const VEKTPSLightLinks*& links : seen)
    threads.emplace_back([&fromFile, &links] { links = fromFile.Links(0); });
  for (std::thread& thread : threads) thread.join();
  ASSERT_NE(seen[0], nullptr);
  for (const VEKTPSLightLinks* links : seen) EXPECT_EQ(links, seen[0]);
  EXPECT_EQ(fromFile.Links(1), nullptr);
  EXPECT_EQ(fromFile.Links(-1), nullptr);
  // Every view is named by the annotations it shows.
  const auto& named = seen[0]->ReferencedBy(fromFile.Sets()[0]->GetViews().Get(0));
  ASSERT_FALSE(named.empty());
  EXPECT_EQ(named.front().role, VEKTPSLightRole::View);
}

TEST_F(DocumentLoad, FailuresSayWhyAndWhere) {
  const std::string current =
      "<Functional_Tolerancing_Annotation><AnnotationSet/></Functional_Tolerancing_Annotation>";
  const std::string legacy = "<TolerancingData><AnnotationSet/></TolerancingData>";
  VEKTPSLightLoadOptions found, base64, zlib, plain, asCurrent, asLegacy;
  base64.form = VEKTPSLightForm::Base64;
  zlib.form = VEKTPSLightForm::Zlib;
  plain.form = VEKTPSLightForm::Plain;
  asCurrent.schema = VEKTPSLightSchema::Current;
  asLegacy.schema = VEKTPSLightSchema::Legacy;
  const std::string packed = vek_test::ZlibCompress(current);
  using Status = VEKTPSLightLoadStatus;
  const struct {
    const char* what;
    std::string bytes;
    VEKTPSLightLoadOptions options;
    Status status;
    const char* error;  // the start of Error()
    int line = 0;
    int column = 0;
  } rows[] = {
      {"plain forced as base64", current, base64, Status::DecodeFailed,
       "the base64 text does not decode: '<' at offset 0 is not a base64 character"},
      // Text that cannot be XML but starts as base64 is damaged base64; other text goes to the
      // XML parser.
      {"a zero byte in base64", std::string("QUJD\0QUJD", 9), found, Status::DecodeFailed,
       "the base64 text does not decode: byte 0x00 at offset 4 is not a base64 character"},
      {"a stray character in base64", "QUJD\nQU*D", found, Status::DecodeFailed,
       "the base64 text does not decode: '*' at offset 7 is not a base64 character"},
      {"neither XML nor base64", "*QUJD", found, Status::XmlError, "", 1, 1},
      {"base64 cut short", "QUJDRA", found, Status::DecodeFailed,
       "the base64 text does not decode: its length is not a whole number"},
      {"base64 padding inside", "QQ==QUJD", found, Status::DecodeFailed,
       "the base64 text does not decode: its padding is not at its end"},
      {"plain forced as zlib", current, zlib, Status::DecodeFailed,
       "the zlib data does not decode: it is corrupt"},
      {"zlib with bytes after", packed + "x", found, Status::DecodeFailed,
       "the zlib data does not decode: bytes follow the end of its stream"},
      {"zlib forced as plain", packed, plain, Status::XmlError, "", 1, 1},
      {"base64 forced as plain", vek_test::ToBase64(current), plain, Status::XmlError, "", 1, 1},
      {"current forced as legacy", current, asLegacy, Status::UnknownRoot,
       "the root element is \"Functional_Tolerancing_Annotation\", not the \"TolerancingData\" of "
       "the legacy schema asked for"},
      {"legacy forced as current", legacy, asCurrent, Status::UnknownRoot,
       "the root element is \"TolerancingData\", not the"},
      {"unknown root", "<Other/>", found, Status::UnknownRoot,
       "the root element is \"Other\", neither"},
      {"tags that do not match", "<a>\n  <b>\n</a>", found, Status::XmlError,
       "Start-end tags mismatch", 3, 3},
      {"a bad character after text beyond ASCII", "<a>\n\xC3\xA9\xC3\xA9 &</a>", found,
       Status::XmlError, "", 2, 5},
      {"current without a set", "<Functional_Tolerancing_Annotation/>", found, Status::NoSet,
       "the root has no AnnotationSet child"},
      {"legacy without 5 values", legacy, found, Status::NoSet,
       "no AnnotationSet holds exactly 5 values"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    const VEKTPSLightDocument document = LoadText(row.bytes, row.options);
    EXPECT_EQ(document.Status(), row.status) << document.Error();
    EXPECT_FALSE(document.Loaded());
    EXPECT_EQ(document.Error().rfind(row.error, 0), 0u) << document.Error();
    EXPECT_FALSE(document.Error().empty());
    EXPECT_EQ(document.ErrorLine(), row.line);
    EXPECT_EQ(document.ErrorColumn(), row.column);
    EXPECT_EQ(document.Result(), E_FAIL);
  }
  // A root of the other schema is still told.
  EXPECT_EQ(LoadText(current, asLegacy).Schema(), VEKTPSLightSchema::Current);
  EXPECT_EQ(LoadText("<Other/>").Schema(), std::nullopt);
  // A set made without its values is still the document's.
  EXPECT_EQ(LoadText(legacy).Sets().size(), 1u);
}

TEST_F(DocumentLoad, FilesOfEveryKindWithinTheLimit) {
  VEKTPSLightLoadOptions small;
  small.maxInputBytes = 1 << 20;
  // A sparse file far larger than the limit is refused before a byte of it is read.
  std::ofstream("sparse.xml").close();
  std::filesystem::resize_file("sparse.xml", std::uintmax_t{1} << 40);
  const VEKTPSLightDocument sparse = VEKLoadDocumentFile("sparse.xml");
  EXPECT_EQ(sparse.Status(), VEKTPSLightLoadStatus::TooLarge);
  EXPECT_EQ(sparse.Error(),
            "the file holds 1099511627776 bytes, more than the 2147483647 a document may have");
  // An endless device is read up to the limit only.
  EXPECT_EQ(VEKLoadDocumentFile("/dev/zero", small).Status(), VEKTPSLightLoadStatus::TooLarge);
  EXPECT_EQ(VEKLoadDocumentFile("missing.xml").Status(), VEKTPSLightLoadStatus::ReadFailed);
  EXPECT_EQ(VEKLoadDocumentFile(".").Error(), "cannot read: it is a directory");
  EXPECT_EQ(VEKLoadDocumentFile(nullptr).Status(), VEKTPSLightLoadStatus::ReadFailed);

  // A pipe is read in chunks to its end.
  const std::string document = Bundled("gear_shaft_legacy.xml");
  ASSERT_EQ(mkfifo("pipe.xml", 0600), 0);
  std::thread writer([&] {
    const int pipe = open("pipe.xml", O_WRONLY);
    for (std::size_t at = 0; at < document.size(); at += 1000)
      (void)!write(pipe, document.data() + at, std::min<std::size_t>(1000, document.size() - at));
    close(pipe);
  });
  const VEKTPSLightDocument piped = VEKLoadDocumentFile("pipe.xml");
  writer.join();
  EXPECT_TRUE(piped.Loaded()) << piped.Error();
  EXPECT_EQ(piped.Schema(), VEKTPSLightSchema::Legacy);

  // What the bytes decode to is held to the limit too.
  const std::string xml = Bundled("pump_housing.xml");
  VEKTPSLightLoadOptions tight;
  tight.maxInputBytes = xml.size() - 1;
  for (const std::string& bytes :
       {vek_test::ZlibCompress(xml), Bundled("pump_housing.xml.b64"), xml})
    EXPECT_EQ(LoadText(bytes, tight).Status(), VEKTPSLightLoadStatus::TooLarge) << bytes.size();
  tight.maxInputBytes = xml.size();
  EXPECT_TRUE(LoadText(vek_test::ZlibCompress(xml), tight).Loaded());
}

// Files of 1 MiB or more are mapped, not read, and unmapped once parsed: the model they give is
// the one their bytes give from memory, so nothing of it points into the mapping.
TEST_F(DocumentLoad, MappedFilesLoadAsTheirBytesDo) {
  const std::string current = VEKGenerateDocument({VEKGeneratedSchema::Current, 2000, 1});
  std::string pageEnd = current;
  // A mapping that ends at a page end makes any read past the document fault.
  pageEnd.append(4096 - pageEnd.size() % 4096, '\n');
  std::string base64;
  ASSERT_TRUE(VEKEncodeDocumentForm(current, VEKGeneratedForm::Base64, base64));
  const struct {
    const char* what;
    std::string bytes;
  } rows[] = {
      {"current", current},
      {"ending at a page end", pageEnd},
      {"base64", base64},
      {"UTF-16", ToUtf16(current)},
      {"legacy", VEKGenerateDocument({VEKGeneratedSchema::Legacy, 6000, 1})},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    ASSERT_GE(row.bytes.size(), 1u << 20);
    ASSERT_TRUE(std::ofstream("mapped.xml", std::ios::binary) << row.bytes);
    const VEKTPSLightDocument mapped = VEKLoadDocumentFile("mapped.xml");
    const VEKTPSLightDocument read = LoadText(row.bytes);
    ASSERT_TRUE(mapped.Loaded()) << mapped.Error();
    ASSERT_TRUE(read.Loaded()) << read.Error();
    EXPECT_EQ(mapped.Form(), read.Form());
    EXPECT_EQ(mapped.Schema(), read.Schema());
    EXPECT_EQ(mapped.ObjectsBuilt(), read.ObjectsBuilt());
    EXPECT_EQ(mapped.Diagnostics().size(), read.Diagnostics().size());
    EXPECT_EQ(ModelOf(mapped), ModelOf(read));
    // The mapping went with the load.
    EXPECT_EQ(ReadFileBytes("/proc/self/maps").find("mapped.xml"), std::string::npos);
  }
}

TEST(DocumentNames, EveryValueHasItsName) {
  EXPECT_STREQ(VEKTPSLightFormName(VEKTPSLightForm::Zlib), "zlib");
  EXPECT_STREQ(VEKTPSLightSchemaName(VEKTPSLightSchema::Legacy), "legacy");
  EXPECT_STREQ(VEKTPSLightDiagnosticKindName(VEKTPSLightDiagnosticKind::UnknownRefFrame),
               "unknown-ref-frame");
  const VEKTPSLightDocument none;
  EXPECT_EQ(none.Status(), VEKTPSLightLoadStatus::OutOfMemory);
  EXPECT_EQ(none.Result(), E_OUTOFMEMORY);
  EXPECT_TRUE(none.Sets().empty());
  EXPECT_EQ(none.Links(0), nullptr);
}

}  // namespace
