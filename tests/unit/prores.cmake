# The ProRes encoder; FFmpeg's decoder judges.
foreach(topic validity paths rate v210)
    rv_test(tst_prores_${topic} fast
        ${CMAKE_CURRENT_LIST_DIR}/tst_prores_${topic}.cpp ${CMAKE_CURRENT_LIST_DIR}/prorestools.h)
    target_include_directories(tst_prores_${topic} PRIVATE ${CMAKE_CURRENT_LIST_DIR})
    target_link_libraries(tst_prores_${topic} PRIVATE prores PkgConfig::FFMPEG)
endforeach()

# The recorder's own ProRes.
rv_test(tst_prores_recording fast
    ${CMAKE_CURRENT_LIST_DIR}/tst_prores_recording.cpp ${CMAKE_CURRENT_LIST_DIR}/prorestools.h)
target_include_directories(tst_prores_recording PRIVATE ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(tst_prores_recording PRIVATE orbcodecs prores clip PkgConfig::FFMPEG)

# What the device records with it, on a real clock.
rv_test(tst_prores_device system
    ${CMAKE_CURRENT_LIST_DIR}/tst_prores_device.cpp ${CMAKE_CURRENT_LIST_DIR}/prorestools.h)
target_include_directories(tst_prores_device PRIVATE ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(tst_prores_device PRIVATE orbdevice prores PkgConfig::FFMPEG)

# Targets bigendian and bits32: the portable path on an emulated big-endian machine, and on one of 32 bits, where
# their compilers are installed. make bigendian installs them and builds both.
function(prores_elsewhere target compiler emulator)
    find_program(PRORES_${target}_COMPILER ${compiler})
    find_program(PRORES_EMULATOR_${emulator} ${emulator})
    if(NOT PRORES_${target}_COMPILER OR NOT PRORES_EMULATOR_${emulator})
        return()
    endif()
    file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/toolkit/libprores/*.cpp)
    add_custom_target(${target}
        COMMAND ${PRORES_${target}_COMPILER} -std=c++20 -O1 -static -Wall -Wextra
            -I${PROJECT_SOURCE_DIR}/src/toolkit ${CMAKE_CURRENT_LIST_DIR}/prores_golden.cpp ${sources}
            -o ${CMAKE_BINARY_DIR}/prores_${target} -pthread
        COMMAND ${PRORES_EMULATOR_${emulator}} ${CMAKE_BINARY_DIR}/prores_${target}
        VERBATIM)
endfunction()
prores_elsewhere(bigendian s390x-linux-gnu-g++ qemu-s390x)
prores_elsewhere(bits32 i686-linux-gnu-g++ env)
