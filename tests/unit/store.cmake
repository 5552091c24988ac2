# The parameter catalogue, the in-process store, the store's protocol and its client in simulated time.
rv_test(tst_store_catalogue fast ${PROJECT_SOURCE_DIR}/tests/unit/tst_store_catalogue.cpp)
target_link_libraries(tst_store_catalogue PRIVATE config)
target_compile_definitions(tst_store_catalogue PRIVATE
    RV_SOURCE_DIR="${PROJECT_SOURCE_DIR}"
    RV_GENERATED_MANUAL="${CMAKE_BINARY_DIR}/generated/catalogue/parameters.md"
    RV_GENERATOR="$<TARGET_FILE:gencatalogue>")
add_dependencies(tst_store_catalogue gencatalogue)

rv_test(tst_config_memory fast ${PROJECT_SOURCE_DIR}/tests/unit/tst_config_memory.cpp)
target_link_libraries(tst_config_memory PRIVATE config)

rv_test(tst_store_packet fast ${PROJECT_SOURCE_DIR}/tests/unit/tst_store_packet.cpp)
target_link_libraries(tst_store_packet PRIVATE store)

rv_test(tst_store_protocol fast ${PROJECT_SOURCE_DIR}/tests/unit/tst_store_protocol.cpp)
target_link_libraries(tst_store_protocol PRIVATE store)

rv_test(tst_store_valuefile fast ${PROJECT_SOURCE_DIR}/tests/unit/tst_store_valuefile.cpp)
target_link_libraries(tst_store_valuefile PRIVATE store)

rv_test(tst_store_names fast ${PROJECT_SOURCE_DIR}/tests/unit/tst_store_names.cpp)
target_link_libraries(tst_store_names PRIVATE control)
