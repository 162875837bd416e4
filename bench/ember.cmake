find_package(Threads REQUIRED)
add_executable(bench_ember ${CMAKE_CURRENT_LIST_DIR}/bench_ember.cpp ${CMAKE_CURRENT_LIST_DIR}/bench_ember_link.cpp)
target_link_libraries(bench_ember PRIVATE zel_flags zel_ember_layers Threads::Threads)
