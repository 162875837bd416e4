# Programs that foreign Ember+ clients and servers are tried against by run_ember.sh.
foreach(name ember_test_provider ember_test_consumer ember_test_discovery)
  add_executable(${name} ${CMAKE_CURRENT_LIST_DIR}/${name}.cpp)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
endforeach()
target_link_libraries(ember_test_provider PRIVATE zel_flags zelember)
target_link_libraries(ember_test_consumer PRIVATE zel_flags zelember)
target_link_libraries(ember_test_discovery PRIVATE zel_flags zelipc)
