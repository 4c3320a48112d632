// The dump of a parsed document: written whole under a temporary name beside the dump, then
// renamed over it, so the dump is always some load's whole document.
#include <new>

#include "VEKTPSLightParserUtil.h"
#include "VEKTPSLightPipeline.h"
#include "VEKTPSLightReplacingFile.h"

bool vek_parser_detail::VEKWriteDump(const std::string& finalName,
                                     const VEKLightXmlElementItf& element,
                                     VEKLightXmlParser* parsedBy,
                                     const VEKLightXmlInputStream* input) {
  VEKReplacingFile file;
  if (file.Open(finalName.c_str()) != 0) return false;
  // The text goes straight into the file: no copy of the whole document is ever held. An element
  // that designates nothing writes an empty dump.
  if (parsedBy && input) {
    (void)parsedBy->WriteParsedRoot(*input, element, file);
  } else {
    VEKLightXmlParser parser;
    (void)parser.GetXml(element, file);
  }
  return file.Commit() == 0;
}

HRESULT VEKTPSLightParserUtil::GenerateFile(VEKUnicodeString& fileName,
                                            VEKLightXmlElementItf& element) {
  if (fileName.GetLengthInChar() == 0) return E_FAIL;
  // A dump that cannot be written is skipped without a word: the load never depends on it.
  try {
    (void)vek_parser_detail::VEKWriteDump(fileName.CastToCharPtr(), element);
  } catch (const std::bad_alloc&) {
    // Nor is one whose name could not be copied for want of memory.
  }
  return S_OK;
}
