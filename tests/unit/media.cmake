# The lists that the recorder's processes share.
rv_test(tst_sharedlist fast ${CMAKE_CURRENT_LIST_DIR}/tst_sharedlist.cpp)
target_link_libraries(tst_sharedlist PRIVATE vanta)
# The lists have one name in the whole machine.
set_tests_properties(tst_clipfinder PROPERTIES RESOURCE_LOCK clip_lists)
