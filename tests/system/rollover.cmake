if(TARGET rvd)
    rv_system_test(sys_rollover ${CMAKE_CURRENT_SOURCE_DIR}/test_rollover.py)
endif()
