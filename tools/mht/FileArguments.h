// The files a command line names: an output written whole or not at all, an input read as
// lines of text. A file that cannot be used is refused by the user's own path and the
// system's reason, before any work that would be lost.
#pragma once

#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace mht {

// A named file that cannot be read or written: "cannot write out/x.json: No such file or
// directory".
class FileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Writes a file whole or not at all: a failed run leaves an earlier file as it was. The
// constructor checks that the file can be written, so that a bad path fails before the run.
class OutputFile {
 public:
  explicit OutputFile(std::string path);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile();

  const std::string& path() const noexcept { return path_; }
  void commit(const std::string& content);

 private:
  std::string path_;
  std::string temp_;  // the content goes here first, then takes the path's place
};

// How much of an input is looked at to tell text from a binary file.
inline constexpr std::size_t textCheckSize = 4096;

// Whether the start of a file reads as text: no NUL byte and well-formed UTF-8 (a sequence
// cut at the end of the block counts as well-formed).
bool looksLikeText(std::string_view start) noexcept;

// Opens a file of text lines. A missing, unreadable or binary file, or a directory, is a
// FileError naming the path.
std::ifstream openTextFile(const std::string& path);

}  // namespace mht
