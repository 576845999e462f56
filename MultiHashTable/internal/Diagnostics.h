// The library's own trace and assertion statements. Not installed: a client sets trace
// levels and sinks through multiHashTableTrace() and the framework, and never writes
// statements in the library's name.
#pragma once

#include <sstream>

#include "MultiHashTable/MultiHashTableTypes.h"
#include "MultiHashTable/fwk/Assert.h"
#include "MultiHashTable/fwk/Trace.h"

// Trace and assertion statements of the library: the source file is always reported as
// the library's name.
#define MHT_TRACE(level, message) FWK_TRACE(::TesselCentral::multiHashTableTrace(), level, "MultiHashTable", message)
#define MHT_ASSERT(condition) FWK_ASSERT("MultiHashTable", condition)
#define MHT_ASSERT_TEXT(condition, text) FWK_ASSERT_TEXT("MultiHashTable", condition, text)
#define MHT_ASSERT_MSG(condition, text, message) FWK_ASSERT_MSG("MultiHashTable", condition, text, message)
// The forms for a step of a larger operation, which trace and report as that operation.
#define MHT_TRACE_IN(function, level, message) \
  FWK_TRACE_IN(::TesselCentral::multiHashTableTrace(), level, "MultiHashTable", function, message)
#define MHT_ASSERT_IN(function, condition) FWK_ASSERT_TEXT_IN("MultiHashTable", function, condition, #condition)
#define MHT_ASSERT_TEXT_IN(function, condition, text) FWK_ASSERT_TEXT_IN("MultiHashTable", function, condition, text)
#define MHT_ASSERT_MSG_IN(function, condition, text, message) \
  FWK_ASSERT_MSG_IN("MultiHashTable", function, condition, text, message)
// The forms with a message for a condition whose reported text is named in
// ConditionTexts.h, already quoted and followed by " == nullptr" as the report shows it.
#define MHT_ASSERT_MSG_NAMED(condition, reportedText, message) \
  MHT_ASSERT_MSG_NAMED_IN(__PRETTY_FUNCTION__, condition, reportedText, message)
#define MHT_ASSERT_MSG_NAMED_IN(function, condition, reportedText, message)                                     \
  do {                                                                                                          \
    if (!(condition)) {                                                                                         \
      std::ostringstream mhtAssertMessage_;                                                                     \
      mhtAssertMessage_ << message;                                                                             \
      ::Fwk::assertionFailed((reportedText), mhtAssertMessage_.view(), "MultiHashTable", __LINE__, (function)); \
    }                                                                                                           \
  } while (0)
