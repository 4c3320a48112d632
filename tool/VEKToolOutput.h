// Where a command writes its result: standard output, or a file that is replaced whole.
#pragma once

#include <memory>
#include <string>

class VEKToolOutput {
 public:
  // `path` empty or "-": standard output.
  explicit VEKToolOutput(std::string path);
  // An output that was not committed leaves nothing behind.
  ~VEKToolOutput();
  VEKToolOutput(const VEKToolOutput&) = delete;
  VEKToolOutput& operator=(const VEKToolOutput&) = delete;

  // Appends `text`. False with a message (the system's reason) when it cannot be written; a reader
  // that went away (a closed pipe) is not an error worth a message: `error` stays empty.
  bool Write(const std::string& text, std::string& error);
  // Makes everything written visible: flushes standard output, or puts the file in place. False
  // with a message.
  bool Commit(std::string& error);

 private:
  struct File;
  std::string path_;
  std::unique_ptr<File> file_;
};
