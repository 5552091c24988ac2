# What a pass of the engine costs, and random stories in virtual time.
rv_program(engine_pass ${CMAKE_CURRENT_LIST_DIR}/engine_pass.cpp)
target_link_libraries(engine_pass PRIVATE enginestress)
