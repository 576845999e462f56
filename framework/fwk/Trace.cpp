#include "Trace.h"

#include <iostream>

namespace Fwk {

std::string StreamTraceSink::format(const TraceRecord& r) {
  std::string s;
  s.reserve(r.text.size() + r.function.size() + r.file.size() + 24);
  s += 'L';
  s += std::to_string(r.level);
  s += ' ';
  s += r.file;
  s += ':';
  s += std::to_string(r.line);
  s += ' ';
  s += r.function;
  s += ": ";
  s += r.text;
  return s;
}

void StreamTraceSink::write(const TraceRecord& record) { out_ << format(record) << '\n'; }

void MemoryTraceSink::write(const TraceRecord& r) {
  lines_.push_back(Line{r.level, std::string(r.file), r.line, std::string(r.function), std::string(r.text)});
}

std::vector<std::string> MemoryTraceSink::texts(unsigned level) const {
  std::vector<std::string> out;
  for (const Line& l : lines_) {
    if (l.level == level) out.push_back(l.text);
  }
  return out;
}

std::vector<std::string> MemoryTraceSink::texts() const {
  std::vector<std::string> out;
  out.reserve(lines_.size());
  for (const Line& l : lines_) out.push_back(l.text);
  return out;
}

void TraceHandle::emit(unsigned level, std::string_view file, unsigned line, std::string_view function,
                       std::string_view text) const {
  const TraceRecord record{name_, level, file, line, function, text};
  if (TraceSink* s = sink()) {
    s->write(record);
    return;
  }
  // Standard error is shared by every handle; keep lines whole.
  static std::mutex stderrMutex;
  const std::string formatted = StreamTraceSink::format(record) + '\n';
  std::lock_guard<std::mutex> lock(stderrMutex);
  std::cerr << formatted << std::flush;
}

TraceLine::TraceLine(const TraceHandle& handle, unsigned level, std::string_view file, unsigned line,
                     std::string_view function)
    : handle_(handle), level_(level), file_(file), line_(line), function_(function) {
  stream_ << std::boolalpha;
}

TraceLine::~TraceLine() { handle_.emit(level_, file_, line_, function_, stream_.view()); }

}  // namespace Fwk
