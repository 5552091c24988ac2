if(TARGET rvd)
    rv_system_test(sys_recorder ${CMAKE_CURRENT_SOURCE_DIR}/test_recorder.py)
endif()
