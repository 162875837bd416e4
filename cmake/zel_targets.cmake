# How this project's targets are made: one function per kind of target, so that every library hides its symbols,
# every warning is an error, and every test runs in a process of its own.

add_library(zel_flags INTERFACE)
target_compile_features(zel_flags INTERFACE cxx_std_20 c_std_11)
target_compile_options(zel_flags INTERFACE -Wall -Wextra -Werror -Wshadow -Wformat=2 -Wundef -fno-common)
if(ZEL_SANITIZE)
  target_compile_options(zel_flags INTERFACE -fsanitize=${ZEL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(zel_flags INTERFACE -fsanitize=${ZEL_SANITIZE})
endif()
if(ZEL_COVERAGE)
  target_compile_options(zel_flags INTERFACE --coverage -O0 -fprofile-update=atomic)
  target_link_options(zel_flags INTERFACE --coverage)
endif()

# zel_platform_library(name SOURCES ... LIBS ...): lib<name>.so, exporting only the zel_* and log_message functions.
# The plain file name is the soname, because the library stands in for a unit's own of that name.
function(zel_platform_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_library(${name} SHARED ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/platform/include PRIVATE ${PROJECT_SOURCE_DIR}/platform
                                            ${CMAKE_CURRENT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE zel_flags ${ARG_LIBS})
  target_link_options(${name} PRIVATE -Wl,--as-needed -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/platform.map)
  set_target_properties(${name} PROPERTIES LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/platform.map)
  install(TARGETS ${name} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
endfunction()

# zel_program(name SOURCES ... LIBS ...): an installed program in bin/.
function(zel_program name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/platform)
  target_link_libraries(${name} PRIVATE zel_flags ${ARG_LIBS})
  install(TARGETS ${name} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endfunction()

# zel_test(name SOURCES ... LIBS ... [LABELS ...] [TIMEOUT s]): a GoogleTest program; each of its tests becomes one ctest
# test and so has a process of its own, which the library under test needs (it is initialised once per process).
function(zel_test name)
  cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
  if(NOT ZEL_TESTS)
    return()
  endif()
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/platform)
  target_link_libraries(${name} PRIVATE zel_flags ${ARG_LIBS} GTest::gtest_main)
  # What is tested is built as delivered; the tests themselves only need to be built quickly.
  target_compile_options(${name} PRIVATE -O0 -g1)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  gtest_discover_tests(${name} TEST_PREFIX "${name}." DISCOVERY_TIMEOUT 60
                       PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}")
endfunction()
