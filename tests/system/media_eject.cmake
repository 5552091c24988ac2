if(TARGET rvd)
    rv_system_test(sys_media_eject ${CMAKE_CURRENT_SOURCE_DIR}/test_media_eject.py)
endif()
