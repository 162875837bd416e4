# The outer doors: remote virtual outputs, the web endpoints, the SNMP agent.
zel_test(test_vgpo_list SOURCES test_vgpo_list.cpp LIBS zelgpio_static fake_platform LABELS library)
zel_test(test_vgpo_list_memory SOURCES test_vgpo_list_memory.cpp LIBS zelgpio_static fake_platform library_allocations LABELS library)
zel_test(test_vgpo_discovery SOURCES test_vgpo_discovery.cpp test_discovery_records.cpp test_discovery_steps.cpp
                                     test_vgpo_publishing.cpp
                             LIBS zelgpio_static fake_platform LABELS library)
zel_test(test_vgpi_links SOURCES test_vgpi_links.cpp test_vgpi_lifetimes.cpp test_vgpi_values.cpp test_vgpi_random.cpp
                         LIBS zelgpio_static fake_platform LABELS library)
zel_test(test_shared_sessions SOURCES test_shared_sessions.cpp LIBS zelgpio_static fake_platform LABELS library)
zel_test(test_web_endpoints SOURCES test_grid_endpoint.cpp test_grid_documents.cpp test_grid_forms.cpp test_connection_endpoint.cpp
                                    test_connection_forms.cpp
                            LIBS zelgpio_static fake_platform LABELS library)
zel_test(test_snmp SOURCES test_snmp_info.cpp test_snmp_requests.cpp test_snmp_records.cpp test_snmp_messages.cpp
                   LIBS zelgpio_static fake_platform LABELS library)
zel_test(test_door_allocations SOURCES test_door_allocations.cpp LIBS zelgpio_static fake_platform library_allocations LABELS library TIMEOUT 300)
zel_test(test_random_doors SOURCES test_random_doors.cpp LIBS zelgpio_static fake_platform LABELS library)
