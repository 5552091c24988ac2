if(TARGET rvd)
    rv_system_test(sys_media_slots ${CMAKE_CURRENT_SOURCE_DIR}/test_media_slots.py)
    rv_system_test(sys_lossofvideo ${CMAKE_CURRENT_SOURCE_DIR}/test_lossofvideo.py)
endif()
