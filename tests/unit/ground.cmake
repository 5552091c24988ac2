# What holds for every value and every public name.
foreach(topic valuecopies publicnames)
    rv_test(tst_${topic} fast ${CMAKE_CURRENT_LIST_DIR}/tst_${topic}.cpp)
endforeach()
target_link_libraries(tst_valuecopies PRIVATE vtrstate orbvalues)
target_link_libraries(tst_publicnames PRIVATE transport process)
