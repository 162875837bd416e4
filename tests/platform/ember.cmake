# Tests of the Ember+ sessions: each layer alone, then the sessions on real sockets.
foreach(part s101 ber glow provider clients consumer consumer_set pair memory)
  zel_test(test_ember_${part} SOURCES ${CMAKE_CURRENT_LIST_DIR}/test_ember_${part}.cpp LIBS zel_ember_layers LABELS platform)
endforeach()
