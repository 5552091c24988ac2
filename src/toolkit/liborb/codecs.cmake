# Raw pictures, the coder and decoder pools, live inputs.
rv_library(orbcodecs
    drivers/software/businput.cpp
    drivers/software/codedmemory.cpp
    drivers/software/largememory.cpp
    drivers/software/decoder.cpp
    drivers/software/encoder.cpp
    drivers/software/ffmpegcoder.cpp
    drivers/software/ffmpeginput.cpp
    drivers/software/frameassembler.cpp
    drivers/software/input.cpp
    drivers/software/inputpace.cpp
    drivers/software/inputqueue.cpp
    drivers/software/mediareader.cpp
    drivers/software/pictureconverter.cpp
    drivers/software/picturedecoder.cpp
    drivers/software/prorescoder.cpp
    drivers/software/rawpicture.cpp
    drivers/software/streamrate.cpp
)
target_link_libraries(orbcodecs PUBLIC orbvalues picture bus prores PkgConfig::FFMPEG)
# Every sample of every frame passes here: never at debug speed.
set_source_files_properties(
    drivers/software/ffmpegcoder.cpp drivers/software/pictureconverter.cpp
    PROPERTIES COMPILE_OPTIONS $<$<NOT:$<CONFIG:Debug>>:-O3>)
