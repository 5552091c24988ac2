# The controller proven rule by rule, and the door to the store with what is published beside it.
rv_test(tst_shmstring fast ${CMAKE_CURRENT_SOURCE_DIR}/tst_shmstring.cpp)
target_link_libraries(tst_shmstring PRIVATE shmstring)
