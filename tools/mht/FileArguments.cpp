#include "FileArguments.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace mht {

namespace {

[[noreturn]] void refuse(const char* what, const std::string& path, int error) {
  throw FileError(std::string("cannot ") + what + ' ' + path + ": " + std::strerror(error));
}

bool isDirectory(const std::string& path) {
  struct stat s {};
  return ::stat(path.c_str(), &s) == 0 && S_ISDIR(s.st_mode);
}

// The length of the UTF-8 sequence that starts with `lead`; 0 for a byte that cannot start one.
std::size_t sequenceLength(unsigned char lead) noexcept {
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) return 2;
  if (lead >= 0xE0 && lead <= 0xEF) return 3;
  if (lead >= 0xF0 && lead <= 0xF4) return 4;
  return 0;
}

}  // namespace

OutputFile::OutputFile(std::string path) : path_(std::move(path)), temp_(path_ + ".partial") {
  if (isDirectory(path_)) refuse("write", path_, EISDIR);
  // An existing file must take writing; a new one must be creatable where it is named.
  if (::access(path_.c_str(), F_OK) == 0 && ::access(path_.c_str(), W_OK) != 0) refuse("write", path_, errno);
  const int fd = ::open(temp_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
  if (fd < 0) refuse("write", path_, errno);
  ::close(fd);
}

OutputFile::~OutputFile() { std::remove(temp_.c_str()); }

void OutputFile::commit(const std::string& content) {
  std::FILE* out = std::fopen(temp_.c_str(), "w");
  if (out == nullptr) refuse("write", path_, errno);
  const bool written = std::fwrite(content.data(), 1, content.size(), out) == content.size();
  const int writeError = errno;
  if (std::fclose(out) != 0 || !written) refuse("write", path_, written ? errno : writeError);
  if (std::rename(temp_.c_str(), path_.c_str()) != 0) refuse("write", path_, errno);
}

bool looksLikeText(std::string_view start) noexcept {
  for (std::size_t i = 0; i < start.size();) {
    const auto lead = static_cast<unsigned char>(start[i]);
    if (lead == 0) return false;
    const std::size_t length = sequenceLength(lead);
    if (length == 0) return false;
    for (std::size_t k = 1; k < length; ++k) {
      if (i + k == start.size()) return true;  // cut by the end of the block
      const auto next = static_cast<unsigned char>(start[i + k]);
      if ((next & 0xC0) != 0x80) return false;
    }
    i += length;
  }
  return true;
}

std::ifstream openTextFile(const std::string& path) {
  if (isDirectory(path)) refuse("read", path, EISDIR);
  errno = 0;
  std::ifstream in(path, std::ios::binary);
  if (!in) refuse("read", path, errno != 0 ? errno : ENOENT);
  std::string start(textCheckSize, '\0');
  in.read(start.data(), static_cast<std::streamsize>(start.size()));
  start.resize(static_cast<std::size_t>(in.gcount()));
  if (in.bad()) refuse("read", path, errno != 0 ? errno : EIO);
  if (!looksLikeText(start)) {
    throw FileError("cannot read " + path + ": not a text file (a NUL byte or a byte that is not UTF-8 in its first " +
                    std::to_string(textCheckSize) + " bytes)");
  }
  in.clear();
  in.seekg(0);
  return in;
}

}  // namespace mht
