if(TARGET rvd)
    rv_system_test(sys_shell ${CMAKE_CURRENT_LIST_DIR}/test_shell.py)
endif()
