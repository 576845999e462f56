// Leveled traces.
//
// A TraceHandle has a name and a level mask: level n is on when bit n is set. A trace
// statement first tests its level, and only when the level is on does it build a line:
//
//     FWK_TRACE(handle, 2, "MultiHashTable", "Bank::" << "calcBucketId" << " bucketId: " << id);
//
// costs one load and one test when level 2 is off; nothing after the level is evaluated.
// An emitted line carries the level, the source file name given, the line and the short
// function name, then the streamed text. Lines go to the handle's sink, standard error
// unless a program installs another one (tests install a MemoryTraceSink).
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace Fwk {

struct TraceRecord {
  std::string_view handle;
  unsigned level;
  std::string_view file;
  unsigned line;
  std::string_view function;
  std::string_view text;
};

class TraceSink {
 public:
  virtual ~TraceSink() = default;
  virtual void write(const TraceRecord& record) = 0;
};

// Writes "L<level> <file>:<line> <function>: <text>" lines to a stream.
class StreamTraceSink : public TraceSink {
 public:
  explicit StreamTraceSink(std::ostream& out) : out_(out) {}
  void write(const TraceRecord& record) override;
  static std::string format(const TraceRecord& record);

 private:
  std::ostream& out_;
};

// Keeps every record in memory, for tests and tools that inspect traces.
class MemoryTraceSink : public TraceSink {
 public:
  struct Line {
    unsigned level;
    std::string file;
    unsigned line;
    std::string function;
    std::string text;
  };
  void write(const TraceRecord& record) override;
  const std::vector<Line>& lines() const noexcept { return lines_; }
  // The texts of the records at one level, in order.
  std::vector<std::string> texts(unsigned level) const;
  // The texts of every record, in order.
  std::vector<std::string> texts() const;
  void clear() noexcept { lines_.clear(); }

 private:
  std::vector<Line> lines_;
};

class TraceHandle {
 public:
  explicit constexpr TraceHandle(const char* name) noexcept : name_(name) {}
  TraceHandle(const TraceHandle&) = delete;
  TraceHandle& operator=(const TraceHandle&) = delete;

  const char* name() const noexcept { return name_; }

  bool enabled(unsigned level) const noexcept {
    return level < 32 && ((mask_.load(std::memory_order_relaxed) >> level) & 1u) != 0;
  }
  std::uint32_t levelMask() const noexcept { return mask_.load(std::memory_order_relaxed); }
  void levelMaskIs(std::uint32_t mask) noexcept { mask_.store(mask, std::memory_order_relaxed); }

  // The sink that receives this handle's lines; null restores standard error.
  void sinkIs(TraceSink* sink) noexcept { sink_.store(sink, std::memory_order_release); }
  TraceSink* sink() const noexcept { return sink_.load(std::memory_order_acquire); }

  void emit(unsigned level, std::string_view file, unsigned line, std::string_view function,
            std::string_view text) const;

 private:
  const char* name_;
  std::atomic<std::uint32_t> mask_{0};
  std::atomic<TraceSink*> sink_{nullptr};
};

// Scoped stream manipulators for the trace stream.
inline std::ostream& hex(std::ostream& os) { return os << std::hex; }
inline std::ostream& dec(std::ostream& os) { return os << std::dec; }

// One line under construction; emitted when it goes out of scope.
class TraceLine {
 public:
  TraceLine(const TraceHandle& handle, unsigned level, std::string_view file, unsigned line, std::string_view function);
  TraceLine(const TraceLine&) = delete;
  TraceLine& operator=(const TraceLine&) = delete;
  ~TraceLine();

  std::ostream& stream() noexcept { return stream_; }

 private:
  const TraceHandle& handle_;
  unsigned level_;
  std::string_view file_;
  unsigned line_;
  std::string_view function_;
  std::ostringstream stream_;
};

}  // namespace Fwk

#define FWK_TRACE(handle, level, file, message) FWK_TRACE_IN(handle, level, file, __func__, message)

// A trace statement of a step that belongs to a larger operation: it names the operation
// (its short name), not the helper function that the step was factored into.
#define FWK_TRACE_IN(handle, level, file, function, message)                           \
  do {                                                                                 \
    if ((handle).enabled(level)) {                                                     \
      ::Fwk::TraceLine fwkTraceLine_((handle), (level), (file), __LINE__, (function)); \
      fwkTraceLine_.stream() << message;                                               \
    }                                                                                  \
  } while (0)
