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
// their text form (TesselCentral::HashEntryKey{crc16=1, crc32=2, fapId=0, entryType=singleWide},
// TesselCentral::EntryId{value=5}), and the names of objects made with new.
#pragma once

#include <iosfwd>
#include <string>

namespace mht {

// Runs commands from a stream; with `interactive`, errors are reported and the shell goes
// on, otherwise the first error stops it. Returns the exit code.
int runShell(std::istream& in, const std::string& fileName, bool interactive, std::ostream& out, std::ostream& err);

// Interactive use with line editing and history on a terminal.
int runInteractiveShell(std::ostream& out, std::ostream& err);

}  // namespace mht
