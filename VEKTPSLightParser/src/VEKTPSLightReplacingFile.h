// A file replaced only whole: its bytes go to a new file beside it, under a name nobody can guess,
// created exclusively and never through a link, and that file is renamed over the final name only
// once every byte is written and the file is closed. Dropped before Commit, the new file goes and
// the final one stays as it was.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "VEKLightXml.h"

namespace vek_parser_detail {

class VEKReplacingFile final : public VEKLightXmlOutputStream {
 public:
  VEKReplacingFile() noexcept = default;
  ~VEKReplacingFile() override;
  VEKReplacingFile(const VEKReplacingFile&) = delete;
  VEKReplacingFile& operator=(const VEKReplacingFile&) = delete;

  // Creates the new file that is to replace `finalName`. 0, or the errno of the failure.
  [[nodiscard]] int Open(const char* finalName) noexcept;
  // Appends `length` bytes; false (and every later write refused) when the file did not take them.
  [[nodiscard]] bool WriteAll(const void* bytes, std::size_t length) noexcept;
  // Closes the new file and renames it over the final name. 0, or the errno of the first failure
  // (of a write, the close or the rename), the new file then removed.
  [[nodiscard]] int Commit() noexcept;

  int Write(const unsigned char* bytes, int length) override;
  int GetLength() const override;
  // What is in the file stays there; only the count restarts.
  void Clear() override { length_ = 0; }

 private:
  void Abandon() noexcept;

  std::string finalName_;
  std::string temporaryName_;
  std::FILE* file_ = nullptr;
  std::int64_t length_ = 0;
  int error_ = 0;
};

}  // namespace vek_parser_detail
