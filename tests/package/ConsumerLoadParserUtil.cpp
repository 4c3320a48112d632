// Loading through VEKTPSLightParserUtil: the file holds the document as base64 text.
#include <fstream>
#include <iterator>
#include <string>

#include "ConsumerLoad.h"
#include "VEKTPSLightParserUtil.h"

ConsumerLoad LoadDocument(const char* path) {
  ConsumerLoad load;
  std::ifstream file(path, std::ios::binary);
  if (!file) return load;
  const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (file.bad()) return load;
  VEKUnicodeString base64(text.data(), text.size());
  VEKTPSLightParserUtil parser;
  VEKITPSLightSet* set = nullptr;
  load.result = parser.GenerateLightModelFromBase(base64, nullptr, &set, 1, nullptr, 0, 0);
  load.lastSet.Attach(set);
  return load;
}
