#include "VEKToolInput.h"

#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>

#include <sys/stat.h>

#include "VEKCodePage.h"

namespace {

// Deflate never expands its input by more than 1032 to 1; the load refuses a larger declared size.
constexpr std::int64_t kMaxInflateRatio = 1032;

const char* const kCurrentRoot = "Functional_Tolerancing_Annotation";
const char* const kLegacyRoot = "TolerancingData";

bool IsBlank(unsigned char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool IsBase64Character(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' ||
         c == '/' || c == '=';
}

bool HasUtf16Bom(const std::string& bytes) {
  return bytes.size() >= 2 &&
         ((bytes[0] == '\xFE' && bytes[1] == '\xFF') || (bytes[0] == '\xFF' && bytes[1] == '\xFE'));
}

// A zlib stream starts with a header whose compression method is deflate and whose two bytes,
// read as a big-endian number, are a multiple of 31.
bool HasZlibHeader(const std::string& bytes) {
  if (bytes.size() < 2) return false;
  const auto method = static_cast<unsigned char>(bytes[0]);
  const auto flags = static_cast<unsigned char>(bytes[1]);
  return (method & 0x0F) == 8 && (method >> 4) <= 7 && ((method << 8) | flags) % 31 == 0;
}

VEKToolForm DetectForm(const std::string& bytes) {
  if (HasZlibHeader(bytes)) return VEKToolForm::Zlib;
  if (HasUtf16Bom(bytes)) return VEKToolForm::Plain;
  std::size_t start = bytes.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
  while (start < bytes.size() && IsBlank(static_cast<unsigned char>(bytes[start]))) ++start;
  if (start == bytes.size() || bytes[start] == '<') return VEKToolForm::Plain;
  const bool base64 =
      std::all_of(bytes.begin() + static_cast<std::ptrdiff_t>(start), bytes.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return IsBase64Character(byte) || IsBlank(byte);
      });
  // Anything else is handed to the XML parser, which says where it goes wrong.
  return base64 ? VEKToolForm::Base64 : VEKToolForm::Plain;
}

bool DecodeBase64(const std::string& text, std::string& decoded, std::string& error) {
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    if (IsBase64Character(byte) || IsBlank(byte)) continue;
    char message[128];
    if (byte >= 0x21 && byte < 0x7F) {
      std::snprintf(message, sizeof message,
                    "the base64 text does not decode: '%c' at offset %zu is not a base64 character",
                    byte, at);
    } else {
      std::snprintf(message, sizeof message,
                    "the base64 text does not decode: byte 0x%02x at offset %zu is not a base64 "
                    "character",
                    byte, at);
    }
    error = message;
    return false;
  }
  unsigned char* bytes = nullptr;
  unsigned int length = 0;
  const int result = VEKCodePage::ConvertFromBase64(text.c_str(), bytes, length);
  const std::unique_ptr<unsigned char[]> owned(bytes);
  if (result < 0 || !bytes) {
    error =
        "the base64 text does not decode: it is empty, its padding is misplaced or its length is "
        "not a whole number of 4-character groups";
    return false;
  }
  decoded.assign(reinterpret_cast<const char*>(bytes), length);
  return true;
}

// Inflates the one zlib stream that `compressed` must hold, refusing output beyond INT_MAX bytes.
bool Inflate(const std::string& compressed, std::string& inflated, std::string& error) {
  z_stream stream{};
  if (inflateInit(&stream) != Z_OK) {
    error = "the zlib data does not decode: zlib cannot start";
    return false;
  }
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(compressed.data()));
  stream.avail_in = static_cast<uInt>(compressed.size());
  std::unique_ptr<char[]> chunk(new char[64 * 1024]);
  int status = Z_OK;
  while (status == Z_OK) {
    stream.next_out = reinterpret_cast<Bytef*>(chunk.get());
    stream.avail_out = 64 * 1024;
    status = inflate(&stream, Z_NO_FLUSH);
    const std::size_t produced = 64 * 1024 - stream.avail_out;
    if (inflated.size() + produced > static_cast<std::size_t>(INT_MAX)) {
      (void)inflateEnd(&stream);
      error = "the zlib data decompresses to more than 2147483647 bytes";
      return false;
    }
    inflated.append(chunk.get(), produced);
  }
  const std::string message = stream.msg ? stream.msg : "";
  const uInt leftOver = stream.avail_in;
  (void)inflateEnd(&stream);
  if (status == Z_BUF_ERROR) {
    error = "the zlib data does not decode: it ends before the end of its stream";
    return false;
  }
  if (status != Z_STREAM_END) {
    error = "the zlib data does not decode: " + (message.empty() ? "corrupt data" : message);
    return false;
  }
  if (leftOver != 0) {
    error = "the zlib data does not decode: " + std::to_string(leftOver) +
            " bytes follow the end of its stream";
    return false;
  }
  return true;
}

