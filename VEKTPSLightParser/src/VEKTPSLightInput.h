// The one-call load's input: reading a file, telling the form of the bytes, and turning base64
// text or a zlib stream into the XML bytes the load parses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "VEKTPSLightDocument.h"
#include "VEKTPSLightPipeline.h"

namespace vek_parser_detail {

// The form of a document's bytes: UTF-16 with a byte order mark, or text whose first character
// (after a UTF-8 byte order mark and blanks) is '<', is plain; text made only of base64
// characters and blanks is base64; a zlib header (deflate, a window of at most 32 KB, the check
// bits right) is zlib; other text whose first character is a base64 character is base64 too (so
// that the base64 decoder names the fault); anything else is plain, so that the XML parser says
// what is wrong.
VEKTPSLightForm VEKDetectForm(const unsigned char* bytes, std::size_t length) noexcept;

// Reads the file at `path` whole into `input` (with a zero byte after it), or maps it read-only
// when it is a regular file of 1 MiB or more that the system lets map (no zero byte after it then;
// the mapping goes with `input.owned`). A regular file larger than `maxBytes` is refused before it
// is read or mapped; other files are read in chunks and refused once they pass `maxBytes`. Loaded,
// or ReadFailed, TooLarge or OutOfMemory with a sentence in `error`. May throw std::bad_alloc while
// writing `error`.
VEKTPSLightLoadStatus VEKReadDocumentFile(const char* path, std::uint64_t maxBytes,
                                          VEKLoadBytes& input, std::string& error);

// Replaces `input` by what it decodes to from `form` (base64 or zlib; plain is left as it is),
// refusing more than `maxBytes`; the encoded bytes are freed at once. A zlib stream's size is
// learned by inflating it into room for 1032 times its length (deflate expands no further), or
// `maxBytes` when that is less. Loaded, or DecodeFailed, TooLarge or OutOfMemory with a sentence in
// `error`. May throw std::bad_alloc while writing `error`.
VEKTPSLightLoadStatus VEKDecodeDocument(VEKTPSLightForm form, std::uint64_t maxBytes,
                                        VEKLoadBytes& input, std::string& error);

}  // namespace vek_parser_detail
