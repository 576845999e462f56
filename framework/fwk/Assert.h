// Fatal assertions. A broken invariant stops the process: the report names the
// condition text, the source file, the line and the function's full signature, then the
// process aborts. The message form first prints a message streamed by the caller.
//
//     FWK_ASSERT("MultiHashTable", hashEntryStatus()->statusHas( key ));
//     FWK_ASSERT_TEXT("MultiHashTable", posToKeyHas(p), "posToKeyHas( entryPos )");
//     FWK_ASSERT_MSG("MultiHashTable", !(state & mask), "!( bktState & mask )",
//                    "updateBucketState" << " bktState: 0x" << Fwk::hex << state);
//
// The message form reports its condition as "\"<text>\" == nullptr". Tests may install a
// handler that throws instead of aborting; a handler must not return.
#pragma once

#include <sstream>
#include <string>
#include <string_view>

namespace Fwk {

struct AssertionReport {
  std::string_view condition;
  std::string_view message;  // empty for the plain form
  std::string_view file;
  unsigned line;
  std::string_view function;
};

// Formats a report the way the default handler prints it.
std::string formatAssertion(const AssertionReport& report);

using AssertionHandler = void (*)(const AssertionReport&);
// Installs a handler (null restores the default, which prints to standard error and aborts).
void assertionHandlerIs(AssertionHandler handler) noexcept;

// Raised instead of the report and abort while an AssertionTrap is alive on the thread.
struct AssertionStopped {
  std::string condition;
};

// For the life of the object, a failed assertion on this thread throws AssertionStopped
// instead of stopping the process. It serves dry runs on scratch copies, whose every
// entity is dropped when the exception unwinds; nothing else may rely on it.
class AssertionTrap {
 public:
  AssertionTrap() noexcept;
  ~AssertionTrap();
  AssertionTrap(const AssertionTrap&) = delete;
  AssertionTrap& operator=(const AssertionTrap&) = delete;

 private:
  bool previous_;
};

[[noreturn]] void assertionFailed(std::string_view condition, std::string_view message, std::string_view file,
                                  unsigned line, std::string_view function);

}  // namespace Fwk

#define FWK_ASSERT_TEXT(file, condition, text) FWK_ASSERT_TEXT_IN(file, __PRETTY_FUNCTION__, condition, text)

// The assertion of a step that belongs to a larger operation: the report names the
// operation's signature (given), not the helper function that the step was factored into.
#define FWK_ASSERT_TEXT_IN(file, function, condition, text)                             \
  do {                                                                                  \
    if (!(condition)) ::Fwk::assertionFailed((text), {}, (file), __LINE__, (function)); \
  } while (0)

#define FWK_ASSERT(file, condition) FWK_ASSERT_TEXT(file, condition, #condition)

#define FWK_ASSERT_MSG(file, condition, text, message) \
  FWK_ASSERT_MSG_IN(file, __PRETTY_FUNCTION__, condition, text, message)

#define FWK_ASSERT_MSG_IN(file, function, condition, text, message)                                              \
  do {                                                                                                           \
    if (!(condition)) {                                                                                          \
      std::ostringstream fwkAssertMessage_;                                                                      \
      fwkAssertMessage_ << message;                                                                              \
      ::Fwk::assertionFailed("\"" text "\" == nullptr", fwkAssertMessage_.view(), (file), __LINE__, (function)); \
    }                                                                                                            \
  } while (0)
