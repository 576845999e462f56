# Warnings and sanitizers for the project's own targets. Third-party code is not affected.
add_library(mht_project_options INTERFACE)
target_compile_options(mht_project_options INTERFACE
  -Wall -Wextra -Wpedantic -Werror -Wshadow -Wnon-virtual-dtor -Wold-style-cast
  # Calls inside a shared library bind to its own functions (no PLT hop, and they may be
  # inlined); the library does not support replacing its functions by interposition.
  -fno-semantic-interposition)

if(MHT_SANITIZE)
  set(MHT_SANITIZER_FLAGS -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_compile_options(mht_project_options INTERFACE ${MHT_SANITIZER_FLAGS})
  target_link_options(mht_project_options INTERFACE ${MHT_SANITIZER_FLAGS})
endif()

# ThreadSanitizer, for the thread-safe mode's tests (the tsan preset). It cannot be combined
# with AddressSanitizer, so it has a build of the libraries of its own.
option(MHT_SANITIZE_THREAD "Build with ThreadSanitizer" OFF)
if(MHT_SANITIZE_THREAD)
  if(MHT_SANITIZE)
    message(FATAL_ERROR "MHT_SANITIZE_THREAD and MHT_SANITIZE exclude each other")
  endif()
  set(MHT_THREAD_SANITIZER_FLAGS -fsanitize=thread -fno-omit-frame-pointer)
  target_compile_options(mht_project_options INTERFACE ${MHT_THREAD_SANITIZER_FLAGS})
  target_link_options(mht_project_options INTERFACE ${MHT_THREAD_SANITIZER_FLAGS})
endif()

# Applies the project's options to a target without exporting them to clients.
function(mht_apply_project_options target)
  target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:mht_project_options>)
endfunction()
