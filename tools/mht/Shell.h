// mht shell: a small command language over the framework's type registry.
//
//   new <name> <Type> [args...]        create an entity through its registered factory
//   call <name> <operation> [args...]  call a registered operation; prints its result
//   get <name> <attribute>             an attribute or a whole collection, in text form
//   show <name>                        every attribute of an object
//   audit <table>                      the table's consistency audit
//   types                              the registered types
//   help [Type]                        commands, or a type's attributes and operations
//   objects                            the named objects
//   trace <levelMask>                  the library's trace mask (lines go to standard error)
//   quit
//
// Arguments are text: numbers (decimal or 0x-hex), true/false, enumerator names, values in
// their text form (HashEntryKey{crc16=1, crc32=2, fapId=0, entryType=singleWide},
// EntryId{value=5}), and the names of objects made with new. A type name may be typed
// without its namespace when no other registered type ends in it (an ambiguous one is an
// error naming the candidates), and an enumerator with its type's name in front
// (MoveSearch::breadthFirst). An EntryId argument may also be typed as replay's id field is:
// a number, or `any` for the invalid id. An answer that is the empty text prints as "".
//
// The session survives the library's fatal assertions:
//  - configIs, configDel and configDelAll on a HashEntryConfig that a table of the session
//    reacts to are judged first by every such table (requestCheck, removalCheck). A table
//    whose configurationCheck fails refuses every write that reaches it, naming each
//    problem; a fatal verdict refuses the write with its condition and reason; a refused
//    write writes nothing ("FILE:LINE: refused: ..."). Any other problem of the verdict is a
//    warning ("FILE:LINE: warning: ...") and the write is made.
//  - a table's own operations that place, move or remove keys are judged the same way: the
//    full resync (handleHashUpdate) by its resyncCheck, insertEntryWithId by its
//    placementAtCheck, and every one of them (reconcile, insertEntry, removeEntry...) first
//    by the table's configurationCheck.
//  - every other call, and every new, runs under an assertion trap: a stop ends the call,
//    not the session ("FILE:LINE: stopped: ... assertion "<condition>" failed"), and leaves
//    the object as the stop found it, possibly half-changed.
// A script goes on after a refused or stopped line and exits with 1 at its end; any other
// error stops it at once.
#pragma once

#include <iosfwd>
#include <string>

namespace mht {

// Runs commands from a stream; with `interactive`, errors are reported and the shell goes
// on, otherwise the first error stops it (a refused or stopped line does not). Returns the
// exit code: 1 after an error or a refused or stopped line, 0 otherwise.
int runShell(std::istream& in, const std::string& fileName, bool interactive, std::ostream& out, std::ostream& err);

// Interactive use with line editing and history on a terminal.
int runInteractiveShell(std::ostream& out, std::ostream& err);

}  // namespace mht
