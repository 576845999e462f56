// Streams for the harnesses that drive the mht tool's script runners.
//
// The runners report bad lines on their error stream, which a fuzzer would drown in. A
// library assertion that the tool's checks did not foresee is different: the runner's
// handler writes "FILE:LINE: the library rejected this request: assertion ..." and ends
// the process at once. FindingStream throws ordinary errors away, copies that one report to
// standard error and aborts there and then, so that the fuzzer keeps the input as a crash
// (an exit would end the process before libFuzzer could save it).
#pragma once

#include <unistd.h>
#include <cstdlib>
#include <ostream>
#include <streambuf>
#include <string>

#include "MultiHashTable/fwk/Trace.h"

namespace mht::fuzz {

class FindingBuffer : public std::streambuf {
 protected:
  int_type overflow(int_type c) override {
    if (c != traits_type::eof()) text_ += static_cast<char>(c);
    return traits_type::not_eof(c);
  }
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    text_.append(s, static_cast<std::size_t>(n));
    return n;
  }
  int sync() override {
    if (text_.find("the library rejected this request") != std::string::npos) {
      // The process is about to end without unwinding: write straight to the descriptor.
      const std::string report = "finding: " + text_;
      [[maybe_unused]] const ssize_t written = ::write(2, report.data(), report.size());
      std::abort();
    }
    text_.clear();
    return 0;
  }

 private:
  std::string text_;
};

class FindingStream : public std::ostream {
 public:
  FindingStream() : std::ostream(&buffer_) {}

 private:
  FindingBuffer buffer_;
};

class NullBuffer : public std::streambuf {
 protected:
  int_type overflow(int_type c) override { return traits_type::not_eof(c); }
  std::streamsize xsputn(const char*, std::streamsize n) override { return n; }
};

class NullStream : public std::ostream {
 public:
  NullStream() : std::ostream(&buffer_) {}

 private:
  NullBuffer buffer_;
};

// Swallows the library's trace lines while a script that turned tracing on runs.
class NullTraceSink : public Fwk::TraceSink {
 public:
  void write(const Fwk::TraceRecord&) override {}
};

}  // namespace mht::fuzz
