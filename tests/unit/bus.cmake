rv_test(tst_bus fast ${CMAKE_CURRENT_LIST_DIR}/tst_bus.cpp)
target_link_libraries(tst_bus PRIVATE bus)
rv_test(tst_bus_hostile fast ${CMAKE_CURRENT_LIST_DIR}/tst_bus_hostile.cpp)
target_link_libraries(tst_bus_hostile PRIVATE bus)
rv_test(tst_bus_timecode fast
    ${CMAKE_CURRENT_LIST_DIR}/tst_bus_timecode.cpp
    ${PROJECT_SOURCE_DIR}/src/services/rvcam/timecode.cpp)
