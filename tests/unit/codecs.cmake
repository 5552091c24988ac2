# Coders, decoders and live inputs.
rv_test(tst_codec fast ${CMAKE_CURRENT_LIST_DIR}/tst_codec.cpp)
target_link_libraries(tst_codec PRIVATE orbcodecs)
rv_test(tst_input fast
    ${CMAKE_CURRENT_LIST_DIR}/tst_input.cpp
    ${CMAKE_CURRENT_LIST_DIR}/tst_input_media.cpp
    ${CMAKE_CURRENT_LIST_DIR}/tst_input_media.h
    ${CMAKE_CURRENT_LIST_DIR}/tst_input_tools.h)
target_include_directories(tst_input PRIVATE ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(tst_input PRIVATE orbcodecs)
rv_test(tst_input_live system
    ${CMAKE_CURRENT_LIST_DIR}/tst_input_live.cpp
    ${CMAKE_CURRENT_LIST_DIR}/tst_input_media.cpp
    ${CMAKE_CURRENT_LIST_DIR}/tst_input_media.h
    ${CMAKE_CURRENT_LIST_DIR}/tst_input_tools.h)
target_include_directories(tst_input_live PRIVATE ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(tst_input_live PRIVATE orbcodecs Qt6::Network)