bool DecodeZlib(const VEKToolInputOptions& options, VEKToolDocument& document, std::string& error) {
  std::string inflated;
  if (!Inflate(document.fileBytes, inflated, error)) return false;
  const auto actual = static_cast<int>(inflated.size());
  if (actual == 0) {
    error = "the zlib data decompresses to nothing";
    return false;
  }
  const int declared = options.zlibSize.value_or(actual);
  if (declared < actual) {
    error = "the zlib data decompresses to " + std::to_string(actual) + " bytes, more than SIZE " +
            std::to_string(declared);
    return false;
  }
  if (declared > static_cast<std::int64_t>(document.fileBytes.size()) * kMaxInflateRatio) {
    error = "SIZE " + std::to_string(declared) + " is more than " +
            std::to_string(document.fileBytes.size()) + " bytes of zlib data can hold";
    return false;
  }
  // The load hands the parser the declared size; the bytes beyond the stream's are zeros.
  inflated.resize(static_cast<std::size_t>(declared), '\0');
  document.xml = std::move(inflated);
  document.zlibSize = declared;
  return true;
}

void AppendUtf8(std::uint32_t code, std::string& out) {
  if (code < 0x80) {
    out += static_cast<char>(code);
  } else if (code < 0x800) {
    out += static_cast<char>(0xC0 | (code >> 6));
    out += static_cast<char>(0x80 | (code & 0x3F));
  } else if (code < 0x10000) {
    out += static_cast<char>(0xE0 | (code >> 12));
    out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (code & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (code >> 18));
    out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (code & 0x3F));
  }
}

// UTF-16 with a byte order mark as UTF-8, the mark included; broken surrogates become U+FFFD.
std::string Utf16ToUtf8(const std::string& bytes) {
  const bool bigEndian = bytes[0] == '\xFE';
  auto unit = [&](std::size_t at) {
    const auto first = static_cast<unsigned char>(bytes[at]);
    const auto second = static_cast<unsigned char>(bytes[at + 1]);
    return static_cast<std::uint32_t>(bigEndian ? (first << 8) | second : (second << 8) | first);
  };
  std::string out;
  out.reserve(bytes.size());
  for (std::size_t at = 0; at + 1 < bytes.size(); at += 2) {
    std::uint32_t code = unit(at);
    if (code >= 0xD800 && code <= 0xDBFF && at + 3 < bytes.size()) {
      const std::uint32_t low = unit(at + 2);
      if (low >= 0xDC00 && low <= 0xDFFF) {
        code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
        at += 2;
      }
    }
    if (code >= 0xD800 && code <= 0xDFFF) code = 0xFFFD;
    AppendUtf8(code, out);
  }
  return out;
}

}  // namespace

VEKToolLines::VEKToolLines(const std::string& utf8) : text_(utf8) {
  lineStarts_.push_back(0);
  for (std::size_t at = 0; at < utf8.size(); ++at) {
    if (utf8[at] == '\n') lineStarts_.push_back(at + 1);
  }
}

int VEKToolLines::LineOf(std::ptrdiff_t offset) const {
  if (offset < 0) return 0;
  const auto after =
      std::upper_bound(lineStarts_.begin(), lineStarts_.end(), static_cast<std::size_t>(offset));
  return static_cast<int>(after - lineStarts_.begin());
}

