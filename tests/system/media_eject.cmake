if(TARGET rvd)
    rv_system_test(sys_media_eject ${CMAKE_CURRENT_SOURCE_DIR}/test_media_eject.py)
endif()
# The processes themselves under the sanitizers, not only what they are made of.
if(RV_SANITIZE)
    rv_system_test(sys_media_tools ${CMAKE_CURRENT_SOURCE_DIR}/test_media_tools.py)
    set_tests_properties(sys_media_tools PROPERTIES LABELS fast)
    add_dependencies(fast_tests rvctl rvgrok rvmedia rvstock rvstore)
endif()
