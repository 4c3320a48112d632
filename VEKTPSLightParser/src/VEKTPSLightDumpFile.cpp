// The dump of a parsed document: written whole under a temporary name beside the dump, then
// renamed over it, so the dump is always some load's whole document.
#include <new>

#include "VEKTPSLightParserUtil.h"
#include "VEKTPSLightReplacingFile.h"

HRESULT VEKTPSLightParserUtil::GenerateFile(VEKUnicodeString& fileName,
                                            VEKLightXmlElementItf& element) {
  if (fileName.GetLengthInChar() == 0) return E_FAIL;
  // A dump that cannot be written is skipped without a word: the load never depends on it.
  vek_parser_detail::VEKReplacingFile file;
  if (file.Open(fileName.CastToCharPtr()) != 0) return S_OK;
  // The text goes straight into the file: no copy of the whole document is ever held. An element
  // that designates nothing writes an empty dump.
  VEKLightXmlParser parser;
  (void)parser.GetXml(element, file);
  (void)file.Commit();
  return S_OK;
}
