# Compiler settings shared by every room, and the three helpers that declare libraries, tests and fuzz targets.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

# No NDEBUG here: the sanitized builds keep their assertions, lock ranks among them.
set(CMAKE_CXX_FLAGS_SANITIZE "-O1 -g1 -fno-omit-frame-pointer")
set(CMAKE_C_FLAGS_SANITIZE "-O1 -g1 -fno-omit-frame-pointer")
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -g1 -DNDEBUG")
set(CMAKE_C_FLAGS_RELEASE "-O2 -g1 -DNDEBUG")
# Not optimised, so that every line and branch is counted where it was written; NDEBUG, so that what is counted is what
# is shipped. Threads count at the same time. Only the rooms of the plug-in count: libraries and tests would take three
# times as long for figures that nobody looks at.
string(CONCAT CMAKE_CXX_FLAGS_COVERAGE "-O0 -DNDEBUG --coverage -fprofile-update=atomic "
  "-fprofile-filter-files='(^|/)(qapi|zoapi|zovyrnsdk|zoiohandler)/'")
set(CMAKE_C_FLAGS_COVERAGE ${CMAKE_CXX_FLAGS_COVERAGE})

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
endif()

set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)

# Flags of our own targets; third-party headers come in as system headers and are not judged by them.
add_library(zoio_options INTERFACE)
target_include_directories(zoio_options INTERFACE ${CMAKE_SOURCE_DIR})
target_link_libraries(zoio_options INTERFACE Threads::Threads)
target_compile_options(zoio_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion
  # A constructor's parameter may bear the name of the member that it sets; g++'s plain -Wshadow would refuse it.
  $<IF:$<CXX_COMPILER_ID:GNU>,-Wshadow=local,-Wshadow>
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Wold-style-cast -Woverloaded-virtual>)
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
  target_compile_options(zoio_options INTERFACE -Wthread-safety)
endif()
if(ZOIO_WERROR)
  target_compile_options(zoio_options INTERFACE -Werror)
endif()
if(ZOIO_SANITIZE)
  add_compile_options(-fsanitize=${ZOIO_SANITIZE} -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${ZOIO_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # GCC 12 reports false positives of these two once the sanitizers have rewritten the code.
    add_compile_options(-Wno-maybe-uninitialized -Wno-stringop-overflow)
    # Beast and Asio use fences that the thread sanitizer does not model; none of them guards our data.
    if(ZOIO_SANITIZE MATCHES thread)
      add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-tsan>)
    endif()
  endif()
endif()

# The rooms tell the fuzzer which of their branches an input has taken; without that it searches blindly.
if(ZOIO_BUILD_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# zoio_library(NAME SOURCES...): one room as a static library with hidden symbols.
function(zoio_library name)
  add_library(${name} STATIC ${ARGN})
  target_link_libraries(${name} PUBLIC zoio_options)
endfunction()

# zoio_test(NAME LIBS lib... SOURCES src... [TIMEOUT seconds] [LABELS label...] [LOCK name] [SERIAL]):
# one GoogleTest program; each of its tests is a CTest test of its own. Of those with the same LOCK one runs at a time.
function(zoio_test name)
  cmake_parse_arguments(arg "SERIAL" "TIMEOUT;LOCK" "LIBS;SOURCES;LABELS" ${ARGN})
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE zoio_options ${arg_LIBS} GTest::gtest GTest::gmock GTest::gtest_main)
  if(TARGET zoio_test_headers)
    target_precompile_headers(${name} REUSE_FROM zoio_test_headers)
  endif()
  set(properties TIMEOUT ${arg_TIMEOUT})
  if(arg_LABELS)
    list(APPEND properties LABELS "${arg_LABELS}")
  endif()
  if(arg_LOCK)
    list(APPEND properties RESOURCE_LOCK ${arg_LOCK})
  endif()
  if(arg_SERIAL)
    list(APPEND properties RUN_SERIAL TRUE)
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    TEST_PREFIX "${name}." PROPERTIES ${properties})
endfunction()

# zoio_fuzz(NAME LIBS lib... SOURCES src...): one libFuzzer target.
function(zoio_fuzz name)
  cmake_parse_arguments(arg "" "" "LIBS;SOURCES" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE zoio_options ${arg_LIBS})
  target_compile_options(${name} PRIVATE -fsanitize=fuzzer)
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
endfunction()
