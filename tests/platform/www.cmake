# Tests of the web server over real sockets, where it is built.
if(ZEL_WEB_SERVER)
  add_library(zel_web_test STATIC EXCLUDE_FROM_ALL ${CMAKE_CURRENT_LIST_DIR}/web_bench.cpp)
  target_include_directories(zel_web_test PUBLIC ${CMAKE_CURRENT_LIST_DIR} ${PROJECT_SOURCE_DIR}/platform
                                                 ${PROJECT_SOURCE_DIR}/platform/include)
  target_link_libraries(zel_web_test PRIVATE zel_flags PUBLIC zelwww z GTest::gtest)
  foreach(part http files rules login events)
    zel_test(test_www_${part} SOURCES ${CMAKE_CURRENT_LIST_DIR}/test_www_${part}.cpp
             LIBS zel_web_test zel_www_parts zelwww LABELS platform)
  endforeach()
endif()
