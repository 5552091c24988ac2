# Every command in every mode, whole stories, and every log text to the letter.
foreach(topic arrivals commands stories texts)
    rv_test(tst_engine_${topic} fast ${CMAKE_CURRENT_LIST_DIR}/tst_engine_${topic}.cpp)
    target_link_libraries(tst_engine_${topic} PRIVATE enginerig)
endforeach()
target_compile_definitions(tst_engine_texts PRIVATE RV_SOURCE_DIR="${PROJECT_SOURCE_DIR}/src")
target_link_libraries(tst_engine_texts PRIVATE vtraux)
