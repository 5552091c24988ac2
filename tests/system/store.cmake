# The real store and command line as processes, on a port of their own.
rv_test(tst_store_processes system ${PROJECT_SOURCE_DIR}/tests/system/tst_store_processes.cpp)
target_link_libraries(tst_store_processes PRIVATE config Qt6::Network)
target_compile_definitions(tst_store_processes PRIVATE
    RV_STORE="$<TARGET_FILE:rvstore>" RV_CTL="$<TARGET_FILE:rvctl>")
add_dependencies(tst_store_processes rvstore rvctl)
