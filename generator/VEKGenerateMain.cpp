// vektps-generate: writes one generated annotation document to a file.
#include <CLI/CLI.hpp>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <map>
#include <new>
#include <string>

#include "VEKDocumentGenerator.h"

int main(int argc, char** argv) {
  CLI::App app{
      "Writes a deterministic annotation document: the same options always give the same bytes."};
  std::string schemaName = "current";
  std::string formName = "plain";
  std::int64_t objects = 1000;
  double megabytes = 0;
  std::uint64_t seed = 1;
  std::string output;
  app.add_option("--schema", schemaName, "current or legacy")
      ->check(CLI::IsMember({"current", "legacy"}))
      ->capture_default_str();
  CLI::Option* objectsOption =
      app.add_option("-n,--objects", objects, "Objects over the six families")
          ->check(CLI::Range(std::int64_t{0}, kVEKMaxGeneratedObjects))
          ->capture_default_str();
  app.add_option("--size-mb", megabytes,
                 "Choose the object count that makes about this many MB (10^6 bytes) of XML")
      ->check(CLI::PositiveNumber)
      ->excludes(objectsOption);
  app.add_option("--seed", seed, "Seed of the generator")->capture_default_str();
  app.add_option("--form", formName, "plain, base64 or zlib")
      ->check(CLI::IsMember({"plain", "base64", "zlib"}))
      ->capture_default_str();
  app.add_option("-o,--output", output, "File to write")->required();
  CLI11_PARSE(app, argc, argv);

  const VEKGeneratedSchema schema =
      schemaName == "legacy" ? VEKGeneratedSchema::Legacy : VEKGeneratedSchema::Current;
  const std::map<std::string, VEKGeneratedForm> forms = {{"plain", VEKGeneratedForm::Plain},
                                                         {"base64", VEKGeneratedForm::Base64},
                                                         {"zlib", VEKGeneratedForm::Zlib}};
  const VEKGeneratedForm form = forms.at(formName);
  if (megabytes > 0) {
    objects = VEKObjectsForBytes(schema, static_cast<std::uint64_t>(megabytes * 1e6), seed);
  }

  std::string xml;
  std::string bytes;
  try {
    xml = VEKGenerateDocument({schema, objects, seed});
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "vektps-generate: out of memory\n");
    return 1;
  }
  if (!VEKEncodeDocumentForm(xml, form, bytes)) {
    std::fprintf(stderr, "vektps-generate: the zlib stream could not be made\n");
    return 1;
  }
  std::ofstream out(output, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  out.close();
  if (!out) {
    std::fprintf(stderr, "vektps-generate: cannot write %s\n", output.c_str());
    return 1;
  }
  // The uncompressed size is what a load of the zlib form must be given.
  std::fprintf(stderr, "%s: %s schema, %lld objects, seed %llu, %zu bytes of XML, %zu bytes %s\n",
               output.c_str(), schemaName.c_str(), static_cast<long long>(objects),
               static_cast<unsigned long long>(seed), xml.size(), bytes.size(), formName.c_str());
  return 0;
}
