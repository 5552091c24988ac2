# The process shell and the daemonizer as processes, without the recorder behind them.
rv_program(shellhelper ${CMAKE_CURRENT_LIST_DIR}/shellhelper.cpp)
target_link_libraries(shellhelper PRIVATE process)
rv_program(daemonhelper ${CMAKE_CURRENT_LIST_DIR}/daemonhelper.cpp)
target_link_libraries(daemonhelper PRIVATE daemonizer)
set_target_properties(shellhelper daemonhelper PROPERTIES
    ENABLE_EXPORTS ON RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)

rv_test(tst_process_shell system ${CMAKE_CURRENT_LIST_DIR}/tst_process_shell.cpp)
target_link_libraries(tst_process_shell PRIVATE orbvalues)
target_compile_definitions(tst_process_shell PRIVATE RV_HELPER="$<TARGET_FILE:shellhelper>")
add_dependencies(tst_process_shell shellhelper)

rv_test(tst_daemonizer system ${CMAKE_CURRENT_LIST_DIR}/tst_daemonizer.cpp)
target_compile_definitions(tst_daemonizer PRIVATE RV_HELPER="$<TARGET_FILE:daemonhelper>")
add_dependencies(tst_daemonizer daemonhelper)
