# Language levels, warnings and instrumentation shared by every target of this project.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)

if(PROJECT_IS_TOP_LEVEL)
  set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
  find_program(K7M_CCACHE ccache)
  if(K7M_CCACHE)
    set(CMAKE_C_COMPILER_LAUNCHER ${K7M_CCACHE})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${K7M_CCACHE})
  endif()
endif()

# Linked privately by every target of ours; never reaches code that uses the library.
add_library(k7m_warnings INTERFACE)
target_compile_options(k7m_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
# Not for those who only want to use the library: their compiler may know more warnings.
if(K7M_BUILD_TESTS)
  target_compile_options(k7m_warnings INTERFACE -Werror)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(k7m_warnings INTERFACE -Wreserved-identifier)
endif()

if(K7M_SANITIZE)
  add_compile_options(-fsanitize=${K7M_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${K7M_SANITIZE})
endif()
if(K7M_COVERAGE)
  # The library alone is instrumented: CMakeLists.txt.
  add_link_options(--coverage)
endif()

function(k7m_add_subdirectory_if_present name)
  if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${name}/CMakeLists.txt)
    add_subdirectory(${name})
  endif()
endfunction()

# A program in C. Where the library is built with sanitizers it needs their runtime for C++.
function(k7m_add_c_program name)
  add_executable(${name} ${ARGN})
  if(K7M_SANITIZE)
    set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX)
  endif()
endfunction()
