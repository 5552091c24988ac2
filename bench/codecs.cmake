# How long one picture takes to code and to decode, for each data type.
rv_program(coder_speed ${CMAKE_CURRENT_LIST_DIR}/coder_speed.cpp)
target_link_libraries(coder_speed PRIVATE orbcodecs)
