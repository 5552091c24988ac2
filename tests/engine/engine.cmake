# The shipped engine on scripted drivers, in virtual time.
rv_library(enginerig
    ${CMAKE_CURRENT_LIST_DIR}/enginerig.cpp
    ${CMAKE_CURRENT_LIST_DIR}/simdispatcher.cpp)
rv_has_objects(enginerig)
target_include_directories(enginerig PUBLIC ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(enginerig PUBLIC transport orbscripted Qt6::Test)

foreach(topic alarms device modes playback record settings stream)
    rv_test(tst_engine_${topic} fast ${CMAKE_CURRENT_LIST_DIR}/tst_engine_${topic}.cpp)
    target_link_libraries(tst_engine_${topic} PRIVATE enginerig)
endforeach()
foreach(test tst_singleframe tst_keyboardtransport)
    rv_test(${test} fast ${CMAKE_CURRENT_LIST_DIR}/${test}.cpp)
    target_link_libraries(${test} PRIVATE enginerig)
endforeach()
