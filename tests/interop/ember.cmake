# Programs that foreign Ember+ clients and servers are tried against by run_ember.sh.
foreach(name ember_test_provider ember_test_consumer)
  add_executable(${name} ${CMAKE_CURRENT_LIST_DIR}/${name}.cpp)
  target_link_libraries(${name} PRIVATE zel_flags zelember)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
endforeach()
