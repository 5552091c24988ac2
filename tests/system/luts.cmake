# Look-up tables on the picture, media measured for real, and media that hang.
if(TARGET rvd)
    rv_system_test(sys_luts ${CMAKE_CURRENT_LIST_DIR}/test_luts.py)
    rv_system_test(sys_hanging ${CMAKE_CURRENT_LIST_DIR}/test_hanging.py)
endif()
rv_test(tst_media_mounts system ${CMAKE_CURRENT_LIST_DIR}/tst_media_mounts.cpp)
target_link_libraries(tst_media_mounts PRIVATE media)
