if(TARGET rvd)
    rv_system_test(sys_failing_media ${CMAKE_CURRENT_SOURCE_DIR}/test_failing_media.py)
endif()
