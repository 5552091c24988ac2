# Values and process services: needs nothing but Qt's core and the codec library's log switch.
pkg_check_modules(AVUTIL REQUIRED IMPORTED_TARGET libavutil)

rv_library(orbvalues
    orb.cpp
    orbalarm.cpp
    orbalarmcontroller.cpp
    orbaudio.cpp
    orbaudiodesc.cpp
    orbbuffer.cpp
    orbcrypto.cpp
    orbframe.cpp
    orbgetopts.cpp
    orbid.cpp
    orbimage.cpp
    orbimagedesc.cpp
    orbimagelut.cpp
    orblockfile.cpp
    orblog.cpp
    orbplaylist.cpp
    orbrational.cpp
    orbstreaminfo.cpp
    orbtimecode.cpp
    orbthread.cpp
    orbtimestamp.cpp
    orbvideodevicesetup.cpp
    orbvideorate.cpp
    orbvideostate.cpp
)
rv_has_objects(orbvalues)
target_link_libraries(orbvalues PUBLIC Qt6::Core PRIVATE PkgConfig::AVUTIL)
