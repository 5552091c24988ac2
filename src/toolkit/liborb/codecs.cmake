# Raw pictures, the coder and decoder pools, live inputs.
rv_library(orbcodecs
    drivers/software/decoder.cpp
    drivers/software/encoder.cpp
    drivers/software/ffmpegcoder.cpp
    drivers/software/pictureconverter.cpp
    drivers/software/picturedecoder.cpp
    drivers/software/rawpicture.cpp
)
target_link_libraries(orbcodecs PUBLIC orbvalues picture bus PkgConfig::FFMPEG)
# Every sample of every frame passes here: never at debug speed.
set_source_files_properties(
    drivers/software/ffmpegcoder.cpp drivers/software/pictureconverter.cpp
    PROPERTIES COMPILE_OPTIONS $<$<NOT:$<CONFIG:Debug>>:-O3>)
