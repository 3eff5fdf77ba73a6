# What all targets of this project share: warnings, sanitizers, the include roots.

find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)

add_library(zal_options INTERFACE)
target_compile_options(zal_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  target_compile_options(zal_options INTERFACE -Wthread-safety)
else()
  # g++ 12 sees overlaps in an optimised std::string operator+ that are not there (GCC bug 105651).
  target_compile_options(zal_options INTERFACE -Wno-restrict)
endif()
target_include_directories(zal_options INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/server/lib)
target_link_libraries(zal_options INTERFACE Threads::Threads)

if(ZAL_SANITIZE)
  target_compile_options(zal_options INTERFACE
    -fsanitize=${ZAL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(zal_options INTERFACE -fsanitize=${ZAL_SANITIZE})
endif()
if(ZAL_COVERAGE)
  target_compile_options(zal_options INTERFACE --coverage)
  target_link_options(zal_options INTERFACE --coverage)
endif()

# zal_library(name SOURCES a.cpp ... [LINKS other ...]): a static library of this project.
function(zal_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC zal_options ${ARG_LINKS})
  if(ZAL_FUZZERS)
    target_compile_options(${name} PRIVATE -fsanitize=fuzzer-no-link)
  endif()
endfunction()

# zal_one_thread(name left_out): this program and all it links start no thread, and it does not link if that is untrue.
# The thread sanitizer has nothing to see in it, so that it is left out there.
function(zal_one_thread name left_out)
  # std::thread::_M_start_thread, looked for under a name that nobody defines.
  set(start_thread _ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE)
  target_link_options(${name} PRIVATE "LINKER:--wrap=${start_thread}")
  if(ZAL_SANITIZE MATCHES "thread")
    set_target_properties(${name} PROPERTIES EXCLUDE_FROM_ALL ON)
    set(${left_out} ON PARENT_SCOPE)
  else()
    set(${left_out} OFF PARENT_SCOPE)
  endif()
endfunction()

# zal_test(name SOURCES a.cpp ... [LINKS lib ...] [LABEL unit|integration|slow] [ONE_THREAD]): one test program.
#
# What is tested lies in libraries, built as the preset says. The program around it runs for less time than it takes to
# optimise it.
#
# ONE_THREAD: see zal_one_thread.
function(zal_test name)
  cmake_parse_arguments(ARG "ONE_THREAD" "LABEL" "SOURCES;LINKS" ${ARGN})
  if(NOT ARG_LABEL)
    set(ARG_LABEL unit)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_compile_options(${name} PRIVATE -O0)
  target_link_libraries(${name} PRIVATE zal_options ${ARG_LINKS} GTest::gmock GTest::gtest_main)
  if(ZAL_PRECOMPILE)
    target_precompile_headers(${name} REUSE_FROM zal_test_headers)
  endif()
  if(ARG_ONE_THREAD)
    zal_one_thread(${name} left_out)
    if(left_out)
      return()
    endif()
  endif()
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES LABELS ${ARG_LABEL} TIMEOUT 300)
endfunction()
