#include "Assert.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace Fwk {

namespace {
std::atomic<AssertionHandler> handler{nullptr};
thread_local bool trapped = false;
}  // namespace

AssertionTrap::AssertionTrap() noexcept : previous_(trapped) { trapped = true; }
AssertionTrap::~AssertionTrap() { trapped = previous_; }

std::string formatAssertion(const AssertionReport& r) {
  std::string s;
  if (!r.message.empty()) {
    s += r.message;
    s += '\n';
  }
  s += r.file;
  s += ':';
  s += std::to_string(r.line);
  s += ": ";
  s += r.function;
  s += ": Assertion `";
  s += r.condition;
  s += "' failed.";
  return s;
}

void assertionHandlerIs(AssertionHandler h) noexcept { handler.store(h); }

void assertionFailed(std::string_view condition, std::string_view message, std::string_view file, unsigned line,
                     std::string_view function) {
  if (trapped) throw AssertionStopped{std::string(condition)};
  const AssertionReport report{condition, message, file, line, function};
  if (AssertionHandler h = handler.load()) h(report);
  const std::string text = formatAssertion(report);
  std::fprintf(stderr, "%s\n", text.c_str());
  std::fflush(stderr);
  std::abort();
}

}  // namespace Fwk
