# Every command in every mode, and every log text to the letter.
foreach(topic commands)
    rv_test(tst_engine_${topic} fast ${CMAKE_CURRENT_LIST_DIR}/tst_engine_${topic}.cpp)
    target_link_libraries(tst_engine_${topic} PRIVATE enginerig)
endforeach()
