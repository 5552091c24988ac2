if(TARGET rvd)
    rv_system_test(sys_media ${CMAKE_CURRENT_SOURCE_DIR}/test_media.py)
endif()
