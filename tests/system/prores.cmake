if(TARGET rvd)
    rv_system_test(sys_prores ${CMAKE_CURRENT_SOURCE_DIR}/test_prores.py)
endif()
