# The state values, the engine's decisions, and what stands beside it.
rv_test(tst_vtrstate fast ${CMAKE_CURRENT_LIST_DIR}/tst_vtrstate.cpp)
target_link_libraries(tst_vtrstate PRIVATE vtrstate)
rv_test(tst_timecodetrigger fast ${CMAKE_CURRENT_LIST_DIR}/tst_timecodetrigger.cpp)
target_link_libraries(tst_timecodetrigger PRIVATE vtraux)
rv_test(tst_decisions fast ${CMAKE_CURRENT_LIST_DIR}/tst_decisions.cpp)
target_link_libraries(tst_decisions PRIVATE transport)
set_property(TEST tst_vtrstate tst_timecodetrigger tst_decisions APPEND PROPERTY LABELS engine)
