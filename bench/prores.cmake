# The ProRes encoder's paths beside FFmpeg's encoders.
rv_program(prores_speed ${CMAKE_CURRENT_LIST_DIR}/prores_speed.cpp)
target_link_libraries(prores_speed PRIVATE prores picture PkgConfig::FFMPEG)
# Clips are drawn a sample at a time.
target_compile_options(prores_speed PRIVATE $<$<NOT:$<CONFIG:Debug>>:-O3>)

rv_program(prores_decoding ${CMAKE_CURRENT_LIST_DIR}/prores_decoding.cpp)
target_link_libraries(prores_decoding PRIVATE prores picture PkgConfig::FFMPEG)
target_compile_options(prores_decoding PRIVATE $<$<NOT:$<CONFIG:Debug>>:-O3>)