int VEKToolLines::ColumnOf(std::ptrdiff_t offset) const {
  const int line = LineOf(offset);
  if (line == 0) return 0;
  std::size_t at = lineStarts_[static_cast<std::size_t>(line - 1)];
  // A byte order mark is not a column.
  if (line == 1 && text_.compare(0, 3, "\xEF\xBB\xBF") == 0) at = std::min<std::size_t>(3, offset);
  const std::size_t end = std::min(static_cast<std::size_t>(offset), text_.size());
  int column = 1;
  for (; at < end; ++at) {
    if ((static_cast<unsigned char>(text_[at]) & 0xC0) != 0x80) ++column;
  }
  return column;
}

bool VEKToolReadFile(const std::string& path, std::string& bytes, std::string& error) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    error = std::string("cannot open: ") + std::strerror(errno);
    return false;
  }
  if (S_ISDIR(status.st_mode)) {
    error = "cannot read: it is a directory";
    return false;
  }
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    error = std::string("cannot open: ") + std::strerror(errno);
    return false;
  }
  bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  if (file.bad()) {
    error = "cannot read: input/output error";
    return false;
  }
  // A plain file is handed to the load as base64, which must stay within INT_MAX characters.
  if (bytes.size() > static_cast<std::size_t>(INT_MAX) / 4 * 3) {
    error = "cannot read: the file is larger than 1610612733 bytes";
    return false;
  }
  return true;
}

bool VEKToolDecode(const VEKToolInputOptions& options, VEKToolDocument& document,
                   std::string& error) {
  document.form =
      options.form == VEKToolForm::Detect ? DetectForm(document.fileBytes) : options.form;
  switch (document.form) {
    case VEKToolForm::Base64:
      if (!DecodeBase64(document.fileBytes, document.xml, error)) return false;
      break;
    case VEKToolForm::Zlib:
      if (!DecodeZlib(options, document, error)) return false;
      break;
    default:
      document.xml = document.fileBytes;
      break;
  }
  document.utf8 = HasUtf16Bom(document.xml) ? Utf16ToUtf8(document.xml) : document.xml;
  return true;
}

bool VEKToolParse(VEKToolDocument& document, std::string& error) {
  VEKLightXmlParser parser;
  VEKLightXmlInputStreamBuffer stream(reinterpret_cast<const unsigned char*>(document.xml.data()),
                                      static_cast<int>(document.xml.size()));
  if (!parser.Parse(stream, document.root)) {
    document.errorOffset = parser.GetErrorOffset();
    document.errorDescription = parser.GetErrorDescription();
    if (document.errorOffset < 0) {
      error = "XML error: " + document.errorDescription;
    } else {
      const VEKToolLines lines(document.utf8);
      error = "XML error at line " + std::to_string(lines.LineOf(document.errorOffset)) +
              ", column " + std::to_string(lines.ColumnOf(document.errorOffset)) + ": " +
              document.errorDescription;
    }
    return false;
  }
  const VEKUnicodeString& name = document.root.GetName();
  if (name == kCurrentRoot) {
    document.schema = VEKToolSchema::Current;
  } else if (name == kLegacyRoot) {
    document.schema = VEKToolSchema::Legacy;
  } else {
    error = std::string("the root element is \"") + name.ConvertToChar() + "\", neither \"" +
            kCurrentRoot + "\" (current schema) nor \"" + kLegacyRoot + "\" (legacy schema)";
    return false;
  }
  return true;
}

bool VEKToolOpenDocument(const std::string& path, const VEKToolInputOptions& options,
                         VEKToolDocument& document, std::string& error) {
  document.path = path;
  if (!VEKToolReadFile(path, document.fileBytes, error)) return false;
  std::string reason;
  if (!VEKToolDecode(options, document, reason) || !VEKToolParse(document, reason)) {
    error = "load failed: " + reason;
    return false;
  }
  return true;
}

const char* VEKToolFormName(VEKToolForm form) {
  switch (form) {
    case VEKToolForm::Base64:
      return "base64 text";
    case VEKToolForm::Zlib:
      return "zlib data";
    default:
      return "plain XML";
  }
}
