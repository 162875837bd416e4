# Fuzzers of the messages between the unit and its SNMP agent, one per side. With clang's fuzzer each is a program fuzz_<name>; in
# every build with tests replay_<name> runs its corpus once.
set(snmp_fuzz_dir ${CMAKE_CURRENT_LIST_DIR})
set(snmp_agent_dir ${PROJECT_SOURCE_DIR}/daemons/snmpd)
set(fake_platform_dir ${PROJECT_SOURCE_DIR}/tests/library)

function(zel_snmp_replay name)
  add_executable(replay_${name} ${snmp_fuzz_dir}/fuzz_${name}.cpp ${snmp_fuzz_dir}/replay_main.cpp)
  target_link_libraries(replay_${name} PRIVATE zel_flags ${ARGN})
  set_target_properties(replay_${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  add_test(NAME fuzz_corpus.${name} COMMAND replay_${name} ${snmp_fuzz_dir}/corpus/${name})
  set_tests_properties(fuzz_corpus.${name} PROPERTIES TIMEOUT 120 LABELS platform)
endfunction()

# The sources are part of the program, so that the fuzzer sees which of their branches an input takes.
function(zel_snmp_fuzzer name)
  add_executable(fuzz_${name} ${snmp_fuzz_dir}/fuzz_${name}.cpp ${ARGN})
  target_compile_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
  target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
  target_link_libraries(fuzz_${name} PRIVATE zel_flags)
  set_target_properties(fuzz_${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/fuzz)
endfunction()

if(ZEL_TESTS)
  zel_snmp_replay(snmp_agent zel_snmp_model)
  zel_snmp_replay(snmp_library zelgpio_static fake_platform)
endif()
if(ZEL_FUZZ)
  zel_snmp_fuzzer(snmp_agent ${snmp_agent_dir}/unit_model.cpp ${snmp_agent_dir}/message_decoder.cpp ${snmp_agent_dir}/tables.cpp
                             ${snmp_agent_dir}/set_checks.cpp)
  target_include_directories(fuzz_snmp_agent PRIVATE ${snmp_agent_dir})
  file(GLOB library_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/zel_gpio/*.cpp
                                              ${PROJECT_SOURCE_DIR}/src/vgpo_list/*.cpp)
  file(GLOB fake_sources CONFIGURE_DEPENDS ${fake_platform_dir}/fake_*.cpp)
  zel_snmp_fuzzer(snmp_library ${library_sources} ${fake_sources})
  target_include_directories(fuzz_snmp_library PRIVATE ${fake_platform_dir} ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/include
                                                       ${PROJECT_SOURCE_DIR}/platform/include)
endif()
