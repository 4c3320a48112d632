// Reading a document file of the command-line tool and decoding it into the XML bytes that a load
// parses: the input form (plain XML, base64 text or zlib data), the parsed tree and the schema.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "VEKLightXml.h"

enum class VEKToolForm { Detect, Plain, Base64, Zlib };

enum class VEKToolSchema { Unknown, Current, Legacy };

// How the user asked the files to be read.
struct VEKToolInputOptions {
  VEKToolForm form = VEKToolForm::Detect;
  // The decompressed size given with --zlib SIZE; empty: found by inflating the data.
  std::optional<int> zlibSize;
};

// One input file, read, decoded and parsed.
struct VEKToolDocument {
  // The path as the user gave it.
  std::string path;
  std::string fileBytes;
  // The form the file was read in (never Detect once decoded).
  VEKToolForm form = VEKToolForm::Plain;
  // The XML bytes exactly as the load parses them (zlib: the declared size, zero-padded).
  std::string xml;
  // The same document as UTF-8 (converted when it is UTF-16): positions and legacy text.
  std::string utf8;
  // The decompressed size handed to the load (zlib form).
  int zlibSize = 0;

  // The tool's own parse of `xml`; `root` designates nothing when it failed.
  VEKLightXmlElement root;
  std::ptrdiff_t errorOffset = -1;
  std::string errorDescription;
  VEKToolSchema schema = VEKToolSchema::Unknown;
};

// Line and column numbers (from 1) of byte offsets in a UTF-8 document.
class VEKToolLines {
 public:
  explicit VEKToolLines(const std::string& utf8);
  // The line holding byte `offset`; 0 for a negative offset.
  int LineOf(std::ptrdiff_t offset) const;
  // The column of byte `offset` in its line, counted in characters; 0 for a negative offset.
  int ColumnOf(std::ptrdiff_t offset) const;

 private:
  const std::string& text_;
  std::vector<std::size_t> lineStarts_;
};

// Reads the file at `path` whole into `bytes`. False with a message in `error` for a missing,
// unreadable or oversized file.
bool VEKToolReadFile(const std::string& path, std::string& bytes, std::string& error);

// Decodes `document.fileBytes` in the form the options name (or the form detected) into
// `document.xml` and `document.utf8`. False with a message when base64 text or zlib data does not
// decode, or the decompressed size does not fit.
bool VEKToolDecode(const VEKToolInputOptions& options, VEKToolDocument& document,
                   std::string& error);

// Parses `document.xml` with the light XML parser and finds the schema from the root element.
// False with a message (XML error with line and column, or an unknown root) when the document
// cannot be loaded.
bool VEKToolParse(VEKToolDocument& document, std::string& error);

// Reads, decodes and parses `path`; false with a message at the first step that fails.
bool VEKToolOpenDocument(const std::string& path, const VEKToolInputOptions& options,
                         VEKToolDocument& document, std::string& error);

// The name of a form as the summary writes it ("plain XML", "base64 text", "zlib data").
const char* VEKToolFormName(VEKToolForm form);
