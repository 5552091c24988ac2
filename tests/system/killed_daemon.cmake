if(TARGET rvd)
    rv_system_test(sys_killed_daemon ${CMAKE_CURRENT_SOURCE_DIR}/test_killed_daemon.py)
endif()
