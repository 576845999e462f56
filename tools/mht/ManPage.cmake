# Writes mht's man page from the tool's own help, so the page lists exactly the options
# the tool accepts: help2man turns `mht --help` and `mht --version` into the page, and
# each subcommand's --help becomes a section of its own, one .TP item per option.
#   cmake -DMHT=<mht> -DHELP2MAN=<help2man> -DVERSION=<version> -DINCLUDE=<mht.h2m> -DOUTPUT=<mht.1>
#         -P ManPage.cmake
# The tool runs by its bare name from PATH, so that its usage lines read "mht ...". The
# page names the version alone, not the commit, so that it changes only with the version.
cmake_minimum_required(VERSION 3.25)
get_filename_component(mhtDir "${MHT}" DIRECTORY)
set(ENV{PATH} "${mhtDir}:$ENV{PATH}")

# troff: backslashes escaped, dashes as minus signs, no line taken for a request.
function(roff_escape text var)
  string(REPLACE "\\" "\\e" text "${text}")
  string(REPLACE "-" "\\-" text "${text}")
  string(REGEX REPLACE "^([.'])" "\\\\&\\1" text "${text}")
  set(${var} "${text}" PARENT_SCOPE)
endfunction()

set(sections "[COMMANDS]\n")
foreach(command simulate sweep replay shell)
  execute_process(COMMAND mht ${command} --help OUTPUT_VARIABLE help RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "mht ${command} --help failed (${rc})")
  endif()
  string(REPLACE ";" "\\;" help "${help}")
  string(REPLACE "\n" ";" lines "${help}")
  list(GET lines 0 summary)
  roff_escape("${summary}" summary)
  string(APPEND sections ".SS \"mht ${command}\"\n${summary}.\n")
  set(item "")
  foreach(line IN LISTS lines)
    # The exit codes, which every command's help ends with, are the page's EXIT STATUS.
    if(line STREQUAL "Exit status:")
      break()
    elseif(line MATCHES "^Usage: (.*)$")
      roff_escape("${CMAKE_MATCH_1}" usage)
      string(APPEND sections ".PP\n.B ${usage}\n")
    elseif(line MATCHES "^(Options|Positionals):$")
      string(APPEND sections ".PP\n${CMAKE_MATCH_1}:\n")
    elseif(line MATCHES "^  ([^ ].*[^ ])  +([^ ].*)$")
      roff_escape("${CMAKE_MATCH_1}" term)
      roff_escape("${CMAKE_MATCH_2}" text)
      string(APPEND sections ".TP\n.B ${term}\n${text}\n")
    elseif(line MATCHES "^  ([^ ].*[^ ])$")
      roff_escape("${CMAKE_MATCH_1}" term)
      string(APPEND sections ".TP\n.B ${term}\n")
    elseif(line MATCHES "^    +([^ ].*)$")
      roff_escape("${CMAKE_MATCH_1}" text)
      string(APPEND sections "${text}\n")
    endif()
  endforeach()
endforeach()

file(READ "${INCLUDE}" fixed)
get_filename_component(outDir "${OUTPUT}" DIRECTORY)
file(WRITE "${outDir}/mht-commands.h2m" "${sections}\n${fixed}")
execute_process(COMMAND ${HELP2MAN} --no-info --section 1
                        --name "simulate, sweep, replay and explore the hash-table placement library"
                        --version-string "${VERSION}" --include "${outDir}/mht-commands.h2m" --output "${OUTPUT}" mht
                RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "help2man failed (${rc})")
endif()
# help2man makes the exit codes at the end of `mht --help` a part of OPTIONS; they are the
# page's EXIT STATUS section, after the commands and before the files, each code in bold.
file(READ "${OUTPUT}" page)
string(FIND "${page}" ".SS \"Exit status:\"\n" start)
string(FIND "${page}" ".SH COMMANDS\n" commands)
string(FIND "${page}" ".SH FILES\n" files)
if(start EQUAL -1 OR commands LESS start OR files LESS commands)
  message(FATAL_ERROR "the man page has no exit codes after its options")
endif()
math(EXPR length "${commands} - ${start}")
string(SUBSTRING "${page}" ${start} ${length} exitStatus)
string(SUBSTRING "${page}" 0 ${start} beforeStatus)
math(EXPR length "${files} - ${commands}")
string(SUBSTRING "${page}" ${commands} ${length} commandSections)
string(SUBSTRING "${page}" ${files} -1 afterCommands)
string(REPLACE ".SS \"Exit status:\"\n" ".SH \"EXIT STATUS\"\n" exitStatus "${exitStatus}")
string(REGEX REPLACE "\.TP\n([0-9]+)\n" ".TP\n.B \\1\n" exitStatus "${exitStatus}")
file(WRITE "${OUTPUT}" "${beforeStatus}${commandSections}${exitStatus}${afterCommands}")

execute_process(COMMAND gzip -9nc "${OUTPUT}" OUTPUT_FILE "${OUTPUT}.gz" RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "gzip ${OUTPUT} failed (${rc})")
endif()
