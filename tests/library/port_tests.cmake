# Port types and settings, and the Ember+ tree.
zel_test(test_port_type SOURCES test_port_type_physical.cpp test_port_type_virtual.cpp test_port_type_buttons.cpp test_port_type.cpp
                        LIBS zelgpio_static fake_platform library_allocations)
zel_test(test_port_settings SOURCES test_port_settings.cpp test_name_lists.cpp LIBS zelgpio_static fake_platform library_allocations)
zel_test(test_ember_tree SOURCES test_ember_tree.cpp LIBS zelgpio_static fake_platform)
zel_test(test_ember_callbacks SOURCES test_ember_callbacks.cpp LIBS zelgpio_static fake_platform)
zel_test(test_ember_status SOURCES test_ember_status.cpp LIBS zelgpio_static fake_platform)
