# The process shell: what can be said without starting a process.
rv_test(tst_process fast ${CMAKE_CURRENT_LIST_DIR}/tst_process.cpp)
target_link_libraries(tst_process PRIVATE process)
